// A small model twice: the bytes of its MODINF, put together by hand from the
// table of docs/files.md, and the records that these bytes encode. Neither
// uses the list of items that the reader and the writer walk.
//
// One trait with one class effect, a plain and a nested regression; one random
// factor of order 2 with three contributions; a residual with two groups and
// one pattern. Equations: 1 plain, 2-4 nested, 5-7 class effect, 8-15 factor.
// Nearly every carried item has a value of its own.
#pragma once

#include "input/model_information.h"
#include "input/model_records.h"

#include <bit>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace zeph_test {

// Parts of the file that come and go with a size.
struct small_model_form {
  bool optional_parts = false; // n_abgr, n_abs, n_phg = 2, n_sol_cv = 2, L_CENS
  bool regressions = true;
  bool factor = true;
};

// The data of one record; bytes are put least significant first.
struct record_bytes {
  std::string label; // text before the code in the message of a failed read
  std::string data;

  record_bytes& bits(std::uint64_t x, int n) {
    for (int b = 0; b < n; ++b) data += static_cast<char>((x >> (8 * b)) & 0xff);
    return *this;
  }
  record_bytes& i4(std::initializer_list<std::int32_t> x) {
    for (const std::int32_t v : x) bits(static_cast<std::uint32_t>(v), 4);
    return *this;
  }
  record_bytes& i8(std::initializer_list<std::int64_t> x) {
    for (const std::int64_t v : x) bits(static_cast<std::uint64_t>(v), 8);
    return *this;
  }
  record_bytes& l4(std::initializer_list<int> x) {
    for (const int v : x) bits(static_cast<std::uint32_t>(v), 4);
    return *this;
  }
  record_bytes& r4(std::initializer_list<float> x) {
    for (const float v : x) bits(std::bit_cast<std::uint32_t>(v), 4);
    return *this;
  }
  record_bytes& r8(std::initializer_list<double> x) {
    for (const double v : x) bits(std::bit_cast<std::uint64_t>(v), 8);
    return *this;
  }
  record_bytes& c(std::size_t width, const std::string& x) {
    data += x + std::string(width - x.size(), ' ');
    return *this;
  }
};

using modinf_bytes = std::vector<record_bytes>;

// Every record between its two lengths.
inline std::string framed(const modinf_bytes& records) {
  std::string file;
  for (const record_bytes& r : records) {
    const std::string length = record_bytes{}.bits(r.data.size(), 4).data;
    file += length + r.data + length;
  }
  return file;
}

inline void put_header(modinf_bytes& f, const small_model_form& form) {
  const auto rec = [&](const char* label) -> record_bytes& {
    return f.emplace_back(record_bytes{label, {}});
  };
  rec("0 - ios = ").c(1, "6").c(3, "5.6").i4({20, 11, 2026, 23, 14, 5});
  rec("1 - ios = ")
      .c(200, "gibbs.dir")
      .c(200, "second")
      .c(200, "third")
      .c(200, "fourth")
      .c(200, "fifth")
      .i4({16});
  rec("1a - ios = ").l4({1}).i4({12}).l4({0});
  rec("2 - ios = ").i4({2, 20, 1, 3}).r4({2.5F}).i4({41, 42, 6, 44}).i4({27}).l4({1});
  rec("3 - ios = ").i4({31, 32, 33}).r8({3.4}).i4({35}).r8({3.6});
  rec("3 - ios = ").i4({1, 302, 303, 0, 305});
  rec("4 - ios = ").i4({401, 402, 403}).i4({7});
  rec("5 - ios = ").i4({form.optional_parts ? 2 : 0, 502});
  if (form.optional_parts) rec("5a - ios = ").i4({51, 52}).i4({53, 54}).i4({55});
  rec("5a - ios = ").i4({511, 9});
  rec("6 - ios = ").i4({1, 602, 603, 2});
  rec("33 - ios = ").i4({form.factor ? 1 : 0, 332});
  rec("7 - ios = ").i4({2, 702, 1, 704});
  rec("8 - ios = ").i4({801, 802});
  rec("9 - ios = ").i4({7, 902});
  record_bytes& levels = rec("11 - ios = ").i4({3});
  if (form.factor) levels.i4({4});
  levels.i4({1103});
  rec("15 - ios = ").i4({0});
  rec("16 - ios = ").i4({161, 162});
  rec("17a - ios = ").l4({1});
}

