#include "input/model_information.h"

#include "input/modinf_writer.h"
#include "support/check.h"
#include "support/scratch_directory.h"
#include "support/skip_reasons.h"
#include "support/small_modinf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace zeph;
using namespace zeph_test;

const std::string end_texts = "  Unexpected end of file on model information\n dataset (unit=53).\n";
const small_model_form all_parts{true, true, true};

template <class Array> std::vector<double> cells(const Array& x) { return {x.begin(), x.end()}; }
using row = std::vector<double>;
using names = std::vector<std::string>;

std::string padded(const std::string& x, std::size_t width) { return x + std::string(width - x.size(), ' '); }

// The label and code of a record that was too short: free-format row.
std::string short_text(const std::string& label) { return label + "          67\n"; }

// QVAMRD on these bytes in a directory of their own.
struct reading {
  explicit reading(const std::string& bytes) : run(directory.path()) {
    directory.write("MODINF", bytes);
    ierr = QVAMRD(m, run.report);
  }
  scratch_directory directory;
  heard_run run;
  model_records m;
  int ierr = -99;
};

std::string expect_stopped_reading(const std::string& bytes, std::int64_t fail_at = 0) {
  scratch_directory directory;
  directory.write("MODINF", bytes);
  heard_run run(directory.path());
  run.report.door.fail_at = fail_at;
  model_records m;
  return expect_stop(exit_diagnosed, run, [&](reporting& report) { QVAMRD(m, report); });
}

std::string written(const model_records& m) {
  scratch_directory directory;
  std::string fault = "unset";
  EXPECT_TRUE(write_modinf(m, directory / "MODINF", fault)) << fault;
  EXPECT_EQ(fault, "");
  return directory.read("MODINF");
}

// Place of the n-th record with this label.
std::size_t record_of(const modinf_bytes& file, const std::string& label, int n = 1) {
  for (std::size_t i = 0; i < file.size(); ++i)
    if (file[i].label == label && --n == 0) return i;
  ADD_FAILURE() << "no record " << label;
  return 0;
}

// The file with the 32-bit integer at `offset` of one record replaced.
std::string with_integer(modinf_bytes file, const std::string& label, int n, std::size_t offset,
                         std::int32_t value) {
  file[record_of(file, label, n)].data.replace(offset, 4, record_bytes{}.i4({value}).data);
  return framed(file);
}

TEST(QVAMRD, fills_the_run_header_from_hand_written_bytes) {
  const reading r(framed(small_modinf(all_parts)));
  const model_records& m = r.m;
  ASSERT_EQ(r.ierr, 0);
  EXPECT_EQ(r.run.text(), "");
  EXPECT_EQ(m.qv_version, "6");
  EXPECT_EQ(m.qv_release, "5.6");
  EXPECT_EQ(cells(m.run_stamp), (row{20, 11, 2026, 23, 14, 5}));
  EXPECT_EQ(r.run.report.run_stamp, m.run_stamp);
  EXPECT_EQ(m.mi_text[0], padded("gibbs.dir", 200));
  EXPECT_EQ(m.mi_text[1], padded("second", 200));
  EXPECT_EQ(m.mi_text[2], padded("third", 200));
  EXPECT_EQ(m.mi_text[3], padded("fourth", 200));
  EXPECT_EQ(m.mi_text[4], padded("fifth", 200));
  EXPECT_TRUE(m.l_residuals);
  EXPECT_FALSE(m.l_sol_samples);
  EXPECT_EQ((row{1.0 * m.carried.mi_1_6, 1.0 * m.carried.mi_1a_2, 1.0 * m.model_kind, 1.0 * m.solver_code,
                 1.0 * m.sol_layout, 1.0 * m.test_level, m.carried.mi_2_5}),
            (row{16, 12, 2, 20, 1, 3, 2.5}));
  EXPECT_EQ(cells(m.data_dims), (row{41, 42, 6, 44}));
  EXPECT_EQ(m.nobs(), 6);
  EXPECT_TRUE(m.keeps_residuals());
  EXPECT_EQ(m.carried.mi_2_7, 27);
  EXPECT_TRUE(m.carried.mi_2_8);
  EXPECT_EQ((row{1.0 * m.carried.mme_elems, 1.0 * m.carried.mi_3_2, 1.0 * m.carried.mi_3_3, m.carried.mi_3_4,
                 1.0 * m.carried.mi_3_5, m.carried.mi_3_6}),
            (row{31, 32, 33, 3.4, 35, 3.6}));
  EXPECT_EQ((row{1.0 * m.nt, 1.0 * m.carried.mi_3b_2, 1.0 * m.carried.mi_3b_3, 1.0 * m.ncat,
                 1.0 * m.carried.mi_3b_5}),
            (row{1, 302, 303, 0, 305}));
  EXPECT_EQ((row{1.0 * m.carried.mi_4_1, 1.0 * m.carried.mi_4_2, 1.0 * m.carried.mi_4_3}),
            (row{401, 402, 403}));
  EXPECT_EQ(cells(m.carried.TraitIdWithWeight), (row{7}));
  EXPECT_EQ((row{1.0 * m.carried.n_abgr, 1.0 * m.carried.mi_5_2, 1.0 * m.carried.mi_5a_3,
                 1.0 * m.carried.mi_5b_1, 1.0 * m.n_cure_seq}),
            (row{2, 502, 55, 511, 9}));
  EXPECT_EQ(cells(m.carried.NABGR), (row{51, 52}));
  EXPECT_EQ(cells(m.carried.MN_ABGR), (row{53, 54}));
  EXPECT_EQ((row{1.0 * m.mnef, 1.0 * m.carried.mi_6_2, 1.0 * m.carried.mi_6_3, 1.0 * m.mxreg, 1.0 * m.nramat,
                 1.0 * m.carried.mi_33_2}),
            (row{1, 602, 603, 2, 1, 332}));
  EXPECT_EQ((row{1.0 * m.nregt, 1.0 * m.carried.mi_7_2, 1.0 * m.nfreg, 1.0 * m.carried.mi_7_4}),
            (row{2, 702, 1, 704}));
  EXPECT_EQ((row{1.0 * m.carried.mi_8_1, 1.0 * m.carried.mi_8_2, 1.0 * m.nfeq, 1.0 * m.carried.mi_9_2}),
            (row{801, 802, 7, 902}));
  EXPECT_EQ(cells(m.NLEV), (row{3}));
  EXPECT_EQ(cells(m.NRALEV), (row{4}));
  EXPECT_EQ(m.carried.mi_11_3, 1103);
  EXPECT_EQ(m.n_norcov, 0);
  EXPECT_EQ(cells(m.NORCOV), (row{161, 162}));
  EXPECT_TRUE(m.carried.mi_17a);
}

