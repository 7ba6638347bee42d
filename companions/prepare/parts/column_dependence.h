// Which columns of a sparse design depend on columns before them, and how.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace zeph::prepare {

// The columns of a design in the order in which they count, 0..n-1, and their entries by record. Columns
// 0..n_wide-1 are the levels of one class effect: coefficient 1, at most one in a record.
struct fixed_columns {
  std::int32_t n_wide = 0;
  std::vector<std::size_t> decision; // size n: the caller's number of the column
  std::vector<std::size_t> start;    // size n records + 1
  std::vector<std::int32_t> column;  // entries of record r: start[r] .. start[r + 1] - 1
  std::vector<double> value;

  [[nodiscard]] std::int32_t n() const { return static_cast<std::int32_t>(decision.size()); }
  [[nodiscard]] std::size_t n_records() const { return start.size() - 1; }
};

// column = sum of coefficient x column over the terms, which ascend.
struct combination {
  std::int32_t column = 0;
  std::vector<std::pair<std::int32_t, double>> term;
};

constexpr double no_coefficient = 1e-7;   // coefficients below are rounding
constexpr std::size_t most_combined = 50; // dependent columns whose combination is worked out

// Column of the class of n_wide levels that record r has, or -1.
std::int32_t wide_column(const fixed_columns& x, std::size_t r);

// The columns that depend on columns before them, ascending: the others are independent and have the same
// span. For the first most_combined of them, at least, the combination is worked out, in general without the
// columns 0..n_wide-1, which the caller adds.
// The wide class is eliminated first: what is left are cross-products within its levels. Up to 1500 columns
// of these are factored by SuiteSparseQR (Davis 2011, ACM Trans. Math. Softw. 38:8) in their order. Beyond,
// it factors the columns themselves, or LAPACK's dpstrf the cross-products when these are at most 20000 and
// the sparse factor would fill. Columns are scaled to length 1; one counts as dependent when the others leave
// less than some 1e-6 of its length. good: false when memory was short; then nothing is found.
std::vector<combination> dependent_columns(const fixed_columns& x, bool& good);

} // namespace zeph::prepare
