// Small models for tests: a few rows that describe traits, effects and random
// factors become the records of a model, numbered the way a writer of MODINF
// numbers them; and the data files that go with them.
//
// Layout: plain regressions 1.., nested regressions, class effects (effect
// outer, trait inner), then the factors. Observations are reals 1..nt. The
// last three integers are mask, pattern, position; the pattern number of a
// mask is the mask itself. All matrices are the identity unless given.
#pragma once

#include "formats/sequential_file.h"
#include "input/model_records.h"

#include <algorithm>
#include <string>
#include <vector>

namespace zeph_test {

using namespace zeph;

struct class_effect {
  std::int32_t place; // of the level in the integers
  std::int32_t levels;
  bool equations = true;
};

struct regression {
  std::int32_t place;      // of the covariable in the reals
  std::int32_t type = 0;   // 0 plain, 1 nested, 2 random
  std::int32_t effect = 0; // nested: index of the class effect of the trait
  bool mixture = false;
};

struct described_trait {
  std::vector<regression> regressions;
  std::vector<class_effect> effects;
  std::int32_t kind = 1;
  std::int32_t weight_place = 0;                // in the reals; 0: none
  std::int32_t mix_eq_type = 0;                 // not 0: the trait carries mixture coefficients
  std::int32_t code_place = 0, upper_place = 0; // kind 2
  std::int32_t sequence_place = 0;              // kind 7
};

struct contribution {
  std::int32_t trait;
  std::int32_t place;          // of the level in the integers
  std::int32_t pos;            // CONT_POS
  std::int32_t covariable = 0; // in the reals; 0: none
  double coefficient = 1.0;
  std::int32_t rc = 1; // CONT_RC
  bool lc = false;     // CONT_LC
};

struct described_factor {
  std::string structure;
  std::int32_t levels;
  std::int32_t order;
  std::vector<contribution> contributions;
};

struct described_model {
  std::vector<described_trait> traits;
  std::vector<described_factor> factors;
  std::int32_t integers = 0, reals = 0, records = 0;
  std::int32_t residual_groups = 1;
  std::int32_t group_place = 0;      // not 0: residual structure "GROUP"
  std::vector<double> residual = {}; // nt x nt by rows; empty: identity
};

template <class T> void fill_vec(vec<T>& x, std::initializer_list<T> values) {
  x.take(static_cast<std::int64_t>(values.size()));
  std::copy(values.begin(), values.end(), x.begin());
}

inline std::string padded(const std::string& text, std::size_t width) {
  return text + std::string(text.size() < width ? width - text.size() : 0, ' ');
}

inline void fill_trait(const described_trait& d, std::int32_t i, trait_record& t) {
  const auto n_reg = static_cast<std::int32_t>(d.regressions.size());
  const auto n_f = static_cast<std::int32_t>(d.effects.size());
  t.TRAIT_TYPE = d.kind;
  t.TRAIT_INP = i;
  t.TRAIT_NAME = padded("trait" + std::to_string(i), 8);
  t.Y_RCI = i;
  t.WGT_FLAG = d.weight_place != 0;
  t.WGT_RCI = d.weight_place;
  t.L_MIX_TRAIT = d.mix_eq_type != 0;
  t.MIX_EQ_TYPE = d.mix_eq_type;
  t.L_CENS = d.kind == trait_censored;
  t.CENS_RCI = d.code_place;
  t.UPPER_RCI = d.upper_place;
  t.SEQ_RCI = d.sequence_place;
  t.n_ef = t.n_f = n_f;
  t.n_reg = n_reg;
  for (vec<std::int32_t>* x : {&t.EF_INP, &t.carried.EF_RCI, &t.carried.REDUCE, &t.f_ef_inp, &t.f_ef_rci})
    x->take(n_f);
  t.INTERCEPT.take(n_f);
  t.carried.F_INTERCEPT.take(n_f);
  t.F_EF_NAME.cells.assign(d.effects.size(), padded("effect", 8));
  for (std::int32_t j = 1; j <= n_f; ++j) {
    const class_effect& e = d.effects[static_cast<std::size_t>(j - 1)];
    t.carried.EF_RCI(j) = t.f_ef_rci(j) = e.place;
    t.INTERCEPT(j) = t.carried.F_INTERCEPT(j) = e.equations;
  }
  for (vec<std::int32_t>* x : {&t.REG_TYPE, &t.REG_INP, &t.REG_RCI, &t.carried.REG_N_INP, &t.REG_N_RCI,
                               &t.REG_N_EF_INP, &t.REG_R_MATNO, &t.carried.REG_N_LEVEL})
    x->take(n_reg);
  t.REG_MIXTURE.take(n_reg);
  t.REG_NAME.cells.assign(d.regressions.size(), padded("reg", 8));
  t.carried.REG_NAME_N.cells.assign(d.regressions.size(), padded("", 18));
  for (std::int32_t j = 1; j <= n_reg; ++j) {
    const regression& r = d.regressions[static_cast<std::size_t>(j - 1)];
    t.REG_TYPE(j) = r.type;
    t.REG_INP(j) = t.REG_RCI(j) = r.place;
    t.REG_MIXTURE(j) = r.mixture;
    t.REG_N_EF_INP(j) = r.effect;
    if (r.effect > 0) t.REG_N_RCI(j) = d.effects[static_cast<std::size_t>(r.effect - 1)].place;
  }
}

inline void identity(mat<double>& x, std::int32_t n) {
  x.take(n, n);
  for (std::int32_t i = 1; i <= n; ++i) x(i, i) = 1.0;
}

inline void fill_factor(const described_factor& d, structure_record& f) {
  const auto n = static_cast<std::int32_t>(d.contributions.size());
  f.CV_STRUCT = padded(d.structure, 12);
  f.n_cont = n;
  f.n_rc = d.order;
  f.n_rid = 1;
  for (vec<std::int32_t>* x : {&f.CONT_POS, &f.CONT_RC, &f.CONT_T_NO, &f.CONT_EFF_RCI, &f.CONT_RR_RCI})
    x->take(n);
  f.CONT_LC.take(n);
  f.CONT_COEFF.take(n);
  f.CONT_RR_EFF.take(n);
  f.R_EFF_RCI.take(1);
  for (std::int32_t c = 1; c <= n; ++c) {
    const contribution& from = d.contributions[static_cast<std::size_t>(c - 1)];
    f.CONT_POS(c) = from.pos;
    f.CONT_RC(c) = from.rc;
    f.CONT_LC(c) = from.lc;
    f.CONT_T_NO(c) = from.trait;
    f.CONT_EFF_RCI(c) = f.R_EFF_RCI(1) = from.place;
    f.CONT_RR_EFF(c) = from.covariable != 0;
    f.CONT_RR_RCI(c) = from.covariable;
    f.CONT_COEFF(c) = from.coefficient;
  }
  // rows of the matrix: the first contribution to a row names its trait
  f.n_t = d.order;
  f.TRAIT_NO.take(d.order);
  f.T_NO.take(d.order);
  f.T_NAME.cells.assign(static_cast<std::size_t>(d.order), padded("row", 8));
  for (std::int32_t p = 1; p <= d.order; ++p) {
    f.T_NO(p) = p;
    for (std::int32_t c = n; c >= 1; --c)
      if (f.CONT_POS(c) == p) f.TRAIT_NO(p) = f.CONT_T_NO(c);
  }
  identity(f.COV_MAT, d.order);
  identity(f.P_COV_MAT, d.order);
  identity(f.GIF, d.order);
}

// Inverse of the rows and columns of R that are in the mask, zeros elsewhere;
// Gauss-Jordan without pivoting, for positive definite R.
inline mat<double> observed_inverse(const mat<double>& R, std::int32_t mask, std::int32_t nt) {
  mat<double> x;
  x.take(nt, nt);
  const auto in = [&](std::int32_t t) { return ((mask >> (nt - t)) & 1) != 0; };
  for (std::int32_t i = 1; i <= nt; ++i)
    for (std::int32_t j = 1; j <= nt; ++j) x(i, j) = in(i) && in(j) ? R(i, j) : 0.0;
  for (std::int32_t p = 1; p <= nt; ++p) {
    if (!in(p)) continue;
    const double pivot = x(p, p);
    for (std::int32_t i = 1; i <= nt; ++i)
      for (std::int32_t j = 1; j <= nt; ++j)
        if (i != p && j != p) x(i, j) -= x(i, p) * x(p, j) / pivot;
    for (std::int32_t i = 1; i <= nt; ++i)
      if (i != p) {
        x(i, p) /= -pivot;
        x(p, i) /= pivot;
      }
    x(p, p) = 1.0 / pivot;
  }
  return x;
}

inline void fill_residual(const described_model& d, std::int32_t nt, structure_record& f) {
  f.CV_STRUCT = padded(d.group_place != 0 ? "GROUP" : "I", 12);
  f.HETGR_RCI = d.group_place;
  f.n_rc = f.n_t = nt;
  f.n_hetgr = d.residual_groups;
  f.n_pat = (1 << nt) - 1;
  identity(f.COV_MAT, nt);
  for (std::int32_t i = 1; i <= nt && !d.residual.empty(); ++i)
    for (std::int32_t j = 1; j <= nt; ++j)
      f.COV_MAT(i, j) = d.residual[static_cast<std::size_t>((i - 1) * nt + j - 1)];
  identity(f.P_COV_MAT, nt);
  f.carried.L_RCOV_ZERO.take(nt, nt);
  for (vec<std::int32_t>* x : {&f.carried.ISIT, &f.carried.ISIT_B, &f.carried.ISIT_C})
    x->take(range(0, f.n_pat));
  f.HETGR_CODE.take(range(0, f.n_hetgr));
  f.HETG_N_OBS.take(range(0, f.n_hetgr));
  f.carried.HETGR_NOBS.take(range(0, f.n_hetgr), nt, nt);
  f.carried.HETGR_L_PR.take(range(0, f.n_hetgr));
  f.HETGR_COV_MAT.take(range(0, f.n_hetgr), nt, nt);
  f.HETGR_RDET.take(range(0, f.n_hetgr), range(0, f.n_pat));
  f.HETGR_RIIF.take(range(0, f.n_hetgr), range(0, f.n_pat), nt, nt);
  for (std::int32_t pattern = 0; pattern <= f.n_pat; ++pattern) {
    f.carried.ISIT(pattern) = pattern;
    const mat<double> inverse = observed_inverse(f.COV_MAT, pattern, nt);
    for (std::int32_t g = 0; g <= f.n_hetgr; ++g)
      for (std::int32_t i = 1; i <= nt; ++i)
        for (std::int32_t j = 1; j <= nt; ++j) f.HETGR_RIIF(g, pattern, i, j) = inverse(i, j);
  }
}

// First equations of all effects, and the counts of equations.
inline void number_equations(const described_model& d, model_records& m) {
  std::int32_t next = 0;
  for (const std::int32_t type : {0, 1})
    for (std::int32_t i = 1; i <= m.nt; ++i)
      for (std::int32_t j = 1; j <= m.MODEL(i).n_reg; ++j) {
        if (m.MODEL(i).REG_TYPE(j) != type) continue;
        m.NBEGREG(i, j) = next;
        next += type == 0 ? 1 : m.NLEV(i, m.MODEL(i).REG_N_EF_INP(j));
      }
  m.nfreg = next;
  for (std::int32_t j = 1; j <= m.mnef; ++j)
    for (std::int32_t i = 1; i <= m.nt; ++i) {
      if (j > m.MODEL(i).n_f || !m.MODEL(i).INTERCEPT(j)) continue;
      m.NBEGF(i, j) = next;
      next += m.NLEV(i, j);
    }
  m.nfeq = next;
  for (std::int32_t k = 1; k <= m.nramat; ++k) {
    m.NBEGRA(k) = next;
    next += d.factors[static_cast<std::size_t>(k - 1)].levels * m.RMAT(k).n_rc;
  }
  m.NBEGRA(m.nramat + 1) = next;
}

inline model_records build_model(const described_model& d) {
  model_records m;
  m.nt = static_cast<std::int32_t>(d.traits.size());
  m.nramat = static_cast<std::int32_t>(d.factors.size());
  m.iv_50 = d.integers;
  m.n_real = d.reals;
  m.data_dims[2] = d.records;
  m.MODEL_rows.resize(d.traits.size());
  m.RMAT_rows.resize(d.factors.size() + 1);
  for (std::int32_t i = 1; i <= m.nt; ++i) {
    const described_trait& t = d.traits[static_cast<std::size_t>(i - 1)];
    fill_trait(t, i, m.MODEL(i));
    m.mnef = std::max(m.mnef, m.MODEL(i).n_f);
    m.mxreg = std::max(m.mxreg, m.MODEL(i).n_reg);
    m.nregt += m.MODEL(i).n_reg;
    m.ncat += t.kind == trait_categorical;
  }
  m.NLEV.take(m.nt, m.mnef);
  m.NBEGF.take(m.nt, m.mnef);
  m.NBEGREG.take(m.nt, m.mxreg);
  m.NRALEV.take(m.nramat);
  m.NBEGRA.take(m.nramat + 1);
  m.SPRE.take(m.nt);
  m.SPRE.fill(1.0);
  for (std::int32_t i = 1; i <= m.nt; ++i)
    for (std::int32_t j = 1; j <= m.MODEL(i).n_f; ++j)
      m.NLEV(i, j) =
          d.traits[static_cast<std::size_t>(i - 1)].effects[static_cast<std::size_t>(j - 1)].levels;
  for (std::int32_t k = 1; k <= m.nramat; ++k) {
    fill_factor(d.factors[static_cast<std::size_t>(k - 1)], m.RMAT(k));
    m.NRALEV(k) = d.factors[static_cast<std::size_t>(k - 1)].levels;
  }
  fill_residual(d, m.nt, m.residual());
  number_equations(d, m);
  return m;
}

// Data files: one record of integers and one of reals per row.
inline void write_integer_records(const std::string& path,
                                  const std::vector<std::vector<std::int32_t>>& rows) {
  sequential_writer file;
  file.open(path);
  for (const auto& row : rows) {
    file.begin();
    file.put(row.data(), static_cast<std::int64_t>(row.size()));
    file.end();
  }
  file.close();
}

inline void write_real_records(const std::string& path, const std::vector<std::vector<float>>& rows) {
  sequential_writer file;
  file.open(path);
  for (const auto& row : rows) {
    file.begin();
    file.put(row.data(), static_cast<std::int64_t>(row.size()));
    file.end();
  }
  file.close();
}

// One element of a relationship file.
struct element {
  std::int32_t i, j;
  double v;
};

inline void write_elements(const std::string& path, const std::vector<element>& elements) {
  sequential_writer file;
  file.open(path);
  for (const element& e : elements) {
    file.begin();
    file.put(e.i);
    file.put(e.j);
    file.put(e.v);
    file.end();
  }
  file.close();
}

} // namespace zeph_test
