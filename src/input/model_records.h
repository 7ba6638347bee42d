// The model of a run as `MODINF` gives it: global sizes, one `MODEL(i)` per
// trait, one `RMAT(k)` per random factor with the residual as the last one, and
// the tables of first equation numbers. Filled once by `QVAMRD`, kept to the end.
//
// Arrays count from 1 unless a range is given. Texts are blank padded to their
// width in the file. `carried` of each record holds the items that the program reads only to keep in step
// with the file, and that a writer of the file must give; those without a meaning here are m.., mi_.., r..
#pragma once

#include "numerics/arrays.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace zeph {

// Texts of one fixed width, indexed from 1.
struct text_row {
  std::vector<std::string> cells;
  const std::string& operator()(std::int64_t i) const { return cells.at(static_cast<std::size_t>(i - 1)); }
  std::string& operator()(std::int64_t i) { return cells.at(static_cast<std::size_t>(i - 1)); }
  void clear() { cells.clear(); }
  void resize(std::size_t n) { cells.resize(n); }
};

// Kinds of traits in TRAIT_TYPE.
inline constexpr std::int32_t trait_gaussian = 1;
inline constexpr std::int32_t trait_censored = 2;
inline constexpr std::int32_t trait_categorical = 3; // ordered categories with thresholds
inline constexpr std::int32_t trait_liability = 4;   // binary, residual variance fixed
inline constexpr std::int32_t trait_mixture = 5;     // indicator of a two-component mixture
inline constexpr std::int32_t trait_sequence = 7;    // sequence of a cure model
inline constexpr std::int32_t trait_cured = 8;       // its cured fraction

// One trait.
struct trait_record {
  std::int32_t TRAIT_TYPE = 0;
  std::int32_t TRAIT_INP = 0;
  std::string TRAIT_NAME = std::string(8, ' ');
  std::int32_t Y_RCI = 0;            // place of the observation in the reals of a data record
  std::int32_t link2 = 0, link1 = 0; // partner traits of kinds 7 and 8
  std::int32_t SEQ_RCI = 0;          // place of the sequence position in the integers (kind 7)
  std::int32_t WGT_FLAG = 0;         // not 0: the trait has a weight
  std::int32_t WGT_RCI = 0;          // place of the weight in the reals
  bool L_MIX_TRAIT = false;          // carries mixture regressions
  std::int32_t MIX_EQ_TYPE = 0;      // value of XD6_M for them

  std::int32_t n_ef = 0, n_f = 0, n_r = 0; // effects, of them "fixed" class effects and random effects
  std::int32_t n_reg = 0;                  // regressions

  vec<std::int32_t> EF_INP; // n_ef
  vec<logical> INTERCEPT;   // n_ef; 1..n_f: the "fixed" effect has equations

  vec<std::int32_t> f_ef_inp; // n_f
  text_row F_EF_NAME;         // n_f x c8
  vec<std::int32_t> f_ef_rci; // n_f: place of the level in the integers

  vec<std::int32_t> r_ef_inp;   // n_r
  vec<std::int32_t> r_ef_rci;   // n_r
  vec<std::int32_t> r_ef_matno; // n_r: random factor of the effect

  vec<std::int32_t> REG_TYPE;     // n_reg: 0 plain, 1 nested, others random
  vec<std::int32_t> REG_INP;      // n_reg: input number of the covariable
  vec<logical> REG_MIXTURE;       // n_reg
  text_row REG_NAME;              // n_reg x c8
  vec<std::int32_t> REG_RCI;      // n_reg: place of the covariable in the reals
  vec<std::int32_t> REG_N_RCI;    // n_reg: place of the nesting level in the integers
  vec<std::int32_t> REG_N_EF_INP; // n_reg: index of the nesting effect in NLEV
  vec<std::int32_t> REG_R_MATNO;  // n_reg: random factor of a random regression