inline void put_trait(modinf_bytes& f, const small_model_form& form) {
  const auto rec = [&](const char* label) -> record_bytes& {
    return f.emplace_back(record_bytes{label, {}});
  };
  rec("18 - ios = ")
      .i4({1, 18})
      .c(8, "milk")
      .i4({1, 185, 186})
      .i4({187, 188, 189, 1810})
      .i4({1811, 1812, 1813, 1814})
      .l4({1});
  rec("19 - ios = ").i4({191, 1}).c(8, "weight").i4({4}).l4({1}).i4({1, 197}).c(8, "carried").i4({199});
  rec("20 - ios = ").i4({form.optional_parts ? 2 : 0});
  rec("21 - ios = ").i4({2, 1, 1, 214});
  rec("22 - ios = ").i4({form.regressions ? 2 : 0, 3});
  rec("23 - ios = ").i4({231, 232, 233, 234});
  rec("24 - ios = ").i4({241, 242});
  if (form.optional_parts) rec("25 - ios = ").i4({251, 252}).c(8, "herd").c(8, "barn").i4({253, 254});
  rec("26 - ios = ")
      .i4({261, 262})
      .i4({263, 264})
      .i4({265, 266})
      .l4({1, 0})
      .l4({0})
      .l4({1})
      .r4({2.25F, 2.5F})
      .r4({2.75F})
      .r4({3.25F})
      .l4({1});
  rec("27 - ios = ").i4({271}).c(8, "sex").i4({2});
  rec("28 - ios = ").i4({281}).c(8, "animal").i4({3});
  if (form.regressions) {
    rec("29 - ios = ")
        .i4({0, 1})
        .i4({291, 292})
        .l4({0, 1})
        .c(8, "age")
        .c(8, "days")
        .i4({2, 3})
        .i4({293, 294, 295});
    rec("30 - ios = ").i4({301, 302}).c(18, "").c(18, "sex of the animal").i4({305, 1}).i4({306, 1});
    rec("31 - ios = ").i4({0, 1}).i4({311, 312});
  }
  rec("32 - ios = ").i4({form.factor ? 1 : 0}).i4({321});
  rec("").l4({1});
  rec("").r4({33.5F}).i4({333, 334});
  for (const char* line : {"one", "two", "three", "four", "five", "six", "seven"}) rec("").c(256, line);
  rec("").l4({form.optional_parts ? 1 : 0});
  if (form.optional_parts) rec("").i4({341, 3, 343, 2});
}

inline void put_factor(modinf_bytes& f, const small_model_form& form) {
  const auto rec = [&](const char* label) -> record_bytes& {
    return f.emplace_back(record_bytes{label, {}});
  };
  rec("33 - ios = ").i4({3, 2, 2, 2, 2});
  rec("")
      .c(12, "PED")
      .i4({36})
      .l4({1})
      .i4({37})
      .i8({5000000481, 482, 483})
      .i8({-721, 722})
      .i4({form.optional_parts ? 2 : 0});
  if (form.optional_parts) rec("34a - ios = ").i4({3401, 3402, 3403, 3404});
  rec("34 - ios = ").l4({1}).r8({1.92}).i4({236}).c(200, "r240").r8({2.125}).l4({1});
  rec("35 - ios = ").i4({860}).l4({1}).l4({0});
  rec("36 - ios = ").i4({1, 1}).i4({363, 364});
  rec("")
      .i4({1, 2, 1})
      .i4({1, 1, 2})
      .i4({1, 1, 1})
      .l4({0, 0, 1})
      .i4({3601, 3602, 3603})
      .i4({3604, 3605, 3606})
      .i4({3607, 3608, 3609})
      .i4({3610, 3611, 3612})
      .i4({3, 4, 5})
      .i4({3613, 3614, 3615})
      .i4({0, 3, 0})
      .c(8, "id1")
      .c(8, "id2")
      .c(8, "id3")
      .c(8, "t1")
      .c(8, "t2")
      .c(8, "t3")
      .c(8, "rr1")
      .c(8, "rr2")
      .c(8, "rr3")
      .r8({1.0, 0.5, 2.0})
      .l4({0, 1, 0});
  rec("37 - ios = ").i4({371, 372}).l4({1}).i4({373, 374}).i4({375, 376}).i4({377, 378}).i4({379, 380});
  rec("38 - ios = ").i4({381, 382});
  rec("40 - ios = ").i4({401, 402});
  rec("41 - ios = ").i4({411, 412}).l4({1, 0});
  rec("42 - ios = ").i4({3, 423});
  rec("43 - ios = ").i4({1, 2});
  rec("44 - ios = ").c(8, "milk").c(8, "slope");
  rec("45 - ios = ").r8({4.0, 1.0, 1.5, 3.0}).r8({8.0, 2.0, 2.5, 6.0});
  rec("46 - ios = ").r8({0.5, 0.125, 0.25, 0.75}).r8({1.25});
  rec("52 - ios = ").l4({1, 0, 0, 0});
  rec("53 - ios = ").l4({0, 1, 0, 0});
  rec("54 - ios = ").l4({1, 0});
  rec("55 - ios = ").l4({1}).l4({0, 1}).r8({5.5, 5.75});
}

