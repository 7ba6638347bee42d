// Relationship matrices of small pedigrees, dense and by definition: the
// tabular method for A, group contributions by the matrix Q, dominance from
// the parents' relationships. Nothing of it is how the program does it.
#pragma once

#include "runs/csv_table.h"
#include "support/dense_matrix.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace zeph_test {

// A symmetric matrix with a name for each row.
struct named_matrix {
  std::vector<std::string> id;
  dense_matrix cells;

  std::int64_t row_of(const std::string& name) const {
    for (std::size_t i = 0; i < id.size(); ++i)
      if (id[i] == name) return static_cast<std::int64_t>(i) + 1;
    return 0;
  }
};

struct pedigree_lines {
  std::vector<std::string> animal, sire, dam; // parents before progeny; "" is unknown
};

// The lines with parents before progeny; parents that are named in `groups`
// stay as they are, "0" and "NA" become "".
inline pedigree_lines ordered_pedigree(const csv_table& table) {
  std::map<std::string, std::size_t> line_of;
  for (std::size_t i = 0; i < table.size(); ++i) line_of[table.cell(i, "animal")] = i;
  pedigree_lines out;
  std::map<std::string, bool> placed;
  const auto known = [](const std::string& id) { return id == "0" || id == "NA" ? std::string() : id; };
  const std::function<void(const std::string&)> place = [&](const std::string& id) {
    if (placed[id] || !line_of.contains(id)) return;
    const std::size_t i = line_of[id];
    place(table.cell(i, "sire"));
    place(table.cell(i, "dam"));
    placed[id] = true;
    out.animal.push_back(id);
    out.sire.push_back(known(table.cell(i, "sire")));
    out.dam.push_back(known(table.cell(i, "dam")));
  };
  for (std::size_t i = 0; i < table.size(); ++i) place(table.cell(i, "animal"));
  return out;
}

// A by the tabular method (Emik and Terrill 1949); a parent that is no animal
// of the pedigree counts as unknown.
inline named_matrix tabular_relationship(const pedigree_lines& ped) {
  const auto n = static_cast<std::int64_t>(ped.animal.size());
  named_matrix a{ped.animal, dense_matrix(n)};
  for (std::int64_t i = 1; i <= n; ++i) {
    const std::int64_t s = a.row_of(ped.sire[static_cast<std::size_t>(i - 1)]);
    const std::int64_t d = a.row_of(ped.dam[static_cast<std::size_t>(i - 1)]);
    for (std::int64_t j = 1; j < i; ++j) {
      const double of_sire = s > 0 ? a.cells(j, s) : 0.0, of_dam = d > 0 ? a.cells(j, d) : 0.0;
      a.cells(i, j) = a.cells(j, i) = 0.5 * (of_sire + of_dam);
    }
    a.cells(i, i) = 1.0 + (s > 0 && d > 0 ? 0.5 * a.cells(s, d) : 0.0);
  }
  return a;
}

inline named_matrix inverse_of(const named_matrix& m) { return {m.id, dense_inverse(m.cells).inverse}; }

// T' D^-1 T with Mendelian variances that take no heed of inbreeding:
// 1 - (number of known parents) / 4.
inline named_matrix inverse_without_inbreeding(const pedigree_lines& ped) {
  const auto n = static_cast<std::int64_t>(ped.animal.size());
  named_matrix out{ped.animal, dense_matrix(n)};
  for (std::size_t i = 0; i < ped.animal.size(); ++i) {
    dense_vector w(n);
    w(static_cast<std::int64_t>(i) + 1) = 1.0;
    double variance = 1.0;
    for (const std::string& parent : {ped.sire[i], ped.dam[i]}) {
      if (out.row_of(parent) == 0) continue;
      w(out.row_of(parent)) -= 0.5;
      variance -= 0.25;
    }
    for (std::int64_t k = 1; k <= n; ++k)
      for (std::int64_t l = 1; l <= n; ++l) out.cells(k, l) += w(k) * w(l) / variance;
  }
  return out;
}

// Share of each group in each animal: the mean of the parents' shares.
inline std::vector<std::vector<double>> group_shares(const pedigree_lines& ped,
                                                     const std::vector<std::string>& groups) {
  std::map<std::string, std::vector<double>> share;
  for (std::size_t g = 0; g < groups.size(); ++g) {
    share[groups[g]].assign(groups.size(), 0.0);
    share[groups[g]][g] = 1.0;
  }
  std::vector<std::vector<double>> q;
  for (std::size_t i = 0; i < ped.animal.size(); ++i) {
    std::vector<double> row(groups.size(), 0.0);
    for (const std::string& parent : {ped.sire[i], ped.dam[i]})
      for (std::size_t g = 0; g < groups.size(); ++g) row[g] += 0.5 * share.at(parent)[g];
    share[ped.animal[i]] = row;
    q.push_back(row);
  }
  return q;
}