  bool L_CENS = false;
  std::int32_t CENS_RCI = 0, UPPER_RCI = 0; // places of the bounds in the reals

  struct carried_items {
    std::int32_t m18_7 = 0, m18_8 = 0, m18_9 = 0, m18_10 = 0, m18_11 = 0;
    std::int32_t m18_13 = 0, m18_14 = 0;
    bool m18_15 = false;
    std::int32_t WGT_INP = 0;
    std::string WGT_NAME = std::string(8, ' ');
    std::int32_t m19_7 = 0;
    std::string m19_8 = std::string(8, ' ');
    std::int32_t m19_9 = 0;
    std::int32_t n_abs = 0; // absorbed effects
    std::int32_t m21_4 = 0;
    std::int32_t n_tms = 0;
    std::int32_t m23_1 = 0, m23_2 = 0, m23_3 = 0, m23_4 = 0, m24_1 = 0, m24_2 = 0;
    vec<std::int32_t> A_EF_INP;                  // n_abs
    text_row A_EF_NAME;                          // n_abs x c8
    vec<std::int32_t> A_EF_RCI;                  // n_abs
    vec<std::int32_t> EF_RCI, REDUCE;            // n_ef
    vec<logical> F_INTERCEPT;                    // n_f
    vec<logical> R_INTERCEPT;                    // n_r
    vec<float> EF_COEFF, F_EF_COEFF, R_EF_COEFF; // n_ef, n_f, n_r
    vec<logical> MERGE_PREV;                     // n_r
    text_row R_EF_NAME;                          // n_r x c8
    vec<std::int32_t> ass_rf;                    // n_r
    vec<std::int32_t> n_times;                   // n_tms
    vec<std::int32_t> REG_N_INP;                 // n_reg: input number of the nesting effect
    text_row REG_NAME_N;                         // n_reg x c18
    vec<std::int32_t> REG_N_LEVEL;               // n_reg
    bool m33_1 = false;
    float m33_2 = 0;
    std::int32_t m33_3 = 0, m33_4 = 0;
    std::array<std::string, 7> m34; // seven records of c256
    std::int32_t CENS_INP = 0, UPPER_INP = 0;
  } carried;
};

// One random factor: a covariance matrix of order n_rc shared by the effects
// that contribute to it, and one relationship between its levels. Element
// nramat+1 is the residual.
struct structure_record {
  std::int32_t n_cont = 0; // (trait, effect) pairs that put a coefficient into a record
  std::int32_t n_rc = 0;   // order of the matrix = equations of a level
  std::int32_t n_t = 0, n_rid = 0;
  std::string CV_STRUCT = "I           "; // c12
  std::int32_t r36 = 0;                   // its last digit 6: pedigree with phantom parent groups
  bool L_RAM = false;                     // reduced animal model for the dispersion parameters
  std::int32_t QTL_FACTOR = 0;            // "ABS_QTL": the factor whose levels it shares
  std::int32_t n_phg = 0;                 // phantom parent groups
  bool r216 = false;                      // no extra equations and restrictions for the groups

  vec<std::int32_t> TRAIT_NO, TRAIT_INP;          // n_t
  vec<std::int32_t> CONT_POS, CONT_RC, CONT_T_NO; // n_cont: place in the level's block, trait
  vec<logical> CONT_LC;                           // n_cont
  vec<std::int32_t> CONT_EFF_RCI;                 // n_cont: place of the level in the integers
  vec<std::int32_t> CONT_RR_RCI;                  // n_cont: place of the covariable in the reals
  vec<double> CONT_COEFF;                         // n_cont: constant coefficient
  vec<logical> CONT_RR_EFF;                       // n_cont: the contribution has a covariable
  vec<logical> INTERCEPT;                         // n_reff
  vec<std::int32_t> R_EFF_RCI;                    // n_rid: places of the level's identification
  vec<std::int32_t> T_NO;                         // n_t: rows of the traits in the matrix
  text_row T_NAME;                                // n_t x c8
  mat<double> COV_MAT, P_COV_MAT, GIF;            // n_rc x n_rc: start value and prior scale; its inverse
  double r3304 = 0;                               // log determinant that goes with GIF