inline void put_residual(modinf_bytes& f) {
  const auto rec = [&](const char* label) -> record_bytes& {
    return f.emplace_back(record_bytes{label, {}});
  };
  rec("33 - ios = ").i4({0, 1, 1, 0, 0});
  rec("").c(12, "GROUP").i4({0}).l4({0}).i4({0}).i8({0, 0, 0}).i8({0, 0}).i4({0});
  rec("34 - ios = ").l4({0}).r8({0}).i4({0}).c(200, "").r8({0}).l4({0});
  rec("35 - ios = ").i4({0}).l4({0}).l4({1});
  rec("36 - ios = ").i4({1}).i4({18});
  rec("43 - ios = ").i4({1});
  rec("44 - ios = ").c(8, "milk");
  rec("45 - ios = ").r8({10.0}).r8({20.0});
  rec("47 - ios = ").l4({0}).i4({1});
  rec("48 - ios = ").i4({481, 2}).c(8, "stage").i4({2}).l4({1});
  rec("49 - ios = ").i4({0, 1}).i4({491, 492}).i4({493, 494});
  rec("50 - ios = ").i4({0, 7, 11}).i4({0, 4, 2}).i4({0, 5, 3}).r8({0.0, 10.0, 20.0}).l4({0, 1, 0});
  rec("51 - ios = ").r8({0.0, 2.25, 3.0, 0.5, 0.625, 0.75}).r8({0.0, 0.2, 0.3, 0.0, 0.1, 0.05});
  rec("52 - ios = ").l4({0});
  rec("53 - ios = ").l4({1});
  rec("54 - ios = ").l4({0, 1});
  rec("55 - ios = ").l4({0}).l4({1}).r8({6.5});
}

inline void put_offsets(modinf_bytes& f, const small_model_form& form) {
  const auto rec = [&](const char* label) -> record_bytes& {
    return f.emplace_back(record_bytes{label, {}});
  };
  record_bytes& first = rec("56 - ios = ").i4({0, 1}).i4({4});
  if (form.factor)
    first.i4({7, 15}).i4({7, 8, 9, 10, 11, 12});
  else
    first.i4({7});
  rec("57 - ios = ").r8({1.5}).r8({0.25});
  rec("58 - ios = ").i4({581}).r8({5.8});
  rec("59 - ios = ").i4({6, 4});
  rec("60 - ios = ").l4({form.factor ? 1 : 0}).l4({0}).i4({1}).c(4, "AB").i4({605, 606});
  rec("61 - ios = ").i4({form.optional_parts ? 2 : -1});
  if (form.optional_parts) rec("62 - ios = ").i4({8, 9});
}

inline modinf_bytes small_modinf(const small_model_form& form = {}) {
  modinf_bytes f;
  put_header(f, form);
  put_trait(f, form);
  if (form.factor) put_factor(f, form);
  put_residual(f);
  put_offsets(f, form);
  return f;
}

// Elements in the order of the file.
template <class Array, class T> void fill(Array& x, std::initializer_list<T> values) {
  auto cell = x.begin();
  for (const T& v : values) *cell++ = static_cast<std::remove_reference_t<decltype(*cell)>>(v);
}

inline void fill_texts(zeph::text_row& row, std::initializer_list<const char*> values) {
  row.cells.assign(values.begin(), values.end());
}

