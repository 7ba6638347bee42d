// The one list of the records of MODINF, in the order of the file: label of the
// record, items with their types, conditions, legal sizes, places where arrays
// are taken. What walks it decides what a record is:
//   the reader takes the items from the file and allocates,
//   the writer of work directories puts them and checks the arrays' axes.
//
// Types of items: std::int32_t i4, std::int64_t i8, float r4, double r8, bool
// and arrays of logical l4, text(x, n) cn; arrays whole, first index fastest.
// The label is the text of the message of a failed read; without one: silent.
//
// A walker w offers; each returns false to end the walk there:
//   w.record(label, items...)                           one record of the file
//   w.version(m)                                        the versions fit
//   w.size(item, {indices}, value, low, high)           low <= value <= high
//   w.array(x, variable, routine, axes...)              x has these axes
//   w.texts(row, width, variable, routine, count)       n texts of one width
//   w.rows(elements, variable, routine, count)          elements of MODEL, RMAT
#pragma once

#include "input/model_records.h"

#include <algorithm>
#include <limits>

namespace zeph {

inline constexpr std::int64_t any_size = std::numeric_limits<std::int32_t>::max();
inline constexpr std::int64_t most_traits = 20;

// A text item: one text, or all texts of a row, of `width` bytes each.
template <class Text> struct text_item {
  Text& value;
  std::int64_t width;
};
template <class Text> text_item<Text> text(Text& value, std::int64_t width) { return {value, width}; }

// Block A: versions, dimensions of the run, levels.
template <class Walker, class Records> bool walk_run_header(Walker& w, Records& m) {
  return w.record("0 - ios = ", text(m.qv_version, 1), text(m.qv_release, 3), m.run_stamp) && w.version(m) &&
         w.record("1 - ios = ", text(m.mi_text[0], 200), text(m.mi_text[1], 200), text(m.mi_text[2], 200),
                  text(m.mi_text[3], 200), text(m.mi_text[4], 200), m.carried.mi_1_6) &&
         w.record("1a - ios = ", m.l_residuals, m.carried.mi_1a_2, m.l_sol_samples) &&
         w.record("2 - ios = ", m.model_kind, m.solver_code, m.sol_layout, m.test_level, m.carried.mi_2_5,
                  m.data_dims, m.carried.mi_2_7, m.carried.mi_2_8) &&
         w.size("nobs", {}, m.data_dims[2], 0, any_size) &&
         w.record("3 - ios = ", m.carried.mme_elems, m.carried.mi_3_2, m.carried.mi_3_3, m.carried.mi_3_4,
                  m.carried.mi_3_5, m.carried.mi_3_6) &&
         w.record("3 - ios = ", m.nt, m.carried.mi_3b_2, m.carried.mi_3b_3, m.ncat, m.carried.mi_3b_5) &&
         w.size("nt", {}, m.nt, 1, most_traits) &&
         w.array(m.carried.TraitIdWithWeight, "TraitIdWithWeight", "qvamrd", m.nt) &&
         w.record("4 - ios = ", m.carried.mi_4_1, m.carried.mi_4_2, m.carried.mi_4_3,
                  m.carried.TraitIdWithWeight) &&
         w.record("5 - ios = ", m.carried.n_abgr, m.carried.mi_5_2) &&
         w.size("n_abgr", {}, m.carried.n_abgr, 0, any_size) &&
         w.array(m.carried.NABGR, "NABGR", "qvamrd", m.carried.n_abgr) &&
         w.array(m.carried.MN_ABGR, "MN_ABGR", "qvamrd", m.carried.n_abgr) &&
         (m.carried.n_abgr < 1 ||
          w.record("5a - ios = ", m.carried.NABGR, m.carried.MN_ABGR, m.carried.mi_5a_3)) &&
         w.record("5a - ios = ", m.carried.mi_5b_1, m.n_cure_seq) &&
         w.size("n_cure_seq", {}, m.n_cure_seq, 0, any_size);
}

// Every number of levels is 0 or more.
template <class Walker, class Records> bool walk_level_sizes(Walker& w, Records& m) {
  for (std::int32_t j = 1; j <= m.mnef; ++j)
    for (std::int32_t i = 1; i <= m.nt; ++i)
      if (!w.size("NLEV", {i, j}, m.NLEV(i, j), 0, any_size)) return false;
  for (std::int32_t k = 1; k <= m.nramat; ++k)
    if (!w.size("NRALEV", {k}, m.NRALEV(k), 0, any_size)) return false;
  return true;
}

// Block A, second part: sizes of the equation system.
template <class Walker, class Records> bool walk_run_sizes(Walker& w, Records& m) {
  const std::int32_t pairs = m.nt * (m.nt + 1) / 2;
  return w.record("6 - ios = ", m.mnef, m.carried.mi_6_2, m.carried.mi_6_3, m.mxreg) &&
         w.size("mnef", {}, m.mnef, 0, any_size) && w.size("mxreg", {}, m.mxreg, 0, any_size) &&
         w.record("33 - ios = ", m.nramat, m.carried.mi_33_2) &&
         w.size("nramat", {}, m.nramat, 0, any_size - 1) && w.array(m.NLEV, "NLEV", "QVAMRD", m.nt, m.mnef) &&
         w.array(m.NORCOV, "NORCOV", "QVAMRD", pairs, 2) && w.array(m.SPRE, "SPRE", "QVAMDR", m.nt) &&
         w.array(m.carried.H2, "H2", "QVAMDR", m.nt) &&
         w.record("7 - ios = ", m.nregt, m.carried.mi_7_2, m.nfreg, m.carried.mi_7_4) &&
         w.size("nregt", {}, m.nregt, 0, any_size) && w.size("nfreg", {}, m.nfreg, 0, any_size) &&
         w.record("8 - ios = ", m.carried.mi_8_1, m.carried.mi_8_2) &&
         w.record("9 - ios = ", m.nfeq, m.carried.mi_9_2) && w.size("nfeq", {}, m.nfeq, 0, any_size) &&
         w.array(m.NRALEV, "NRALEV", "QVAMRD", m.nramat) &&
         w.record("11 - ios = ", m.NLEV, m.NRALEV, m.carried.mi_11_3) && walk_level_sizes(w, m) &&
         w.record("15 - ios = ", m.n_norcov) && w.size("n_norcov", {}, m.n_norcov, 0, pairs) &&
         w.record("16 - ios = ", m.NORCOV) && w.record("17a - ios = ", m.carried.mi_17a);
}

// Block B, scalars of trait i.
template <class Walker, class Records, class Trait>
bool walk_trait_scalars(Walker& w, Records& m, Trait& t, std::int32_t i) {
  return w.record("18 - ios = ", t.TRAIT_TYPE, t.TRAIT_INP, text(t.TRAIT_NAME, 8), t.Y_RCI, t.link2, t.link1,
                  t.carried.m18_7, t.carried.m18_8, t.carried.m18_9, t.carried.m18_10, t.carried.m18_11,
                  t.SEQ_RCI, t.carried.m18_13, t.carried.m18_14, t.carried.m18_15) &&
         w.record("19 - ios = ", t.carried.WGT_INP, t.WGT_FLAG, text(t.carried.WGT_NAME, 8), t.WGT_RCI,
                  t.L_MIX_TRAIT, t.MIX_EQ_TYPE, t.carried.m19_7, text(t.carried.m19_8, 8), t.carried.m19_9) &&
         w.record("20 - ios = ", t.carried.n_abs) &&
         w.size("MODEL%n_abs", {i}, t.carried.n_abs, 0, any_size) &&
         w.record("21 - ios = ", t.n_ef, t.n_f, t.n_r, t.carried.m21_4) &&
         w.size("MODEL%n_ef", {i}, t.n_ef, 0, any_size) &&
         w.size("MODEL%n_f", {i}, t.n_f, 0, std::min(t.n_ef, m.mnef)) &&
         w.size("MODEL%n_r", {i}, t.n_r, 0, any_size) && w.record("22 - ios = ", t.n_reg, t.carried.n_tms) &&
         w.size("MODEL%n_reg", {i}, t.n_reg, 0, m.mxreg) &&
         w.size("MODEL%n_tms", {i}, t.carried.n_tms, 0, any_size) &&
         w.record("23 - ios = ", t.carried.m23_1, t.carried.m23_2, t.carried.m23_3, t.carried.m23_4) &&
         w.record("24 - ios = ", t.carried.m24_1, t.carried.m24_2);
}

// Arrays of a trait's effects.
template <class Walker, class Trait> bool walk_effect_arrays(Walker& w, Trait& t) {
  // kept: the names of the absorbed effects are reported as their places
  return w.array(t.carried.A_EF_INP, "MODEL%A_EF_INP", "QVAINT", t.carried.n_abs) &&
         w.texts(t.carried.A_EF_NAME, 8, "MODEL%A_EF_RCI", "QVAINT", t.carried.n_abs) &&
         w.array(t.carried.A_EF_RCI, "MODEL%A_EF_RCI", "QVAINT", t.carried.n_abs) &&
         w.array(t.EF_INP, "MODEL(:)%EF_INP", "QVAINT", t.n_ef) &&
         w.array(t.carried.EF_RCI, "MODEL(:)%EF_RCI", "QVAINT", t.n_ef) &&
         w.array(t.carried.REDUCE, "MODEL(:)%REDUCE", "QVAINT", t.n_ef) &&
         w.array(t.INTERCEPT, "MODEL(:)%INTERCEPT", "QVAINT", t.n_ef) &&
         w.array(t.carried.F_INTERCEPT, "MODEL(:)%F_INTERCEPT", "QVAINT", t.n_f) &&
         w.array(t.carried.R_INTERCEPT, "MODEL(:)%R_INTERCEPT", "QVAINT", t.n_r) &&
         w.array(t.carried.EF_COEFF, "MODEL(:)%EF_COEFF", "QVAINT", t.n_ef) &&
         w.array(t.carried.F_EF_COEFF, "MODEL(:)%F_EF_COEFF", "QVAINT", t.n_f) &&
         w.array(t.carried.R_EF_COEFF, "MODEL(:)%R_EF_COEFF", "QVAINT", t.n_r) &&
         w.array(t.carried.MERGE_PREV, "MODEL(:)%MERGE_PREV", "QVAINT", t.n_r) &&
         w.array(t.f_ef_inp, "MODEL(:)%f_ef_inp", "QVAINT", t.n_f) &&
         w.texts(t.F_EF_NAME, 8, "MODEL(:)%F_EF_NAME", "QVAINT", t.n_f) &&
         w.array(t.f_ef_rci, "MODEL(:)%f_ef_rci", "QVAINT", t.n_f) &&
         w.array(t.r_ef_inp, "MODEL(:)%r_ef_inp", "QVAINT", t.n_r) &&
         w.texts(t.carried.R_EF_NAME, 8, "MODEL(:)%R_EF_NAME", "QVAINT", t.n_r) &&
         w.array(t.r_ef_rci, "MODEL(:)%r_ef_rci", "QVAINT", t.n_r);
}

// Arrays of a trait's regressions, and of the factors of its random effects.
template <class Walker, class Trait> bool walk_regression_arrays(Walker& w, Trait& t) {
  return w.array(t.REG_TYPE, "MODEL(:)%REG_TYPE", "QVAINT", t.n_reg) &&
         w.array(t.REG_INP, "MODEL(:)%REG_INP", "QVAINT", t.n_reg) &&
         w.array(t.REG_MIXTURE, "MODEL(:)%REG_MIXTURE", "QVAINT", t.n_reg) &&
         w.texts(t.REG_NAME, 8, "MODEL(:)%REG_NAME", "QVAINT", t.n_reg) &&
         w.array(t.REG_RCI, "MODEL(:)%REG_RCI", "QVAINT", t.n_reg) &&
         w.array(t.carried.n_times, "MODEL(:)%n_times", "QVAINT", t.carried.n_tms) &&
         w.array(t.carried.REG_N_INP, "MODEL(:)%REG_N_INP", "QVAINT", t.n_reg) &&
         w.texts(t.carried.REG_NAME_N, 18, "MODEL(:)%REG_NAME_N", "QVAINT", t.n_reg) &&
         w.array(t.REG_N_RCI, "MODEL(:)%REG_N_RCI", "QVAINT", t.n_reg) &&
         w.array(t.REG_N_EF_INP, "MODEL(:)%REG_N_EF_INP", "QVAINT", t.n_reg) &&
         w.array(t.REG_R_MATNO, "MODEL(:)%REG_R_MATNO", "QVAINT", t.n_reg) &&
         w.array(t.carried.REG_N_LEVEL, "MODEL(:)%REG_N_LEVEL", "QVAINT", t.n_reg) &&
         w.array(t.r_ef_matno, "MODEL(:)%r_ef_matno", "QVAINT", t.n_r) &&
         w.array(t.carried.ass_rf, "MODEL(:)%ass_rf", "QVAINT", t.n_r);
}

// Block B, array records of a trait and what follows them.
template <class Walker, class Trait> bool walk_trait_arrays(Walker& w, Trait& t) {
  const bool effects = (t.carried.n_abs < 1 || w.record("25 - ios = ", t.carried.A_EF_INP,
                                                        text(t.carried.A_EF_NAME, 8), t.carried.A_EF_RCI)) &&
                       w.record("26 - ios = ", t.EF_INP, t.carried.EF_RCI, t.carried.REDUCE, t.INTERCEPT,
                                t.carried.F_INTERCEPT, t.carried.R_INTERCEPT, t.carried.EF_COEFF,
                                t.carried.F_EF_COEFF, t.carried.R_EF_COEFF, t.carried.MERGE_PREV) &&
                       w.record("27 - ios = ", t.f_ef_inp, text(t.F_EF_NAME, 8), t.f_ef_rci) &&
                       w.record("28 - ios = ", t.r_ef_inp, text(t.carried.R_EF_NAME, 8), t.r_ef_rci);
  const bool regressions =
      effects &&
      (t.n_reg < 1 || (w.record("29 - ios = ", t.REG_TYPE, t.REG_INP, t.REG_MIXTURE, text(t.REG_NAME, 8),
                                t.REG_RCI, t.carried.n_times) &&
                       w.record("30 - ios = ", t.carried.REG_N_INP, text(t.carried.REG_NAME_N, 18),
                                t.REG_N_RCI, t.REG_N_EF_INP) &&
                       w.record("31 - ios = ", t.REG_R_MATNO, t.carried.REG_N_LEVEL))) &&
      w.record("32 - ios = ", t.r_ef_matno, t.carried.ass_rf) && w.record("", t.carried.m33_1) &&
      w.record("", t.carried.m33_2, t.carried.m33_3, t.carried.m33_4);
  if (!regressions) return false;
  for (auto& line : t.carried.m34)
    if (!w.record("", text(line, 256))) return false;
  return w.record("", t.L_CENS) &&
         (!t.L_CENS || w.record("", t.carried.CENS_INP, t.CENS_RCI, t.carried.UPPER_INP, t.UPPER_RCI));
}

// The allocation steps of one structure. Steps 1, 2, 4 and 5 are of every
// structure, 2A of random factors, 6 and 7 of the residual.
template <class Walker, class Structure> bool walk_alloc1(Walker& w, Structure& r) {
  return w.array(r.TRAIT_NO, "rmat(k)%trait_no", "RMAT_ALLOC1", r.n_t) &&
         w.array(r.TRAIT_INP, "rmat(k)%trait_inp", "RMAT_ALLOC1", r.n_t) &&
         w.array(r.carried.R_EFF, "rmat(k)%r_eff", "RMAT_ALLOC1", r.n_t) &&
         w.array(r.carried.R_EFF_INP, "rmat(k)%r_eff_inp", "RMAT_ALLOC1", r.carried.n_reff) &&
         w.array(r.carried.T_R_ID_RCI, "rmat(k)%t_r_id_rci", "RMAT_ALLOC1", r.carried.n_reff) &&
         w.array(r.carried.N_RR, "rmat(k)%n_rr", "RMAT_ALLOC1", r.carried.n_reff) &&
         w.array(r.carried.REDUCE, "rmat(k)%reduce", "RMAT_ALLOC1", r.n_t) &&
         w.array(r.carried.TRAIT_BLK_SIZE, "rmat(k)%trait_blk_size", "RMAT_ALLOC1", r.n_t) &&
         w.array(r.carried.TRAIT_BLK_STAERT, "rmat(k)%trait_blk_staert", "RMAT_ALLOC1", r.n_t);
}

template <class Walker, class Structure> bool walk_alloc2a(Walker& w, Structure& r) {
  return w.array(r.CONT_POS, "rmat(k)%cont_pos", "RMAT_ALLOC2A", r.n_cont) &&
         w.array(r.CONT_RC, "rmat(k)%cont_rc", "RMAT_ALLOC2A", r.n_cont) &&
         w.array(r.CONT_T_NO, "rmat(k)%cont_t_no", "RMAT_ALLOC2A", r.n_cont) &&
         w.array(r.CONT_LC, "rmat(k)%cont_lc", "RMAT_ALLOC2A", r.n_cont) &&
         w.array(r.carried.CONT_T_INP, "rmat(k)%cont_t_inp", "RMAT_ALLOC2A", r.n_cont) &&
         w.array(r.carried.CONT_T_RCI, "rmat(k)%cont_t_rci", "RMAT_ALLOC2A", r.n_cont) &&
         w.array(r.carried.CONT_EFF, "rmat(k)%cont_eff", "RMAT_ALLOC2A", r.n_cont) &&
         w.array(r.carried.CONT_EFF_INP, "rmat(k)%cont_eff_inp", "RMAT_ALLOC2A", r.n_cont) &&
         w.array(r.CONT_EFF_RCI, "rmat(k)%cont_eff_rci", "RMAT_ALLOC2A", r.n_cont) &&
         w.array(r.carried.CONT_RR_INP, "rmat(k)%cont_rr_inp", "RMAT_ALLOC2A", r.n_cont) &&
         w.array(r.CONT_RR_RCI, "rmat(k)%cont_rr_rci", "RMAT_ALLOC2A", r.n_cont) &&
         w.texts(r.carried.CONT_ID_NO, 8, "rmat(k)%cont_id_no", "RMAT_ALLOC2A", r.n_cont) &&
         w.texts(r.carried.CONT_T_NAME, 8, "rmat(k)%cont_t_name", "RMAT_ALLOC2A", r.n_cont) &&
         w.texts(r.carried.CONT_RR_NAME, 8, "rmat(k)%cont_rr_name", "RMAT_ALLOC2A", r.n_cont) &&
         w.array(r.CONT_COEFF, "rmat(k)%cont_coeff", "RMAT_ALLOC2A", r.n_cont) &&
         w.array(r.CONT_RR_EFF, "rmat(k)%cont_rr_eff", "RMAT_ALLOC2A", r.n_cont);
}

template <class Walker, class Structure> bool walk_alloc2(Walker& w, Structure& r) {
  return w.array(r.carried.RANDOM_ID_INP, "rmat(k)%random_id_inp", "RMAT_ALLOC2", r.n_rid) &&
         w.array(r.INTERCEPT, "rmat(k)%intercept", "RMAT_ALLOC2", r.carried.n_reff) &&
         w.array(r.R_EFF_RCI, "rmat(k)%r_eff_rci", "RMAT_ALLOC2", r.n_rid);
}

template <class Walker, class Structure> bool walk_alloc4(Walker& w, Structure& r) {
  return w.array(r.T_NO, "rmat(k)%t_no", "RMAT_ALLOC4", r.n_t) &&
         w.texts(r.T_NAME, 8, "rmat(k)%t_name", "RMAT_ALLOC4", r.n_t);
}

template <class Walker, class Structure> bool walk_alloc5(Walker& w, Structure& r) {
  return w.array(r.COV_MAT, "rmat(k)%cov_mat", "RMAT_ALLOC5", r.n_rc, r.n_rc) &&
         w.array(r.GIF, "rmat(k)%gif", "RMAT_ALLOC5", r.n_rc, r.n_rc) &&
         w.array(r.P_COV_MAT, "rmat(k)%p_cov_mat", "RMAT_ALLOC5", r.n_rc, r.n_rc) &&
         w.array(r.carried.L_CV_REST, "rmat(k)%l_cv_rest", "RMAT_ALLOC5", r.n_rc, r.n_rc) &&
         w.array(r.carried.L_COR_REST, "rmat(k)%l_cor_rest", "RMAT_ALLOC5", r.n_rc, r.n_rc) &&
         w.array(r.carried.L_VRATIO_ELEM, "rmat(k)%l_vratio_elem", "RMAT_ALLOC5", r.n_rc) &&
         w.array(r.carried.P_RATIO, "rmat(k)%p_ratio", "RMAT_ALLOC5", r.n_rc);
}

template <class Walker, class Structure> bool walk_alloc6(Walker& w, Structure& r) {
  return w.array(r.carried.L_RCOV_ZERO, "rmat(k)%l_rcov_zero", "RMAT_ALLOC6", r.n_rc, r.n_rc);
}

template <class Walker, class Structure> bool walk_alloc7(Walker& w, Structure& r, std::int32_t nt) {
  const axis patterns = range(0, r.n_pat);
  const axis groups = range(0, r.n_hetgr);
  return w.array(r.carried.ISIT, "rmat(k)%isit", "RMAT_ALLOC7", patterns) &&
         w.array(r.carried.ISIT_B, "rmat(k)%isit_b", "RMAT_ALLOC7", patterns) &&
         w.array(r.carried.ISIT_C, "rmat(k)%isit_c", "RMAT_ALLOC7", patterns) &&
         w.array(r.HETGR_CODE, "rmat(k)%hetgr_code", "RMAT_ALLOC7", groups) &&
         w.array(r.HETG_N_OBS, "rmat(k)%hetg_n_obs", "RMAT_ALLOC7", groups) &&
         w.array(r.carried.HETGR_NOBS, "rmat(k)%hetgr_nobs", "RMAT_ALLOC7", groups, nt, nt) &&
         w.array(r.carried.HETGR_L_PR, "rmat(k)%hetgr_l_pr", "RMAT_ALLOC7", groups) &&
         w.array(r.HETGR_COV_MAT, "rmat(k)%hetgr_cov_mat", "RMAT_ALLOC7", groups, nt, nt) &&
         w.array(r.HETGR_RIIF, "rmat(k)%hetgr_riif", "RMAT_ALLOC7", groups, patterns, nt, nt) &&
         w.array(r.HETGR_RDET, "rmat(k)%hetgr_rdet", "RMAT_ALLOC7", groups, patterns);
}

// Block C, sizes and kind of structure k.
template <class Walker, class Records, class Structure>
bool walk_structure_sizes(Walker& w, Records& m, Structure& r, std::int32_t k) {
  const bool residual = k > m.nramat;
  return w.record("33 - ios = ", r.n_cont, r.n_rc, r.n_t, r.n_rid, r.carried.n_reff) &&
         w.size("RMAT%n_cont", {k}, r.n_cont, 0, any_size) &&
         w.size("RMAT%n_rc", {k}, r.n_rc, residual ? m.nt : 1, residual ? m.nt : any_size) &&
         w.size("RMAT%n_t", {k}, r.n_t, 0, any_size) && w.size("RMAT%n_rid", {k}, r.n_rid, 0, any_size) &&
         w.size("RMAT%n_reff", {k}, r.carried.n_reff, 0, any_size) &&
         w.record("", text(r.CV_STRUCT, 12), r.r36, r.L_RAM, r.QTL_FACTOR, r.carried.r48, r.carried.r72,
                  r.n_phg) &&
         w.size("RMAT%n_phg", {k}, r.n_phg, 0, any_size) &&
         (r.n_phg < 1 || (w.array(r.carried.PHG_LIST, "rmat(k)%phg_list", "QVAMRD", 2, r.n_phg) &&
                          w.record("34a - ios = ", r.carried.PHG_LIST))) &&
         w.record("34 - ios = ", r.r216, r.carried.r192, r.carried.r236, text(r.carried.r240, 200),
                  r.carried.r200, r.carried.r232) &&
         w.record("35 - ios = ", r.carried.r860, r.carried.r864, r.carried.r5288);
}

// Block C, the effects of structure k and their places in a data record.
template <class Walker, class Structure> bool walk_contributions(Walker& w, Structure& r, bool factor) {
  return walk_alloc1(w, r) && w.record("36 - ios = ", r.TRAIT_NO, r.TRAIT_INP) &&
         (!factor || (walk_alloc2a(w, r) &&
                      w.record("", r.CONT_POS, r.CONT_RC, r.CONT_T_NO, r.CONT_LC, r.carried.CONT_T_INP,
                               r.carried.CONT_T_RCI, r.carried.CONT_EFF, r.carried.CONT_EFF_INP,
                               r.CONT_EFF_RCI, r.carried.CONT_RR_INP, r.CONT_RR_RCI,
                               text(r.carried.CONT_ID_NO, 8), text(r.carried.CONT_T_NAME, 8),
                               text(r.carried.CONT_RR_NAME, 8), r.CONT_COEFF, r.CONT_RR_EFF))) &&
         walk_alloc2(w, r) &&
         (!factor || (w.record("37 - ios = ", r.carried.REDUCE, r.carried.r2456, r.carried.R_EFF,
                               r.carried.R_EFF_INP, r.carried.TRAIT_BLK_SIZE, r.carried.TRAIT_BLK_STAERT) &&
                      w.record("38 - ios = ", r.carried.N_RR))) &&
         walk_alloc4(w, r) &&
         (!factor || (w.record("40 - ios = ", r.carried.T_R_ID_RCI) &&
                      w.record("41 - ios = ", r.carried.RANDOM_ID_INP, r.INTERCEPT) &&
                      w.record("42 - ios = ", r.R_EFF_RCI)));
}

// Block C, patterns of missing traits and residual groups.
template <class Walker, class Structure>
bool walk_residual(Walker& w, Structure& r, std::int32_t nt, std::int32_t k) {
  return walk_alloc6(w, r) && w.record("47 - ios = ", r.carried.L_RCOV_ZERO, r.n_pat) &&
         w.size("RMAT%n_pat", {k}, r.n_pat, 0, any_size) &&
         w.record("48 - ios = ", r.carried.HETGR_INP, r.HETGR_RCI, text(r.carried.HETGR_NAME, 8), r.n_hetgr,
                  r.carried.r4520) &&
         w.size("RMAT%n_hetgr", {k}, r.n_hetgr, 0, any_size) && walk_alloc7(w, r, nt) &&
         w.record("49 - ios = ", r.carried.ISIT, r.carried.ISIT_B, r.carried.ISIT_C) &&
         w.record("50 - ios = ", r.HETGR_CODE, r.HETG_N_OBS, r.carried.HETGR_NOBS, r.HETGR_COV_MAT,
                  r.carried.HETGR_L_PR) &&
         w.record("51 - ios = ", r.HETGR_RDET, r.HETGR_RIIF);
}

// Block C, structure k; the residual is k = nramat+1.
template <class Walker, class Records> bool walk_structure(Walker& w, Records& m, std::int32_t k) {
  auto& r = m.RMAT(k);
  const bool factor = k <= m.nramat;
  return walk_structure_sizes(w, m, r, k) && walk_contributions(w, r, factor) && walk_alloc5(w, r) &&
         w.record("43 - ios = ", r.T_NO) && w.record("44 - ios = ", text(r.T_NAME, 8)) &&
         w.record("45 - ios = ", r.COV_MAT, r.P_COV_MAT) &&
         (factor ? w.record("46 - ios = ", r.GIF, r.r3304) : walk_residual(w, r, m.nt, k)) &&
         w.record("52 - ios = ", r.carried.L_CV_REST) && w.record("53 - ios = ", r.carried.L_COR_REST) &&
         w.record("54 - ios = ", r.carried.r4792, r.carried.r4796) &&
         w.record("55 - ios = ", r.carried.r4872, r.carried.L_VRATIO_ELEM, r.carried.P_RATIO);
}

// Block D: first equations, data records, trait deviations, kept samples.
template <class Walker, class Records> bool walk_offsets(Walker& w, Records& m) {
  std::int32_t most_contributions = 0;
  for (const structure_record& r : m.RMAT_rows) most_contributions = std::max(most_contributions, r.n_cont);
  return w.array(m.NBEGREG, "NBEGREG", "QVAMRD", m.nt, m.mxreg) &&
         w.array(m.NBEGRA, "NBEGRA", "QVAMRD", m.nramat + 1) &&
         w.array(m.carried.NBEGRAT, "NBEGRAT", "QVAMRD", most_contributions, m.nramat + 1) &&
         w.array(m.NBEGF, "NBEGF", "QVAMRD", m.nt, m.mnef) &&
         w.record("56 - ios = ", m.NBEGREG, m.NBEGF, m.NBEGRA, m.carried.NBEGRAT) &&
         w.record("57 - ios = ", m.SPRE, m.carried.H2) &&
         w.record("58 - ios = ", m.carried.mi_58_1, m.carried.mi_58_2) &&
         w.record("59 - ios = ", m.iv_50, m.n_real) && w.size("iv_50", {}, m.iv_50, 3, any_size) &&
         w.size("n_real", {}, m.n_real, 0, any_size) &&
         w.record("60 - ios = ", m.L_TD, m.L_PTD, m.TD_FACTOR, text(m.carried.TD_TYPE, 4), m.PTD_INT,
                  m.PTD_LIMIT) &&
         w.record("61 - ios = ", m.n_sol_cv) &&
         (m.n_sol_cv < 1 || (w.array(m.SOL_CV_EQ_NO, "SOL_CV%EQ_NO", "QVAMRD", m.n_sol_cv) &&
                             w.record("62 - ios = ", m.SOL_CV_EQ_NO)));
}

// The whole file; false when the walker ended the walk.
template <class Walker, class Records> bool walk_modinf(Walker& w, Records& m) {
  if (!walk_run_header(w, m) || !walk_run_sizes(w, m)) return false;
  if (!w.rows(m.MODEL_rows, "MODEL", "QVAMDR", m.nt)) return false;
  for (std::int32_t i = 1; i <= m.nt; ++i) {
    auto& trait = m.MODEL(i);
    if (!walk_trait_scalars(w, m, trait, i) || !walk_effect_arrays(w, trait) ||
        !walk_regression_arrays(w, trait) || !walk_trait_arrays(w, trait))
      return false;
  }
  if (!w.rows(m.RMAT_rows, "RMAT", "QVAMRD", m.nramat + 1)) return false;
  for (std::int32_t k = 1; k <= m.nramat + 1; ++k)
    if (!walk_structure(w, m, k)) return false;
  return walk_offsets(w, m);
}

} // namespace zeph