  // of the residual
  std::int32_t n_pat = 0;                   // patterns of missing traits
  std::int32_t HETGR_RCI = 0;               // code of the residual group
  std::int32_t n_hetgr = 0;                 // highest residual group
  vec<std::int32_t> HETGR_CODE, HETG_N_OBS; // 0:n_hetgr
  cube<double> HETGR_COV_MAT;               // 0:n_hetgr, nt, nt
  mat<double> HETGR_RDET;                   // 0:n_hetgr, 0:n_pat: log determinants
  array<double, 4> HETGR_RIIF;              // 0:n_hetgr, 0:n_pat, nt, nt: inverse of the observed part

  struct carried_items {
    std::int32_t n_reff = 0;
    std::array<std::int64_t, 3> r48{};
    std::array<std::int64_t, 2> r72{};
    mat<std::int32_t> PHG_LIST; // 2 x n_phg
    double r192 = 0;
    std::int32_t r236 = 0;
    std::string r240 = std::string(200, ' ');
    double r200 = 0;
    bool r232 = false;
    std::int32_t r860 = 0;
    bool r864 = false, r5288 = false;
    vec<std::int32_t> CONT_T_INP, CONT_T_RCI, CONT_EFF, CONT_EFF_INP; // n_cont
    vec<std::int32_t> CONT_RR_INP;                                    // n_cont
    text_row CONT_ID_NO, CONT_T_NAME, CONT_RR_NAME;                   // n_cont x c8
    vec<std::int32_t> REDUCE;                                         // n_t
    bool r2456 = false;
    vec<std::int32_t> R_EFF, R_EFF_INP;                 // n_t, n_reff
    vec<std::int32_t> TRAIT_BLK_SIZE, TRAIT_BLK_STAERT; // n_t
    vec<std::int32_t> N_RR, T_R_ID_RCI;                 // n_reff
    vec<std::int32_t> RANDOM_ID_INP;                    // n_rid
    mat<logical> L_RCOV_ZERO;                           // residual: n_rc x n_rc
    std::int32_t HETGR_INP = 0;
    std::string HETGR_NAME = std::string(8, ' ');
    bool r4520 = false;
    vec<std::int32_t> ISIT, ISIT_B, ISIT_C; // 0:n_pat
    cube<std::int32_t> HETGR_NOBS;          // 0:n_hetgr, nt, nt
    vec<logical> HETGR_L_PR;                // 0:n_hetgr
    mat<logical> L_CV_REST, L_COR_REST;     // n_rc x n_rc
    bool r4792 = false, r4796 = false, r4872 = false;
    vec<logical> L_VRATIO_ELEM; // n_rc
    vec<double> P_RATIO;        // n_rc
  } carried;
};

// True when the structure's name, blanks cut, is `name`.
bool structure_is(const structure_record& r, std::string_view name);

struct model_records {
  // run header
  std::string qv_version = " ", qv_release = "   "; // c1, c3
  std::array<std::int32_t, 6> run_stamp{};
  std::array<std::string, 5> mi_text; // c200 each; names the directive file
  bool l_residuals = false;           // with model_kind 2: residuals of records are kept
  bool l_sol_samples = false;
  std::int32_t model_kind = 0, solver_code = 0, sol_layout = 0, test_level = 0;
  std::array<std::int32_t, 4> data_dims{}; // element 3 is nobs
  std::int32_t nt = 0;                     // traits
  std::int32_t ncat = 0;                   // traits of kind 3 (counted again after reading)
  std::int32_t n_cure_seq = 0;
  std::int32_t mnef = 0, mxreg = 0;
  std::int32_t nramat = 0; // random factors, residual not counted
  std::int32_t nregt = 0, nfreg = 0;
  std::int32_t nfeq = 0;    // equations of the "fixed" part
  mat<std::int32_t> NLEV;   // nt x mnef
  vec<std::int32_t> NRALEV; // nramat
  std::int32_t n_norcov = 0;
  mat<std::int32_t> NORCOV; // nt(nt+1)/2 x 2
  vec<double> SPRE;         // nt