inline void fill_header_sizes(zeph::model_records& m, const small_model_form& form) {
  m.qv_version = "6";
  m.qv_release = "5.6";
  m.run_stamp = {20, 11, 2026, 23, 14, 5};
  m.mi_text = {"gibbs.dir", "second", "third", "fourth", "fifth"};
  m.carried.mi_1_6 = 16;
  m.l_residuals = true;
  m.carried.mi_1a_2 = 12;
  m.model_kind = 2, m.solver_code = 20, m.sol_layout = 1, m.test_level = 3;
  m.carried.mi_2_5 = 2.5F;
  m.data_dims = {41, 42, 6, 44};
  m.carried.mi_2_7 = 27;
  m.carried.mi_2_8 = true;
  m.carried.mme_elems = 31, m.carried.mi_3_2 = 32, m.carried.mi_3_3 = 33, m.carried.mi_3_4 = 3.4,
  m.carried.mi_3_5 = 35, m.carried.mi_3_6 = 3.6;
  m.nt = 1, m.carried.mi_3b_2 = 302, m.carried.mi_3b_3 = 303, m.ncat = 0, m.carried.mi_3b_5 = 305;
  m.carried.mi_4_1 = 401, m.carried.mi_4_2 = 402, m.carried.mi_4_3 = 403;
  m.carried.n_abgr = form.optional_parts ? 2 : 0, m.carried.mi_5_2 = 502;
  m.carried.mi_5a_3 = form.optional_parts ? 55 : 0, m.carried.mi_5b_1 = 511, m.n_cure_seq = 9;
  m.mnef = 1, m.carried.mi_6_2 = 602, m.carried.mi_6_3 = 603, m.mxreg = 2;
  m.nramat = form.factor ? 1 : 0, m.carried.mi_33_2 = 332;
  m.nregt = 2, m.carried.mi_7_2 = 702, m.nfreg = 1, m.carried.mi_7_4 = 704;
  m.carried.mi_8_1 = 801, m.carried.mi_8_2 = 802, m.nfeq = 7, m.carried.mi_9_2 = 902,
  m.carried.mi_11_3 = 1103;
  m.carried.mi_17a = true;
  m.carried.mi_58_1 = 581, m.carried.mi_58_2 = 5.8, m.iv_50 = 6, m.n_real = 4;
  m.L_TD = form.factor, m.TD_FACTOR = 1, m.carried.TD_TYPE = "AB", m.PTD_INT = 605, m.PTD_LIMIT = 606;
  m.n_sol_cv = form.optional_parts ? 2 : -1;
}

inline void fill_trait_scalars(zeph::trait_record& t, const small_model_form& form) {
  t.TRAIT_TYPE = 1, t.TRAIT_INP = 18, t.TRAIT_NAME = "milk", t.Y_RCI = 1, t.link2 = 185, t.link1 = 186;
  t.carried.m18_7 = 187, t.carried.m18_8 = 188, t.carried.m18_9 = 189, t.carried.m18_10 = 1810,
  t.carried.m18_11 = 1811, t.SEQ_RCI = 1812;
  t.carried.m18_13 = 1813, t.carried.m18_14 = 1814, t.carried.m18_15 = true;
  t.carried.WGT_INP = 191, t.WGT_FLAG = 1, t.carried.WGT_NAME = "weight", t.WGT_RCI = 4, t.L_MIX_TRAIT = true;
  t.MIX_EQ_TYPE = 1, t.carried.m19_7 = 197, t.carried.m19_8 = "carried", t.carried.m19_9 = 199;
  t.carried.n_abs = form.optional_parts ? 2 : 0;
  t.n_ef = 2, t.n_f = 1, t.n_r = 1, t.carried.m21_4 = 214, t.n_reg = form.regressions ? 2 : 0,
  t.carried.n_tms = 3;
  t.carried.m23_1 = 231, t.carried.m23_2 = 232, t.carried.m23_3 = 233, t.carried.m23_4 = 234,
  t.carried.m24_1 = 241, t.carried.m24_2 = 242;
  t.carried.m33_1 = true, t.carried.m33_2 = 33.5F, t.carried.m33_3 = 333, t.carried.m33_4 = 334;
  t.carried.m34 = {"one", "two", "three", "four", "five", "six", "seven"};
  t.L_CENS = form.optional_parts;
  if (t.L_CENS) t.carried.CENS_INP = 341, t.CENS_RCI = 3, t.carried.UPPER_INP = 343, t.UPPER_RCI = 2;
}