TEST(QVAMRD, fills_the_trait_from_hand_written_bytes) {
  const reading r(framed(small_modinf(all_parts)));
  ASSERT_EQ(r.ierr, 0);
  ASSERT_EQ(r.m.MODEL_rows.size(), 1U);
  const trait_record& t = r.m.MODEL(1);
  EXPECT_EQ((row{1.0 * t.TRAIT_TYPE, 1.0 * t.TRAIT_INP, 1.0 * t.Y_RCI, 1.0 * t.link2, 1.0 * t.link1}),
            (row{1, 18, 1, 185, 186}));
  EXPECT_EQ(t.TRAIT_NAME, "milk    ");
  EXPECT_EQ((row{1.0 * t.carried.m18_7, 1.0 * t.carried.m18_8, 1.0 * t.carried.m18_9, 1.0 * t.carried.m18_10,
                 1.0 * t.carried.m18_11, 1.0 * t.SEQ_RCI, 1.0 * t.carried.m18_13, 1.0 * t.carried.m18_14}),
            (row{187, 188, 189, 1810, 1811, 1812, 1813, 1814}));
  EXPECT_TRUE(t.carried.m18_15);
  EXPECT_EQ((row{1.0 * t.carried.WGT_INP, 1.0 * t.WGT_FLAG, 1.0 * t.WGT_RCI, 1.0 * t.MIX_EQ_TYPE,
                 1.0 * t.carried.m19_7, 1.0 * t.carried.m19_9}),
            (row{191, 1, 4, 1, 197, 199}));
  EXPECT_EQ(t.carried.WGT_NAME, "weight  ");
  EXPECT_EQ(t.carried.m19_8, "carried ");
  EXPECT_TRUE(t.L_MIX_TRAIT);
  EXPECT_EQ((row{1.0 * t.carried.n_abs, 1.0 * t.n_ef, 1.0 * t.n_f, 1.0 * t.n_r, 1.0 * t.carried.m21_4,
                 1.0 * t.n_reg, 1.0 * t.carried.n_tms}),
            (row{2, 2, 1, 1, 214, 2, 3}));
  EXPECT_EQ((row{1.0 * t.carried.m23_1, 1.0 * t.carried.m23_2, 1.0 * t.carried.m23_3, 1.0 * t.carried.m23_4,
                 1.0 * t.carried.m24_1, 1.0 * t.carried.m24_2}),
            (row{231, 232, 233, 234, 241, 242}));
  EXPECT_EQ(cells(t.carried.A_EF_INP), (row{251, 252}));
  EXPECT_EQ(t.carried.A_EF_NAME.cells, (names{"herd    ", "barn    "}));
  EXPECT_EQ(cells(t.carried.A_EF_RCI), (row{253, 254}));
  EXPECT_EQ(cells(t.EF_INP), (row{261, 262}));
  EXPECT_EQ(cells(t.carried.EF_RCI), (row{263, 264}));
  EXPECT_EQ(cells(t.carried.REDUCE), (row{265, 266}));
  EXPECT_EQ(cells(t.INTERCEPT), (row{1, 0}));
  EXPECT_EQ(cells(t.carried.F_INTERCEPT), (row{0}));
  EXPECT_EQ(cells(t.carried.R_INTERCEPT), (row{1}));
  EXPECT_EQ(cells(t.carried.EF_COEFF), (row{2.25, 2.5}));
  EXPECT_EQ(cells(t.carried.F_EF_COEFF), (row{2.75}));
  EXPECT_EQ(cells(t.carried.R_EF_COEFF), (row{3.25}));
  EXPECT_EQ(cells(t.carried.MERGE_PREV), (row{1}));
  EXPECT_EQ(cells(t.f_ef_inp), (row{271}));
  EXPECT_EQ(t.F_EF_NAME.cells, (names{"sex     "}));
  EXPECT_EQ(cells(t.f_ef_rci), (row{2}));
  EXPECT_EQ(cells(t.r_ef_inp), (row{281}));
  EXPECT_EQ(t.carried.R_EF_NAME.cells, (names{"animal  "}));
  EXPECT_EQ(cells(t.r_ef_rci), (row{3}));
  EXPECT_EQ(cells(t.r_ef_matno), (row{1}));
  EXPECT_EQ(cells(t.carried.ass_rf), (row{321}));
  EXPECT_TRUE(t.carried.m33_1);
  EXPECT_EQ((row{t.carried.m33_2, 1.0 * t.carried.m33_3, 1.0 * t.carried.m33_4}), (row{33.5, 333, 334}));
  EXPECT_EQ(t.carried.m34[0], padded("one", 256));
  EXPECT_EQ(t.carried.m34[6], padded("seven", 256));
  EXPECT_TRUE(t.L_CENS);
  EXPECT_EQ((row{1.0 * t.carried.CENS_INP, 1.0 * t.CENS_RCI, 1.0 * t.carried.UPPER_INP, 1.0 * t.UPPER_RCI}),
            (row{341, 3, 343, 2}));
}