// Animals, then groups, for solutions a + Q g with g fixed:
// ( A^-1     -A^-1 Q   )
// ( -Q'A^-1   Q'A^-1 Q )
inline named_matrix inverse_with_groups(const pedigree_lines& ped, const std::vector<std::string>& groups) {
  const named_matrix a = inverse_of(tabular_relationship(ped));
  const auto n = a.cells.n, g = static_cast<std::int64_t>(groups.size());
  const auto q = group_shares(ped, groups);
  named_matrix out{a.id, dense_matrix(n + g)};
  out.id.insert(out.id.end(), groups.begin(), groups.end());
  // (I | -Q)' A^-1 (I | -Q)
  const auto part = [&](std::int64_t animal, std::int64_t column) {
    if (column <= n) return animal == column ? 1.0 : 0.0;
    return -q[static_cast<std::size_t>(animal - 1)][static_cast<std::size_t>(column - n - 1)];
  };
  dense_matrix half(n + g); // A^-1 (I | -Q) in the first n rows
  for (std::int64_t i = 1; i <= n; ++i)
    for (std::int64_t c = 1; c <= n + g; ++c)
      for (std::int64_t k = 1; k <= n; ++k) half(i, c) += a.cells(i, k) * part(k, c);
  for (std::int64_t r = 1; r <= n + g; ++r)
    for (std::int64_t c = 1; c <= n + g; ++c)
      for (std::int64_t k = 1; k <= n; ++k) out.cells(r, c) += part(k, r) * half(k, c);
  return out;
}

// D(i,j) = (a(s,s') a(d,d') + a(s,d') a(d,s')) / 4 of the parents, D(i,i) = 1
// (Cockerham 1954, without inbreeding).
inline named_matrix dominance_relationship(const pedigree_lines& ped) {
  const named_matrix a = tabular_relationship(ped);
  named_matrix d{ped.animal, dense_matrix(a.cells.n)};
  const auto between = [&](const std::string& x, const std::string& y) {
    return a.row_of(x) > 0 && a.row_of(y) > 0 ? a.cells(a.row_of(x), a.row_of(y)) : 0.0;
  };
  for (std::size_t i = 0; i < ped.animal.size(); ++i) {
    const auto row = static_cast<std::int64_t>(i) + 1;
    d.cells(row, row) = 1.0;
    for (std::size_t j = 0; j < i; ++j) {
      const auto column = static_cast<std::int64_t>(j) + 1;
      d.cells(row, column) = d.cells(column, row) =
          0.25 * (between(ped.sire[i], ped.sire[j]) * between(ped.dam[i], ped.dam[j]) +
                  between(ped.sire[i], ped.dam[j]) * between(ped.dam[i], ped.sire[j]));
    }
  }
  return d;
}

// a(i,j) = a(s,j)/2 + a(g,j)/4, a(i,i) = 1 + a(s,g)/4 for sires s and maternal grandsires g.
inline named_matrix sire_relationship(const csv_table& ped) {
  named_matrix a{{}, dense_matrix(static_cast<std::int64_t>(ped.size()))};
  for (std::size_t i = 0; i < ped.size(); ++i) {
    const std::int64_t row = static_cast<std::int64_t>(i) + 1;
    const std::int64_t s = a.row_of(ped.cell(i, "sire")), g = a.row_of(ped.cell(i, "mgs"));
    for (std::int64_t j = 1; j < row; ++j)
      a.cells(row, j) = a.cells(j, row) =
          (s > 0 ? 0.5 * a.cells(s, j) : 0.0) + (g > 0 ? 0.25 * a.cells(g, j) : 0.0);
    a.cells(row, row) = 1.0 + (s > 0 && g > 0 ? 0.25 * a.cells(s, g) : 0.0);
    a.id.push_back(ped.cell(i, "animal"));
  }
  return a;
}

// The matrix as the text of a file: one triangle by rows "id id value", or a
// line of names and the square below it. 17 digits, so that nothing is lost.
inline std::string triplets_of(const named_matrix& m) {
  std::ostringstream out;
  out.precision(17);
  for (std::int64_t i = 1; i <= m.cells.n; ++i)
    for (std::int64_t j = 1; j <= i; ++j)
      if (m.cells(i, j) != 0.0 || i == j)
        out << m.id[static_cast<std::size_t>(i - 1)] << ' ' << m.id[static_cast<std::size_t>(j - 1)] << ' '
            << m.cells(i, j) << '\n';
  return out.str();
}
inline std::string square_of(const named_matrix& m) {
  std::ostringstream out;
  out.precision(17);
  for (const std::string& id : m.id) out << id << ' ';
  out << '\n';
  for (std::int64_t i = 1; i <= m.cells.n; ++i) {
    for (std::int64_t j = 1; j <= m.cells.n; ++j) out << m.cells(i, j) << ' ';
    out << '\n';
  }
  return out.str();
}

} // namespace zeph_test