inline void fill_trait_arrays(zeph::trait_record& t, const small_model_form& form) {
  if (form.optional_parts) {
    fill(t.carried.A_EF_INP, {251, 252}), fill(t.carried.A_EF_RCI, {253, 254});
    fill_texts(t.carried.A_EF_NAME, {"herd", "barn"});
  }
  fill(t.EF_INP, {261, 262}), fill(t.carried.EF_RCI, {263, 264}), fill(t.carried.REDUCE, {265, 266});
  fill(t.INTERCEPT, {1, 0}), fill(t.carried.F_INTERCEPT, {0}), fill(t.carried.R_INTERCEPT, {1});
  fill(t.carried.EF_COEFF, {2.25F, 2.5F}), fill(t.carried.F_EF_COEFF, {2.75F}),
      fill(t.carried.R_EF_COEFF, {3.25F});
  fill(t.carried.MERGE_PREV, {1});
  fill(t.f_ef_inp, {271}), fill_texts(t.F_EF_NAME, {"sex"}), fill(t.f_ef_rci, {2});
  fill(t.r_ef_inp, {281}), fill_texts(t.carried.R_EF_NAME, {"animal"}), fill(t.r_ef_rci, {3});
  fill(t.r_ef_matno, {form.factor ? 1 : 0}), fill(t.carried.ass_rf, {321});
  if (!form.regressions) return;
  fill(t.REG_TYPE, {0, 1}), fill(t.REG_INP, {291, 292}), fill(t.REG_MIXTURE, {0, 1});
  fill_texts(t.REG_NAME, {"age", "days"});
  fill(t.REG_RCI, {2, 3}), fill(t.carried.n_times, {293, 294, 295});
  fill(t.carried.REG_N_INP, {301, 302}), fill_texts(t.carried.REG_NAME_N, {"", "sex of the animal"});
  fill(t.REG_N_RCI, {305, 1}), fill(t.REG_N_EF_INP, {306, 1});
  fill(t.REG_R_MATNO, {0, 1}), fill(t.carried.REG_N_LEVEL, {311, 312});
}

inline void fill_factor_scalars(zeph::structure_record& r, const small_model_form& form) {
  r.n_cont = 3, r.n_rc = 2, r.n_t = 2, r.n_rid = 2, r.carried.n_reff = 2;
  r.CV_STRUCT = "PED", r.r36 = 36, r.L_RAM = true, r.QTL_FACTOR = 37;
  r.carried.r48 = {5000000481, 482, 483}, r.carried.r72 = {-721, 722};
  r.n_phg = form.optional_parts ? 2 : 0;
  r.r216 = true, r.carried.r192 = 1.92, r.carried.r236 = 236, r.carried.r240 = "r240", r.carried.r200 = 2.125,
  r.carried.r232 = true;
  r.carried.r860 = 860, r.carried.r864 = true, r.carried.r2456 = true, r.r3304 = 1.25;
  r.carried.r4792 = true, r.carried.r4872 = true;
}

inline void fill_factor_arrays(zeph::structure_record& r, const small_model_form& form) {
  if (form.optional_parts) fill(r.carried.PHG_LIST, {3401, 3402, 3403, 3404});
  fill(r.TRAIT_NO, {1, 1}), fill(r.TRAIT_INP, {363, 364});
  fill(r.CONT_POS, {1, 2, 1}), fill(r.CONT_RC, {1, 1, 2}), fill(r.CONT_T_NO, {1, 1, 1});
  fill(r.CONT_LC, {0, 0, 1}), fill(r.carried.CONT_T_INP, {3601, 3602, 3603});
  fill(r.carried.CONT_T_RCI, {3604, 3605, 3606}), fill(r.carried.CONT_EFF, {3607, 3608, 3609});
  fill(r.carried.CONT_EFF_INP, {3610, 3611, 3612}), fill(r.CONT_EFF_RCI, {3, 4, 5});
  fill(r.carried.CONT_RR_INP, {3613, 3614, 3615}), fill(r.CONT_RR_RCI, {0, 3, 0});
  fill_texts(r.carried.CONT_ID_NO, {"id1", "id2", "id3"});
  fill_texts(r.carried.CONT_T_NAME, {"t1", "t2", "t3"});
  fill_texts(r.carried.CONT_RR_NAME, {"rr1", "rr2", "rr3"});
  fill(r.CONT_COEFF, {1.0, 0.5, 2.0}), fill(r.CONT_RR_EFF, {0, 1, 0});
  fill(r.carried.REDUCE, {371, 372}), fill(r.carried.R_EFF, {373, 374}),
      fill(r.carried.R_EFF_INP, {375, 376});
  fill(r.carried.TRAIT_BLK_SIZE, {377, 378}), fill(r.carried.TRAIT_BLK_STAERT, {379, 380}),
      fill(r.carried.N_RR, {381, 382});
  fill(r.carried.T_R_ID_RCI, {401, 402}), fill(r.carried.RANDOM_ID_INP, {411, 412}),
      fill(r.INTERCEPT, {1, 0});
  fill(r.R_EFF_RCI, {3, 423}), fill(r.T_NO, {1, 2}), fill_texts(r.T_NAME, {"milk", "slope"});
  fill(r.COV_MAT, {4.0, 1.0, 1.5, 3.0}), fill(r.P_COV_MAT, {8.0, 2.0, 2.5, 6.0});
  fill(r.GIF, {0.5, 0.125, 0.25, 0.75});
  fill(r.carried.L_CV_REST, {1, 0, 0, 0}), fill(r.carried.L_COR_REST, {0, 1, 0, 0});
  fill(r.carried.L_VRATIO_ELEM, {0, 1}), fill(r.carried.P_RATIO, {5.5, 5.75});
}