  std::vector<trait_record> MODEL_rows;
  std::vector<structure_record> RMAT_rows;
  trait_record& MODEL(std::int64_t i) { return MODEL_rows.at(static_cast<std::size_t>(i - 1)); }
  const trait_record& MODEL(std::int64_t i) const { return MODEL_rows.at(static_cast<std::size_t>(i - 1)); }
  structure_record& RMAT(std::int64_t k) { return RMAT_rows.at(static_cast<std::size_t>(k - 1)); }
  const structure_record& RMAT(std::int64_t k) const { return RMAT_rows.at(static_cast<std::size_t>(k - 1)); }
  const structure_record& residual() const { return RMAT(nramat + 1); }
  structure_record& residual() { return RMAT(nramat + 1); }

  mat<std::int32_t> NBEGREG;          // nt x mxreg: offset = first equation - 1
  mat<std::int32_t> NBEGF;            // nt x mnef
  vec<std::int32_t> NBEGRA;           // nramat+1
  std::int32_t iv_50 = 0, n_real = 0; // integers and reals of a data record
  bool L_TD = false, L_PTD = false;
  std::int32_t TD_FACTOR = 0;
  std::int32_t PTD_INT = 0, PTD_LIMIT = 0;
  std::int32_t n_sol_cv = 0;      // -1: samples of all equations, > 0: of the listed ones
  vec<std::int32_t> SOL_CV_EQ_NO; // n_sol_cv

  struct carried_items {
    std::int32_t mi_1_6 = 0, mi_1a_2 = 0;
    float mi_2_5 = 0;
    std::int32_t mi_2_7 = 0;
    bool mi_2_8 = false;
    std::int32_t mme_elems = 0, mi_3_2 = 0, mi_3_3 = 0;
    double mi_3_4 = 0;
    std::int32_t mi_3_5 = 0;
    double mi_3_6 = 0;
    std::int32_t mi_3b_2 = 0, mi_3b_3 = 0, mi_3b_5 = 0, mi_4_1 = 0, mi_4_2 = 0, mi_4_3 = 0;
    vec<std::int32_t> TraitIdWithWeight; // nt
    std::int32_t n_abgr = 0, mi_5_2 = 0;
    vec<std::int32_t> NABGR, MN_ABGR; // n_abgr
    std::int32_t mi_5a_3 = 0, mi_5b_1 = 0;
    std::int32_t mi_6_2 = 0, mi_6_3 = 0, mi_33_2 = 0, mi_7_2 = 0, mi_7_4 = 0;
    std::int32_t mi_8_1 = 0, mi_8_2 = 0, mi_9_2 = 0, mi_11_3 = 0;
    bool mi_17a = false;
    vec<double> H2;            // nt
    mat<std::int32_t> NBEGRAT; // largest n_cont x nramat+1
    std::int32_t mi_58_1 = 0;
    double mi_58_2 = 0;
    std::string TD_TYPE = "    ";
  } carried;

  std::int32_t nobs() const { return data_dims[2]; }
  // Residual groups in use: at least one.
  std::int32_t n_groups_residual() const { return residual().n_hetgr > 1 ? residual().n_hetgr : 1; }
  // Index of group g in the HETGR arrays, when the file has fewer groups.
  std::int32_t hetgr_index(std::int32_t g) const { return g < residual().n_hetgr ? g : residual().n_hetgr; }
  // Residuals are kept and written only when both flags hold.
  bool keeps_residuals() const { return l_residuals && model_kind == 2; }
  bool has_type(std::int32_t type) const;
  bool has_weights() const;
};

} // namespace zeph