TEST(QVAMRD, fills_the_regressions_from_hand_written_bytes) {
  const reading r(framed(small_modinf()));
  ASSERT_EQ(r.ierr, 0);
  const trait_record& t = r.m.MODEL(1);
  EXPECT_EQ(cells(t.REG_TYPE), (row{0, 1}));
  EXPECT_EQ(cells(t.REG_INP), (row{291, 292}));
  EXPECT_EQ(cells(t.REG_MIXTURE), (row{0, 1}));
  EXPECT_EQ(t.REG_NAME.cells, (names{"age     ", "days    "}));
  EXPECT_EQ(cells(t.REG_RCI), (row{2, 3}));
  EXPECT_EQ(cells(t.carried.n_times), (row{293, 294, 295}));
  EXPECT_EQ(cells(t.carried.REG_N_INP), (row{301, 302}));
  EXPECT_EQ(t.carried.REG_NAME_N.cells, (names{std::string(18, ' '), "sex of the animal "}));
  EXPECT_EQ(cells(t.REG_N_RCI), (row{305, 1}));
  EXPECT_EQ(cells(t.REG_N_EF_INP), (row{306, 1}));
  EXPECT_EQ(cells(t.REG_R_MATNO), (row{0, 1}));
  EXPECT_EQ(cells(t.carried.REG_N_LEVEL), (row{311, 312}));
}

TEST(QVAMRD, fills_a_factor_from_hand_written_bytes) {
  const reading r(framed(small_modinf(all_parts)));
  ASSERT_EQ(r.ierr, 0);
  ASSERT_EQ(r.m.RMAT_rows.size(), 2U);
  const structure_record& s = r.m.RMAT(1);
  EXPECT_EQ((row{1.0 * s.n_cont, 1.0 * s.n_rc, 1.0 * s.n_t, 1.0 * s.n_rid, 1.0 * s.carried.n_reff}),
            (row{3, 2, 2, 2, 2}));
  EXPECT_EQ(s.CV_STRUCT, "PED         ");
  EXPECT_TRUE(structure_is(s, "PED"));
  EXPECT_EQ((row{1.0 * s.r36, 1.0 * s.QTL_FACTOR, 1.0 * s.n_phg}), (row{36, 37, 2}));
  EXPECT_TRUE(s.L_RAM);
  EXPECT_EQ(s.carried.r48, (std::array<std::int64_t, 3>{5000000481, 482, 483}));
  EXPECT_EQ(s.carried.r72, (std::array<std::int64_t, 2>{-721, 722}));
  EXPECT_EQ(cells(s.carried.PHG_LIST), (row{3401, 3402, 3403, 3404}));
  EXPECT_EQ(s.carried.PHG_LIST(1, 2), 3403);
  EXPECT_TRUE(s.r216);
  EXPECT_EQ((row{s.carried.r192, 1.0 * s.carried.r236, s.carried.r200, 1.0 * s.carried.r860}),
            (row{1.92, 236, 2.125, 860}));
  EXPECT_EQ(s.carried.r240, padded("r240", 200));
  EXPECT_EQ((std::vector<bool>{s.carried.r232, s.carried.r864, s.carried.r5288, s.carried.r2456}),
            (std::vector<bool>{true, true, false, true}));
  EXPECT_EQ(cells(s.TRAIT_NO), (row{1, 1}));
  EXPECT_EQ(cells(s.TRAIT_INP), (row{363, 364}));
  EXPECT_EQ(cells(s.CONT_POS), (row{1, 2, 1}));
  EXPECT_EQ(cells(s.CONT_RC), (row{1, 1, 2}));
  EXPECT_EQ(cells(s.CONT_T_NO), (row{1, 1, 1}));
  EXPECT_EQ(cells(s.CONT_LC), (row{0, 0, 1}));
  EXPECT_EQ(cells(s.carried.CONT_T_INP), (row{3601, 3602, 3603}));
  EXPECT_EQ(cells(s.carried.CONT_T_RCI), (row{3604, 3605, 3606}));
  EXPECT_EQ(cells(s.carried.CONT_EFF), (row{3607, 3608, 3609}));
  EXPECT_EQ(cells(s.carried.CONT_EFF_INP), (row{3610, 3611, 3612}));
  EXPECT_EQ(cells(s.CONT_EFF_RCI), (row{3, 4, 5}));
  EXPECT_EQ(cells(s.carried.CONT_RR_INP), (row{3613, 3614, 3615}));
  EXPECT_EQ(cells(s.CONT_RR_RCI), (row{0, 3, 0}));
  EXPECT_EQ(s.carried.CONT_ID_NO.cells, (names{"id1     ", "id2     ", "id3     "}));
  EXPECT_EQ(s.carried.CONT_T_NAME.cells, (names{"t1      ", "t2      ", "t3      "}));
  EXPECT_EQ(s.carried.CONT_RR_NAME.cells, (names{"rr1     ", "rr2     ", "rr3     "}));
  EXPECT_EQ(cells(s.CONT_COEFF), (row{1, 0.5, 2}));
  EXPECT_EQ(cells(s.CONT_RR_EFF), (row{0, 1, 0}));
  EXPECT_EQ(cells(s.carried.REDUCE), (row{371, 372}));
  EXPECT_EQ(cells(s.carried.R_EFF), (row{373, 374}));
  EXPECT_EQ(cells(s.carried.R_EFF_INP), (row{375, 376}));
  EXPECT_EQ(cells(s.carried.TRAIT_BLK_SIZE), (row{377, 378}));
  EXPECT_EQ(cells(s.carried.TRAIT_BLK_STAERT), (row{379, 380}));
  EXPECT_EQ(cells(s.carried.N_RR), (row{381, 382}));
  EXPECT_EQ(cells(s.carried.T_R_ID_RCI), (row{401, 402}));
  EXPECT_EQ(cells(s.carried.RANDOM_ID_INP), (row{411, 412}));
  EXPECT_EQ(cells(s.INTERCEPT), (row{1, 0}));
  EXPECT_EQ(cells(s.R_EFF_RCI), (row{3, 423}));
  EXPECT_EQ(cells(s.T_NO), (row{1, 2}));
  EXPECT_EQ(s.T_NAME.cells, (names{"milk    ", "slope   "}));
  EXPECT_EQ(cells(s.COV_MAT), (row{4, 1, 1.5, 3}));
  EXPECT_EQ(s.COV_MAT(1, 2), 1.5); // first index fastest
  EXPECT_EQ(cells(s.P_COV_MAT), (row{8, 2, 2.5, 6}));
  EXPECT_EQ(cells(s.GIF), (row{0.5, 0.125, 0.25, 0.75}));
  EXPECT_EQ(s.r3304, 1.25);
  EXPECT_EQ(cells(s.carried.L_CV_REST), (row{1, 0, 0, 0}));
  EXPECT_EQ(cells(s.carried.L_COR_REST), (row{0, 1, 0, 0}));
  EXPECT_EQ((std::vector<bool>{s.carried.r4792, s.carried.r4796, s.carried.r4872}),
            (std::vector<bool>{true, false, true}));
  EXPECT_EQ(cells(s.carried.L_VRATIO_ELEM), (row{0, 1}));
  EXPECT_EQ(cells(s.carried.P_RATIO), (row{5.5, 5.75}));
}