inline void fill_residual_scalars(zeph::structure_record& r) {
  r.n_rc = 1, r.n_t = 1, r.CV_STRUCT = "GROUP", r.carried.r5288 = true;
  r.n_pat = 1, r.carried.HETGR_INP = 481, r.HETGR_RCI = 2, r.carried.HETGR_NAME = "stage", r.n_hetgr = 2,
  r.carried.r4520 = true;
  r.carried.r4796 = true;
}

inline void fill_residual_arrays(zeph::structure_record& r) {
  fill(r.TRAIT_NO, {1}), fill(r.TRAIT_INP, {18}), fill(r.T_NO, {1}), fill_texts(r.T_NAME, {"milk"});
  fill(r.COV_MAT, {10.0}), fill(r.P_COV_MAT, {20.0});
  fill(r.carried.ISIT, {0, 1}), fill(r.carried.ISIT_B, {491, 492}), fill(r.carried.ISIT_C, {493, 494});
  fill(r.HETGR_CODE, {0, 7, 11}), fill(r.HETG_N_OBS, {0, 4, 2}), fill(r.carried.HETGR_NOBS, {0, 5, 3});
  fill(r.HETGR_COV_MAT, {0.0, 10.0, 20.0}), fill(r.carried.HETGR_L_PR, {0, 1, 0});
  fill(r.HETGR_RDET, {0.0, 2.25, 3.0, 0.5, 0.625, 0.75});
  fill(r.HETGR_RIIF, {0.0, 0.2, 0.3, 0.0, 0.1, 0.05});
  fill(r.carried.L_COR_REST, {1}), fill(r.carried.L_VRATIO_ELEM, {1}), fill(r.carried.P_RATIO, {6.5});
}

inline zeph::model_records small_model(zeph::reporting& report, const small_model_form& form = {}) {
  zeph::model_records m;
  fill_header_sizes(m, form);
  m.MODEL_rows.resize(1);
  fill_trait_scalars(m.MODEL(1), form);
  m.RMAT_rows.resize(form.factor ? 2 : 1);
  if (form.factor) fill_factor_scalars(m.RMAT(1), form);
  fill_residual_scalars(m.residual());
  zeph::allocate_modinf(m, report);
  fill(m.carried.TraitIdWithWeight, {7});
  if (form.optional_parts) {
    fill(m.carried.NABGR, {51, 52}), fill(m.carried.MN_ABGR, {53, 54});
    fill(m.SOL_CV_EQ_NO, {8, 9});
  }
  fill(m.NLEV, {3}), fill(m.NORCOV, {161, 162}), fill(m.SPRE, {1.5}), fill(m.carried.H2, {0.25});
  fill_trait_arrays(m.MODEL(1), form);
  if (form.factor) {
    fill(m.NRALEV, {4});
    fill_factor_arrays(m.RMAT(1), form);
    fill(m.NBEGRA, {7, 15}), fill(m.carried.NBEGRAT, {7, 8, 9, 10, 11, 12});
  } else {
    fill(m.NBEGRA, {7});
  }
  fill_residual_arrays(m.residual());
  fill(m.NBEGREG, {0, 1}), fill(m.NBEGF, {4});
  return m;
}

} // namespace zeph_test
