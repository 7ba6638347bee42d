// The mixed-model equations of a described model, as one dense matrix.
//
// The test states the model in the records below; every record of the CSV gives
// W' R^-1 W and W' R^-1 y, W being its rows of (X, Z) over the observed traits
// and R^-1 the inverse of the observed part of R, its covariances divided by
// the roots of both weights. Each factor adds K^-1 (x) G^-1. All class levels
// and regressions that occur have an unknown of their own, so the system may be
// singular. It is solved by the eigenvectors of the scaled matrix (LAPACK),
// which also give its null space. Observations, weights and covariables are
// rounded to 32 bits, as the files hold them.
#pragma once

#include "runs/dense_relationships.h"
#include "runs/named_solutions.h"

#include <cmath>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace zeph_test {

using square = std::vector<std::vector<double>>; // by rows

// A number per record: x, a power of it, or a normalised Legendre polynomial,
// of the column less `shift` or mapped from low..high to -1..1.
struct curve {
  enum class form { plain, power, legendre };
  std::string column;
  form kind = form::plain;
  int degree = 1;
  double low = 0.0, high = 0.0; // low < high: mapped
  double shift = 0.0;
};
inline curve plain(const std::string& column, double shift = 0.0) {
  return {column, curve::form::plain, 1, 0.0, 0.0, shift};
}
inline curve power(const std::string& column, int degree, double low = 0.0, double high = 0.0) {
  return {column, curve::form::power, degree, low, high, 0.0};
}
inline curve legendre(const std::string& column, int degree, double low, double high) {
  return {column, curve::form::legendre, degree, low, high, 0.0};
}

// A class effect, a regression, or a regression within classes. `name` is that
// of the equations; crossed classes have levels "7:1998"; none is the mean.
struct fixed_term {
  std::string name;
  std::vector<std::string> classes;
  std::optional<curve> covariable = {};
};

struct dense_trait {
  std::string name;
  std::vector<fixed_term> fixed;
  std::string weight = ""; // column; "": none
  std::string column = ""; // of the observations; "": that of the name

  const std::string& data_column() const { return column.empty() ? name : column; }
};

// What one row of a factor's matrix puts into a record: a coefficient for the
// level in each of the columns.
struct factor_part {
  std::string row; // name of the row
  std::string trait;
  std::vector<std::string> columns;
  std::optional<curve> covariable = {};
};

struct dense_factor {
  std::string name;
  std::vector<factor_part> rows;
  square G;
  std::optional<named_matrix> inverse = {}; // of the relationship; none: identity
};

struct dense_description {
  csv_table data;
  std::vector<dense_trait> traits;
  std::vector<dense_factor> factors;
  square R;
  std::string group = "";                  // column of the residual groups
  std::map<std::string, square> R_of = {}; // groups with a matrix of their own
  std::set<std::string> missing = {"NA", ""};
};

// Normalised Legendre polynomial by Rodrigues' sum, not by a recurrence:
// P_n(x) = 2^-n sum over k of (-1)^k C(n,k) C(2n-2k,n) x^(n-2k).
inline double legendre_value(int n, double x) {
  const auto choose = [](int m, int k) {
    return std::round(std::exp(std::lgamma(m + 1.0) - std::lgamma(k + 1.0) - std::lgamma(m - k + 1.0)));
  };
  double sum = 0.0;
  for (int k = 0; 2 * k <= n; ++k)
    sum += (k % 2 == 0 ? 1.0 : -1.0) * choose(n, k) * choose(2 * n - 2 * k, n) * std::pow(x, n - 2 * k);
  return std::sqrt((2.0 * n + 1.0) / 2.0) * sum / std::pow(2.0, n);
}

inline double in_32_bits(double x) { return static_cast<double>(static_cast<float>(x)); }

inline double value_of(const curve& c, double cell) {
  const double x = c.low < c.high ? 2.0 * (cell - c.low) / (c.high - c.low) - 1.0 : cell - c.shift;
  if (c.degree == 0) return c.kind == curve::form::legendre ? std::sqrt(0.5) : 1.0;
  return in_32_bits(c.kind == curve::form::legendre ? legendre_value(c.degree, x) : std::pow(x, c.degree));
}

inline dense_matrix matrix_of(const square& rows) {
  dense_matrix m(static_cast<std::int64_t>(rows.size()));
  m.cells.clear();
  for (const auto& row : rows) m.cells.insert(m.cells.end(), row.begin(), row.end());
  return m;
}

// One record's coefficients of a trait: (unknown, coefficient).
using design_row = std::vector<std::pair<std::size_t, double>>;

class dense_equations {
public:
  explicit dense_equations(const dense_description& description) : d(description) {
    for (const dense_factor& f : d.factors) name_factor(f);
    for (std::size_t r = 0; r < d.data.size(); ++r)
      if (const auto present = traits_present(r); !present.empty()) rows_of_record(r, present);
    n = names.size();
    C.assign(n * n, 0.0);
    b.assign(n, 0.0);
    for (const record& x : records) add_record(x);
    for (const dense_factor& f : d.factors) add_factor(f);
  }

  std::vector<std::string> names; // of the unknowns
  std::size_t n = 0;
  std::vector<double> C; // n x n
  std::vector<double> b;
  std::size_t n_records() const { return records.size(); }

private:
  struct record {
    std::vector<design_row> W; // per observed trait
    std::vector<double> y;
    dense_matrix Rinverse;
  };