TEST(QVAMRD, fills_the_residual_and_the_offsets_from_hand_written_bytes) {
  const reading r(framed(small_modinf(all_parts)));
  ASSERT_EQ(r.ierr, 0);
  const structure_record& s = r.m.residual();
  EXPECT_TRUE(structure_is(s, "GROUP"));
  EXPECT_EQ((row{1.0 * s.n_cont, 1.0 * s.n_rc, 1.0 * s.n_t, 1.0 * s.n_pat, 1.0 * s.n_hetgr}),
            (row{0, 1, 1, 1, 2}));
  EXPECT_FALSE(s.CONT_POS.allocated());
  EXPECT_EQ((row{1.0 * s.carried.HETGR_INP, 1.0 * s.HETGR_RCI}), (row{481, 2}));
  EXPECT_EQ(s.carried.HETGR_NAME, "stage   ");
  EXPECT_TRUE(s.carried.r4520);
  EXPECT_TRUE(s.carried.r5288);
  EXPECT_EQ(cells(s.carried.L_RCOV_ZERO), (row{0}));
  EXPECT_EQ(cells(s.carried.ISIT), (row{0, 1}));
  EXPECT_EQ(s.carried.ISIT(1), 1);
  EXPECT_EQ(cells(s.carried.ISIT_B), (row{491, 492}));
  EXPECT_EQ(cells(s.carried.ISIT_C), (row{493, 494}));
  EXPECT_EQ(s.HETGR_CODE(2), 11);
  EXPECT_EQ(cells(s.HETG_N_OBS), (row{0, 4, 2}));
  EXPECT_EQ(s.carried.HETGR_NOBS(1, 1, 1), 5);
  EXPECT_EQ(s.HETGR_COV_MAT(2, 1, 1), 20);
  EXPECT_EQ(cells(s.carried.HETGR_L_PR), (row{0, 1, 0}));
  EXPECT_EQ(s.HETGR_RDET(1, 0), 2.25);
  EXPECT_EQ(s.HETGR_RDET(1, 1), 0.625);
  EXPECT_EQ(s.HETGR_RIIF(1, 1, 1, 1), 0.1);
  EXPECT_EQ(s.HETGR_RIIF(2, 1, 1, 1), 0.05);
  EXPECT_EQ(cells(s.carried.P_RATIO), (row{6.5}));

  const model_records& m = r.m;
  EXPECT_EQ(cells(m.NBEGREG), (row{0, 1}));
  EXPECT_EQ(cells(m.NBEGF), (row{4}));
  EXPECT_EQ(cells(m.NBEGRA), (row{7, 15}));
  EXPECT_EQ(cells(m.carried.NBEGRAT), (row{7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(m.carried.NBEGRAT(3, 1), 9);
  EXPECT_EQ(m.SPRE(1), 1.5);
  EXPECT_EQ(m.carried.H2(1), 0.25);
  EXPECT_EQ((row{1.0 * m.carried.mi_58_1, m.carried.mi_58_2, 1.0 * m.iv_50, 1.0 * m.n_real}),
            (row{581, 5.8, 6, 4}));
  EXPECT_TRUE(m.L_TD);
  EXPECT_FALSE(m.L_PTD);
  EXPECT_EQ(m.carried.TD_TYPE, "AB  ");
  EXPECT_EQ((row{1.0 * m.TD_FACTOR, 1.0 * m.PTD_INT, 1.0 * m.PTD_LIMIT, 1.0 * m.n_sol_cv}),
            (row{1, 605, 606, 2}));
  EXPECT_EQ(cells(m.SOL_CV_EQ_NO), (row{8, 9}));
  EXPECT_TRUE(m.has_type(trait_gaussian));
  EXPECT_FALSE(m.has_type(trait_mixture));
  EXPECT_TRUE(m.has_weights());
}

// Every combination of the parts that come and go.
TEST(write_modinf, gives_the_hand_written_bytes) {
  for (const bool optional_parts : {false, true})
    for (const bool regressions : {false, true})
      for (const bool factor : {false, true}) {
        const small_model_form form{optional_parts, regressions, factor};
        heard_run run;
        const model_records m = small_model(run.report, form);
        EXPECT_TRUE(written(m) == framed(small_modinf(form))) << optional_parts << regressions << factor;
        const reading r(framed(small_modinf(form)));
        EXPECT_EQ(r.ierr, 0);
        EXPECT_EQ(r.run.text(), "");
        EXPECT_TRUE(written(r.m) == framed(small_modinf(form))) << optional_parts << regressions << factor;
      }
}

TEST(write_modinf, names_the_first_thing_that_does_not_fit) {
  scratch_directory directory;
  const auto fault_of = [&](auto&& damage, std::string file = "MODINF") {
    heard_run run;
    model_records m = small_model(run.report, all_parts);
    damage(m);
    std::string fault;
    EXPECT_FALSE(write_modinf(m, directory / file, fault));
    EXPECT_EQ(run.text(), "");
    return fault;
  };
  EXPECT_EQ(fault_of([](model_records& m) { m.NLEV.take(1, 2); }), "NLEV");
  EXPECT_EQ(fault_of([](model_records& m) { m.MODEL(1).REG_RCI.release(); }), "MODEL(:)%REG_RCI");
  EXPECT_EQ(fault_of([](model_records& m) { m.MODEL(1).REG_NAME.cells.pop_back(); }), "MODEL(:)%REG_NAME");
  EXPECT_EQ(fault_of([](model_records& m) { m.residual().carried.ISIT.take(2); }),
            "rmat(k)%isit"); // 1.. for 0..
  EXPECT_EQ(fault_of([](model_records& m) { m.RMAT_rows.pop_back(); }), "RMAT");
  EXPECT_EQ(fault_of([](model_records& m) { m.MODEL_rows.clear(); }), "MODEL");
  EXPECT_EQ(fault_of([](model_records& m) { m.nt = 0; }), "nt");
  EXPECT_EQ(fault_of([](model_records& m) { m.MODEL(1).n_f = 2; }), "MODEL%n_f");
  EXPECT_EQ(fault_of([](model_records&) {}, "no/such/folder"), "write");
}

TEST(QVAMRD, reads_the_prepared_directories_whole) {
  const std::string directories = shared_folder("data/workdirs");
  if (directories.empty()) GTEST_SKIP() << no_shared;
  int n = 0;
  for (const auto& entry : std::filesystem::directory_iterator(directories)) {
    if (!entry.is_directory()) continue;
    heard_run run(entry.path().string() + "/");
    model_records m;
    EXPECT_EQ(QVAMRD(m, run.report), 0) << entry.path();
    EXPECT_EQ(run.text(), "") << entry.path();
    // the same bytes: nothing of the file was left over, nothing was read twice
    EXPECT_TRUE(written(m) == bytes_of(entry.path().string() + "/MODINF")) << entry.path();
    ++n;
  }
  EXPECT_GT(n, 0);
}

TEST(QVAMRD, leaves_out_the_records_of_empty_lists) {
  small_model_form form{false, false, true};
  const reading r(framed(small_modinf(form)));
  EXPECT_EQ(r.ierr, 0);
  EXPECT_EQ(r.m.carried.NABGR.size(), 0);
  EXPECT_EQ(r.m.MODEL(1).carried.A_EF_RCI.size(), 0);
  EXPECT_EQ(r.m.MODEL(1).REG_TYPE.size(), 0);
  EXPECT_EQ(cells(r.m.MODEL(1).carried.n_times), (row{0, 0, 0})); // is in record 29
  EXPECT_EQ(r.m.RMAT(1).carried.PHG_LIST.size(), 0);
  EXPECT_EQ(r.m.n_sol_cv, -1);
  EXPECT_FALSE(r.m.SOL_CV_EQ_NO.allocated());
}

TEST(QVAMRD, reads_array_records_of_length_zero) {
  // a trait without any effect still has its records 26 to 28 and 32
  modinf_bytes file = small_modinf({false, false, false});
  file[record_of(file, "21 - ios = ")].data = record_bytes{}.i4({0, 0, 0, 214}).data;
  for (const char* label : {"26 - ios = ", "27 - ios = ", "28 - ios = ", "32 - ios = "})
    file[record_of(file, label)].data.clear();
  const reading r(framed(file));
  EXPECT_EQ(r.ierr, 0);
  EXPECT_EQ(r.run.text(), "");
  EXPECT_EQ(r.m.MODEL(1).EF_INP.size(), 0);
  EXPECT_EQ(r.m.n_sol_cv, -1);
}

TEST(QVAMRD, reads_the_residual_alone_when_there_is_no_factor) {
  const reading r(framed(small_modinf({true, true, false})));
  EXPECT_EQ(r.ierr, 0);
  ASSERT_EQ(r.m.RMAT_rows.size(), 1U);
  EXPECT_TRUE(structure_is(r.m.RMAT(1), "GROUP"));
  EXPECT_EQ(r.m.carried.NBEGRAT.size(), 0);
  EXPECT_EQ(cells(r.m.SOL_CV_EQ_NO), (row{8, 9}));
}

TEST(structure_is, compares_an_element_never_read_as_identity) {
  const structure_record r;
  EXPECT_TRUE(structure_is(r, "I"));
  EXPECT_FALSE(structure_is(r, "PED"));
}

TEST(QVAMRD, refuses_another_version_or_release) {
  const auto refused = [](const std::string& version, const std::string& release) {
    modinf_bytes file = small_modinf();
    file[0].data.replace(0, 4, version + release);
    const reading r(framed(file));
    EXPECT_EQ(r.ierr, 1);
    EXPECT_EQ(r.m.nt, 0); // nothing else was read
    EXPECT_EQ(r.run.text(),
              " \n"
              "The file with model information (MODINF)  has not been created by the version of QVA1\n"
              "corresponding to the version of this program\n"
              "Version of qva1    :  " +
                  version + "\nRelease of qva1    :  " + release +
                  "\nVersion of  ZEPH     :  6\n"
                  "Release of  ZEPH     :  5.6\n"
                  " \n"
                  "Rerun qva1 with the right version\n");
  };
  refused("6", "5.5");
  refused("5", "5.6");
  refused("7", "1.0");
}

TEST(QVAMRD, ends_with_status_1_wherever_the_file_ends) {
  const modinf_bytes whole = small_modinf(all_parts);
  for (std::size_t n = 0; n < whole.size(); ++n) {
    const modinf_bytes head(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(n));
    const std::string bytes = framed(head);
    const reading at_record(bytes);
    EXPECT_EQ(at_record.ierr, 1) << n;
    EXPECT_EQ(at_record.run.text(), end_texts) << n;
    // also within the record that follows: its first length, its data, its last length
    const std::string next = framed({whole[n]});
    for (const std::size_t cut : {std::size_t{2}, next.size() / 2, next.size() - 1}) {
      const reading within(bytes + next.substr(0, cut));
      EXPECT_EQ(within.ierr, 1) << n << ' ' << cut;
      EXPECT_EQ(within.run.text(), end_texts) << n << ' ' << cut;
    }
  }
}

TEST(QVAMRD, keeps_what_was_read_before_the_file_ended) {
  modinf_bytes file = small_modinf();
  file.resize(record_of(file, "7 - ios = "));
  const reading r(framed(file));
  EXPECT_EQ(r.ierr, 1);
  EXPECT_EQ(r.m.nramat, 1);
  EXPECT_EQ(r.m.nregt, 0);
  EXPECT_EQ(r.m.run_stamp[2], 2026);
}

TEST(QVAMRD, takes_a_broken_frame_for_the_end_of_the_file) {
  const modinf_bytes file = small_modinf();
  const std::string good = framed(file);
  const std::size_t eighth =
      framed({file.begin(), file.begin() + static_cast<std::ptrdiff_t>(record_of(file, "8 - ios = "))})
          .size();
  const auto expect_end = [](std::string bytes, std::size_t at, std::int32_t length) {
    bytes.replace(at, 4, record_bytes{}.i4({length}).data);
    const reading r(bytes);
    EXPECT_EQ(r.ierr, 1) << length;
    EXPECT_EQ(r.run.text(), end_texts) << length;
    EXPECT_EQ(r.m.nfreg, 1);
    EXPECT_EQ(r.m.nfeq, 0);
  };
  expect_end(good, eighth, -8);      // negative
  expect_end(good, eighth, 1 << 30); // beyond the end of the file
  expect_end(good, eighth, 9);       // ends elsewhere
  expect_end(good, eighth + 12, 7);  // the second length differs
}

// Every record but those whose last item says which records follow.
TEST(QVAMRD, reports_the_code_of_a_short_record_and_continues) {
  const modinf_bytes whole = small_modinf(all_parts);
  const std::size_t l_cens = record_of(whole, "33 - ios = ", 2) - 2;
  const std::size_t n_phg = record_of(whole, "34a - ios = ") - 1;
  const std::vector<std::size_t> deciding = {record_of(whole, "6 - ios = "), record_of(whole, "20 - ios = "),
                                             l_cens, n_phg, record_of(whole, "61 - ios = ")};
  int silent = 0;
  for (std::size_t n = 1; n < whole.size(); ++n) {
    if (std::find(deciding.begin(), deciding.end(), n) != deciding.end()) continue;
    modinf_bytes file = whole;
    file[n].data.pop_back();
    const reading r(framed(file));
    EXPECT_EQ(r.ierr, 0) << n;
    EXPECT_EQ(r.run.text(), file[n].label.empty() ? "" : short_text(file[n].label)) << n;
    EXPECT_EQ(r.m.SOL_CV_EQ_NO(1), 8) << n;
    silent += file[n].label.empty();
  }
  EXPECT_EQ(silent, 12); // 2 and 7 of the trait, its censoring, kind and contributions of the structures
}

TEST(QVAMRD, keeps_zero_for_the_items_that_a_short_record_lacks) {
  modinf_bytes file = small_modinf();
  file[record_of(file, "9 - ios = ")].data.resize(4);
  file[record_of(file, "45 - ios = ")].data.resize(8 * 6 + 3);
  const reading r(framed(file));
  EXPECT_EQ(r.ierr, 0);
  EXPECT_EQ(r.run.text(), short_text("9 - ios = ") + short_text("45 - ios = "));
  EXPECT_EQ(r.m.nfeq, 7);
  EXPECT_EQ(r.m.carried.mi_9_2, 0);
  EXPECT_EQ(cells(r.m.RMAT(1).COV_MAT), (row{4, 1, 1.5, 3}));
  EXPECT_EQ(cells(r.m.RMAT(1).P_COV_MAT), (row{8, 2, 0, 0}));
  EXPECT_EQ(r.m.RMAT(1).GIF(1, 1), 0.5);
}

TEST(QVAMRD, drops_what_a_record_holds_beyond_its_items) {
  modinf_bytes file = small_modinf(all_parts);
  for (record_bytes& record : file) record.data += "more";
  const reading r(framed(file));
  EXPECT_EQ(r.ierr, 0);
  EXPECT_EQ(r.run.text(), "");
  EXPECT_TRUE(written(r.m) == framed(small_modinf(all_parts)));
}

struct illegal_size {
  const char* label;
  int n;
  std::size_t offset;
  std::int32_t value;
  const char* item;
  const char* rule;
};

// One size damaged per case. Offsets count the bytes of the record's items.
TEST(QVAMRD, stops_at_an_illegal_size) {
  const illegal_size cases[] = {
      {"2 - ios = ", 1, 28, -1, "nobs", ">= 0"},
      {"3 - ios = ", 2, 0, 0, "nt", "1..20"},
      {"3 - ios = ", 2, 0, 21, "nt", "1..20"},
      {"5 - ios = ", 1, 0, -2, "n_abgr", ">= 0"},
      {"5a - ios = ", 2, 4, -1, "n_cure_seq", ">= 0"},
      {"6 - ios = ", 1, 0, -1, "mnef", ">= 0"},
      {"6 - ios = ", 1, 12, -1, "mxreg", ">= 0"},
      {"33 - ios = ", 1, 0, -1, "nramat", ">= 0"},
      {"33 - ios = ", 1, 0, INT32_MAX, "nramat", ">= 0"},
      {"7 - ios = ", 1, 0, -5, "nregt", ">= 0"},
      {"7 - ios = ", 1, 8, -5, "nfreg", ">= 0"},
      {"9 - ios = ", 1, 0, -7, "nfeq", ">= 0"},
      {"11 - ios = ", 1, 0, -3, "NLEV(1,1)", ">= 0"},
      {"11 - ios = ", 1, 4, -4, "NRALEV(1)", ">= 0"},
      {"15 - ios = ", 1, 0, 2, "n_norcov", "0..1"},
      {"15 - ios = ", 1, 0, -1, "n_norcov", "0..1"},
      {"20 - ios = ", 1, 0, -1, "MODEL%n_abs(1)", ">= 0"},
      {"21 - ios = ", 1, 0, -1, "MODEL%n_ef(1)", ">= 0"},
      {"21 - ios = ", 1, 4, 2, "MODEL%n_f(1)", "0..1"}, // above mnef
      {"21 - ios = ", 1, 4, -1, "MODEL%n_f(1)", "0..1"},
      {"21 - ios = ", 1, 8, -1, "MODEL%n_r(1)", ">= 0"},
      {"22 - ios = ", 1, 0, 3, "MODEL%n_reg(1)", "0..2"}, // above mxreg
      {"22 - ios = ", 1, 0, -1, "MODEL%n_reg(1)", "0..2"},
      {"22 - ios = ", 1, 4, -1, "MODEL%n_tms(1)", ">= 0"},
      {"33 - ios = ", 2, 0, -1, "RMAT%n_cont(1)", ">= 0"},
      {"33 - ios = ", 2, 4, 0, "RMAT%n_rc(1)", ">= 1"},
      {"33 - ios = ", 2, 8, -1, "RMAT%n_t(1)", ">= 0"},
      {"33 - ios = ", 2, 12, -1, "RMAT%n_rid(1)", ">= 0"},
      {"33 - ios = ", 2, 16, -1, "RMAT%n_reff(1)", ">= 0"},
      {"33 - ios = ", 3, 4, 2, "RMAT%n_rc(2)", "1"}, // residual: the number of traits
      {"47 - ios = ", 1, 4, -1, "RMAT%n_pat(2)", ">= 0"},
      {"48 - ios = ", 1, 16, -1, "RMAT%n_hetgr(2)", ">= 0"},
      {"59 - ios = ", 1, 0, 2, "iv_50", ">= 3"},
      {"59 - ios = ", 1, 4, -1, "n_real", ">= 0"},
  };
  for (const illegal_size& c : cases)
    EXPECT_EQ(expect_stopped_reading(with_integer(small_modinf(all_parts), c.label, c.n, c.offset, c.value)),
              illegal_input_text("MODINF", c.item, std::to_string(c.value), c.rule));
}

TEST(QVAMRD, stops_at_an_illegal_number_of_parent_groups) {
  // n_phg ends the record after the factor's sizes
  modinf_bytes file = small_modinf();
  std::string& data = file[record_of(file, "33 - ios = ", 2) + 1].data;
  data.replace(data.size() - 4, 4, record_bytes{}.i4({-2}).data);
  EXPECT_EQ(expect_stopped_reading(framed(file)),
            illegal_input_text("MODINF", "RMAT%n_phg(1)", "-2", ">= 0"));
}

TEST(QVAMRD, bounds_the_class_effects_of_a_trait_by_all_its_effects) {
  modinf_bytes file = small_modinf();
  file[record_of(file, "21 - ios = ")].data.replace(0, 4, record_bytes{}.i4({0}).data);
  EXPECT_EQ(expect_stopped_reading(framed(file)), illegal_input_text("MODINF", "MODEL%n_f(1)", "1", "0"));
}

TEST(QVAMRD, reports_sizes_whose_product_is_beyond_storage) {
  // 2147483647 x 2147483647 reals of 8 bytes can't be had
  const std::string bytes = with_integer(small_modinf(), "33 - ios = ", 2, 4, INT32_MAX);
  EXPECT_EQ(expect_stopped_reading(bytes),
            allocation_text("rmat(k)%cov_mat", "4611686014132420609", "RMAT_ALLOC5"));
}

struct allocation {
  const char* variable;
  const char* routine;
};

// The allocations of the reader in their order, by the file with all its parts.
const std::vector<allocation>& allocations() {
  static const std::vector<allocation> all = [] {
    std::vector<allocation> list = {{"TraitIdWithWeight", "qvamrd"},
                                    {"NABGR", "qvamrd"},
                                    {"MN_ABGR", "qvamrd"},
                                    {"NLEV", "QVAMRD"},
                                    {"NORCOV", "QVAMRD"},
                                    {"SPRE", "QVAMDR"},
                                    {"H2", "QVAMDR"},
                                    {"NRALEV", "QVAMRD"},
                                    {"MODEL", "QVAMDR"}};
    for (const char* variable :
         {"MODEL%A_EF_INP",        "MODEL%A_EF_RCI",       "MODEL%A_EF_RCI",       "MODEL(:)%EF_INP",
          "MODEL(:)%EF_RCI",       "MODEL(:)%REDUCE",      "MODEL(:)%INTERCEPT",   "MODEL(:)%F_INTERCEPT",
          "MODEL(:)%R_INTERCEPT",  "MODEL(:)%EF_COEFF",    "MODEL(:)%F_EF_COEFF",  "MODEL(:)%R_EF_COEFF",
          "MODEL(:)%MERGE_PREV",   "MODEL(:)%f_ef_inp",    "MODEL(:)%F_EF_NAME",   "MODEL(:)%f_ef_rci",
          "MODEL(:)%r_ef_inp",     "MODEL(:)%R_EF_NAME",   "MODEL(:)%r_ef_rci",    "MODEL(:)%REG_TYPE",
          "MODEL(:)%REG_INP",      "MODEL(:)%REG_MIXTURE", "MODEL(:)%REG_NAME",    "MODEL(:)%REG_RCI",
          "MODEL(:)%n_times",      "MODEL(:)%REG_N_INP",   "MODEL(:)%REG_NAME_N",  "MODEL(:)%REG_N_RCI",
          "MODEL(:)%REG_N_EF_INP", "MODEL(:)%REG_R_MATNO", "MODEL(:)%REG_N_LEVEL", "MODEL(:)%r_ef_matno",
          "MODEL(:)%ass_rf"})
      list.push_back({variable, "QVAINT"});
    list.push_back({"RMAT", "QVAMRD"});
    list.push_back({"rmat(k)%phg_list", "QVAMRD"});
    const std::vector<allocation> step1 = {
        {"rmat(k)%trait_no", "RMAT_ALLOC1"},        {"rmat(k)%trait_inp", "RMAT_ALLOC1"},
        {"rmat(k)%r_eff", "RMAT_ALLOC1"},           {"rmat(k)%r_eff_inp", "RMAT_ALLOC1"},
        {"rmat(k)%t_r_id_rci", "RMAT_ALLOC1"},      {"rmat(k)%n_rr", "RMAT_ALLOC1"},
        {"rmat(k)%reduce", "RMAT_ALLOC1"},          {"rmat(k)%trait_blk_size", "RMAT_ALLOC1"},
        {"rmat(k)%trait_blk_staert", "RMAT_ALLOC1"}};
    const std::vector<allocation> steps2to5 = {
        {"rmat(k)%random_id_inp", "RMAT_ALLOC2"}, {"rmat(k)%intercept", "RMAT_ALLOC2"},
        {"rmat(k)%r_eff_rci", "RMAT_ALLOC2"},     {"rmat(k)%t_no", "RMAT_ALLOC4"},
        {"rmat(k)%t_name", "RMAT_ALLOC4"},        {"rmat(k)%cov_mat", "RMAT_ALLOC5"},
        {"rmat(k)%gif", "RMAT_ALLOC5"},           {"rmat(k)%p_cov_mat", "RMAT_ALLOC5"},
        {"rmat(k)%l_cv_rest", "RMAT_ALLOC5"},     {"rmat(k)%l_cor_rest", "RMAT_ALLOC5"},
        {"rmat(k)%l_vratio_elem", "RMAT_ALLOC5"}, {"rmat(k)%p_ratio", "RMAT_ALLOC5"}};
    const std::vector<allocation> steps6and7 = {
        {"rmat(k)%l_rcov_zero", "RMAT_ALLOC6"},   {"rmat(k)%isit", "RMAT_ALLOC7"},
        {"rmat(k)%isit_b", "RMAT_ALLOC7"},        {"rmat(k)%isit_c", "RMAT_ALLOC7"},
        {"rmat(k)%hetgr_code", "RMAT_ALLOC7"},    {"rmat(k)%hetg_n_obs", "RMAT_ALLOC7"},
        {"rmat(k)%hetgr_nobs", "RMAT_ALLOC7"},    {"rmat(k)%hetgr_l_pr", "RMAT_ALLOC7"},
        {"rmat(k)%hetgr_cov_mat", "RMAT_ALLOC7"}, {"rmat(k)%hetgr_riif", "RMAT_ALLOC7"},
        {"rmat(k)%hetgr_rdet", "RMAT_ALLOC7"}};
    const auto add = [&](const std::vector<allocation>& part) {
      list.insert(list.end(), part.begin(), part.end());
    };
    add(step1);
    for (const char* variable :
         {"rmat(k)%cont_pos", "rmat(k)%cont_rc", "rmat(k)%cont_t_no", "rmat(k)%cont_lc", "rmat(k)%cont_t_inp",
          "rmat(k)%cont_t_rci", "rmat(k)%cont_eff", "rmat(k)%cont_eff_inp", "rmat(k)%cont_eff_rci",
          "rmat(k)%cont_rr_inp", "rmat(k)%cont_rr_rci", "rmat(k)%cont_id_no", "rmat(k)%cont_t_name",
          "rmat(k)%cont_rr_name", "rmat(k)%cont_coeff", "rmat(k)%cont_rr_eff"})
      list.push_back({variable, "RMAT_ALLOC2A"});
    add(steps2to5);
    add(step1);
    add(steps2to5);
    add(steps6and7);
    add({{"NBEGREG", "QVAMRD"}, {"NBEGRA", "QVAMRD"}, {"NBEGRAT", "QVAMRD"}, {"NBEGF", "QVAMRD"}});
    list.push_back({"SOL_CV%EQ_NO", "QVAMRD"});
    return list;
  }();
  return all;
}

TEST(QVAMRD, reports_every_allocation_that_fails) {
  const std::string bytes = framed(small_modinf(all_parts));
  const reading whole(bytes);
  ASSERT_EQ(whole.run.report.door.calls, static_cast<std::int64_t>(allocations().size()));
  for (std::size_t n = 1; n <= allocations().size(); ++n) {
    const allocation& a = allocations()[n - 1];
    const std::string text = expect_stopped_reading(bytes, static_cast<std::int64_t>(n));
    // the row of the element count is between the two names
    const std::string head =
        std::string("\nZEPH: FATAL ERROR\n\nTrying to allocate memory for:  ") + a.variable + "\n";
    const std::string tail = std::string("Called in                    :  ") + a.routine +
                             "\n\nProgram terminates with exit code 16\n";
    EXPECT_EQ(text.substr(0, head.size()), head) << n;
    EXPECT_EQ(text.substr(text.size() - std::min(text.size(), tail.size())), tail) << n;
  }
}

TEST(QVAMRD, reports_the_elements_of_a_failed_allocation) {
  const std::string bytes = framed(small_modinf(all_parts));
  EXPECT_EQ(expect_stopped_reading(bytes, 2), allocation_text("NABGR", "2", "qvamrd"));
  const auto at = std::find_if(allocations().begin(), allocations().end(), [](const allocation& a) {
    return std::string(a.variable) == "rmat(k)%hetgr_riif";
  });
  // 3 groups (0..2) x 2 patterns (0..1) x 1 x 1
  EXPECT_EQ(expect_stopped_reading(bytes, at - allocations().begin() + 1),
            allocation_text("rmat(k)%hetgr_riif", "6", "RMAT_ALLOC7"));
}

TEST(QVAMRD, refuses_a_file_that_can_not_be_opened) {
  scratch_directory directory;
  heard_run run(directory.path());
  model_records m;
  EXPECT_EQ(expect_stop(exit_diagnosed, run, [&](reporting& report) { QVAMRD(m, report); }),
            illegal_input_text("MODINF", "open", "failed", "the file can be opened and read"));
}

} // namespace