  bool is_missing(std::size_t r, const std::string& column) const {
    return d.missing.contains(d.data.cell(r, column));
  }
  bool has_all(std::size_t r, const dense_trait& t) const {
    if (is_missing(r, t.data_column())) return false;
    if (!t.weight.empty() && (is_missing(r, t.weight) || number_in(d.data.cell(r, t.weight)) == 0.0))
      return false;
    for (const fixed_term& x : t.fixed) {
      for (const std::string& column : x.classes)
        if (is_missing(r, column)) return false;
      if (x.covariable && is_missing(r, x.covariable->column)) return false;
    }
    for (const dense_factor& f : d.factors)
      for (const factor_part& p : f.rows)
        if (p.trait == t.name && p.covariable && is_missing(r, p.covariable->column)) return false;
    return true;
  }
  std::vector<std::size_t> traits_present(std::size_t r) const {
    std::vector<std::size_t> out;
    if (!d.group.empty() && is_missing(r, d.group)) return out;
    for (std::size_t t = 0; t < d.traits.size(); ++t)
      if (has_all(r, d.traits[t])) out.push_back(t);
    return out;
  }

  std::size_t unknown(const std::string& name) {
    const auto [at, is_new] = number_of.emplace(name, names.size());
    if (is_new) names.push_back(name);
    return at->second;
  }
  std::string factor_name(const dense_factor& f, const std::string& row, const std::string& level) const {
    return "factor|" + f.name + "|" + row + "|" + level;
  }
  std::vector<std::string> levels_of(const dense_factor& f) const {
    if (f.inverse) return f.inverse->id;
    std::set<std::string> seen;
    for (std::size_t r = 0; r < d.data.size(); ++r)
      for (const std::size_t t : traits_present(r))
        for (const factor_part& p : f.rows)
          if (p.trait == d.traits[t].name)
            for (const std::string& column : p.columns)
              if (!is_missing(r, column)) seen.insert(d.data.cell(r, column));
    return {seen.begin(), seen.end()};
  }
  void name_factor(const dense_factor& f) {
    for (const std::string& level : levels_of(f))
      for (const factor_part& p : f.rows) unknown(factor_name(f, p.row, level));
  }

  double coefficient(std::size_t r, const std::optional<curve>& c) const {
    return c ? value_of(*c, number_in(d.data.cell(r, c->column))) : 1.0;
  }
  design_row row_of(std::size_t r, const dense_trait& t) {
    design_row row;
    for (const fixed_term& x : t.fixed) {
      std::string level = x.classes.empty() && !x.covariable ? "mean" : "";
      for (const std::string& column : x.classes)
        level += (level.empty() ? "" : ":") + d.data.cell(r, column);
      const std::string part = x.covariable ? "regression|" : "class|";
      row.emplace_back(unknown(part + t.name + "|" + x.name + "|" + level), coefficient(r, x.covariable));
    }
    for (const dense_factor& f : d.factors)
      for (const factor_part& p : f.rows)
        if (p.trait == t.name)
          for (const std::string& column : p.columns)
            if (!is_missing(r, column))
              row.emplace_back(unknown(factor_name(f, p.row, d.data.cell(r, column))),
                               coefficient(r, p.covariable));
    return row;
  }
  void rows_of_record(std::size_t r, const std::vector<std::size_t>& present) {
    record x;
    const std::string group = d.group.empty() ? "" : d.data.cell(r, d.group);
    const square& R = d.R_of.contains(group) ? d.R_of.at(group) : d.R;
    x.Rinverse = dense_matrix(static_cast<std::int64_t>(present.size()));
    std::vector<double> w;
    for (const std::size_t t : present) {
      const dense_trait& trait = d.traits[t];
      x.W.push_back(row_of(r, trait));
      x.y.push_back(in_32_bits(number_in(d.data.cell(r, trait.data_column()))));
      w.push_back(trait.weight.empty() ? 1.0 : in_32_bits(number_in(d.data.cell(r, trait.weight))));
    }
    for (std::size_t i = 0; i < present.size(); ++i)
      for (std::size_t j = 0; j < present.size(); ++j)
        x.Rinverse(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(j) + 1) =
            R[present[i]][present[j]] / std::sqrt(w[i] * w[j]);
    x.Rinverse = dense_inverse(x.Rinverse).inverse;
    records.push_back(std::move(x));
  }

  void add_record(const record& x) {
    for (std::size_t i = 0; i < x.W.size(); ++i)
      for (std::size_t j = 0; j < x.W.size(); ++j) {
        const double v = x.Rinverse(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(j) + 1);
        for (const auto& [p, zp] : x.W[i]) {
          b[p] += zp * v * x.y[j];
          for (const auto& [q, zq] : x.W[j]) C[p * n + q] += zp * v * zq;
        }
      }
  }
  void add_factor(const dense_factor& f) {
    const dense_matrix G = dense_inverse(matrix_of(f.G)).inverse;
    const std::vector<std::string> levels = levels_of(f);
    for (std::size_t k = 0; k < levels.size(); ++k)
      for (std::size_t l = 0; l < levels.size(); ++l) {
        const double a =
            f.inverse ? f.inverse->cells(static_cast<std::int64_t>(k) + 1, static_cast<std::int64_t>(l) + 1)
                      : (k == l ? 1.0 : 0.0);
        if (a == 0.0) continue;
        for (std::size_t i = 0; i < f.rows.size(); ++i)
          for (std::size_t j = 0; j < f.rows.size(); ++j)
            C[unknown(factor_name(f, f.rows[i].row, levels[k])) * n +
              unknown(factor_name(f, f.rows[j].row, levels[l]))] +=
                a * G(static_cast<std::int64_t>(i) + 1, static_cast<std::int64_t>(j) + 1);
      }
  }

  const dense_description& d;
  std::map<std::string, std::size_t> number_of;
  std::vector<record> records;
};

} // namespace zeph_test
