#include "gibbs/moves/factor_moves.h"

#include "gibbs/moves/proposals.h"
#include "gibbs/scan/scan_records.h"
#include "numerics/normal_draws.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

constexpr std::int32_t largest_of_every_round = 4;

} // namespace

bool moves_in_round(std::int32_t p, std::int64_t round) {
  if (p <= largest_of_every_round) return true;
  const std::int64_t every = (std::int64_t{p} * p + 17) / 18;
  return round % every == 0;
}

bool factor_moves_now(const scan_records& r, const round_state& state, std::int32_t g) {
  const equation_group& group = r.layout.group(g);
  if (!r.work.moves.on || group.kind != group_kind::random_factor) return false;
  const std::int32_t p = r.layout.NGR(g, 2);
  return r.work.moves.factors[static_cast<std::size_t>(group.number - 1)].moves && p > 0 &&
         r.layout.NGR(g, 1) > 0 && state.gropd(g) != 0 && moves_in_round(p, state.iround);
}

namespace {

// Adds the entries of record irec, taken, in levels of factor k.
void add_record(const scan_records& r, std::int32_t irec, std::int32_t k, std::int32_t p, factor_sums& sums) {
  const design_store& d = r.design;
  const std::int32_t nt = r.model.nt, h = d.IRESG_M(irec);
  const bool weighted = r.work.values.weighted;
  const auto root = [&](std::int32_t t) {
    return weighted ? static_cast<double>(d.WV_SQRT_M(t, irec)) : 1.0;
  };
  const auto takes_part = [&](std::int32_t j) {
    return d.XD7_M(j, irec) == k && d.XD2_M(j, irec) > 0 && d.XD5_M(j, irec) <= p;
  };
  for (std::int32_t i = 1; i <= d.M_M(irec); ++i) {
    if (!takes_part(i)) continue;
    const std::int32_t t = d.XD2_M(i, irec), q = d.XD5_M(i, irec);
    const double* u = &r.sampler.sol(d.XD1_M(i, irec) - q + 1); // of the entry's level
    double weighed = 0;
    for (std::int32_t s = 1; s <= nt; ++s) weighed += r.sampler.RCOVI(t, s, h) * r.work.values.res(s);
    const double z = d.ZD_M(i, irec) * root(t);
    for (std::int32_t v = 1; v <= p; ++v) sums.H(q, v) += z * weighed * u[v - 1];
    for (std::int32_t j = 1; j <= d.M_M(irec); ++j) {
      if (!takes_part(j)) continue;
      const std::int32_t s = d.XD2_M(j, irec), q2 = d.XD5_M(j, irec);
      const double* other = &r.sampler.sol(d.XD1_M(j, irec) - q2 + 1);
      const double c = z * d.ZD_M(j, irec) * root(s) * r.sampler.RCOVI(t, s, h);
      for (std::int32_t v = 1; v <= p; ++v)
        for (std::int32_t v2 = 1; v2 <= p; ++v2)
          sums.K((q - 1) * p + v, (q2 - 1) * p + v2) += c * u[v - 1] * other[v2 - 1];
    }
  }
}

bool concerns(const design_store& d, std::int32_t irec, std::int32_t k) {
  for (std::int32_t i = 1; i <= d.M_M(irec); ++i)
    if (d.XD7_M(i, irec) == k) return true;
  return false;
}

} // namespace

void clear_sums(factor_sums& sums, std::int32_t p) {
  for (std::int32_t i = 1; i <= p; ++i) std::fill_n(sums.H.unchecked_col(i), p, 0.0);
  for (std::int32_t i = 1; i <= p * p; ++i) std::fill_n(sums.K.unchecked_col(i), p * p, 0.0);
}

void sum_factor_by_records(scan_records& r, const directives& asked, std::int32_t k, std::int32_t p) {
  factor_sums& sums = r.work.moves.work.sums;
  clear_sums(sums, p);
  const record_entries entries = entries_of(r, asked.analysis_type);
  for (std::int32_t irec = 1; irec <= r.design.nobs; ++irec) {
    if (!concerns(r.design, irec, k)) continue;
    take_record(entries, r.work.values, irec);
    add_record(r, irec, k, p, sums);
  }
}

bool decide_factor_move(scan_records& r, const directives& asked, const round_state& state, std::int32_t g) {
  const std::int32_t k = r.layout.group(g).number, p = r.layout.NGR(g, 2);
  const factor_prior prior = prior_of_factor(r.model, asked, k, p);
  const auto exponent = static_cast<double>(r.model.NRALEV(k) - asked.DDF(k) - prior.nu - p);
  return propose_factor_move(r.work.moves.work, r.sources.marsaglia, r.model, r.sampler, k, p, prior,
                             exponent, is_burn_in(asked, state),
                             r.work.moves.factors[static_cast<std::size_t>(k - 1)].count);
}

bool propose_factor_move(move_work& work, marsaglia_source& source, const model_records& model,
                         const sampler_store& sampler, std::int32_t k, std::int32_t p,
                         const factor_prior& prior, double exponent, bool burn_in, move_count& count) {
  const std::int32_t n = p * p;
  mat<double>& K = work.sums.K;
  const std::int64_t ldk = K.extent(1);
  if (!factor_safely(K.data(), ldk, n)) return false;
  // m = L'^-1 (L^-1 vec H), then B = m + L'^-1 z
  for (std::int32_t i = 0; i < n; ++i) {
    double sum = work.sums.H(i / p + 1, i % p + 1);
    for (std::int32_t j = 0; j < i; ++j) sum -= K(i + 1, j + 1) * work.m(j + 1);
    work.m(i + 1) = sum / K(i + 1, i + 1);
  }
  for (std::int32_t i = 1; i <= n; ++i) work.m(i) += ranmar_snorm(source);
  solve_upper(K.data(), ldk, n, work.m.data());
  const std::int64_t ld = work.A.extent(1);
  for (std::int32_t i = 1; i <= p; ++i)
    for (std::int32_t j = 1; j <= p; ++j) {
      work.A(i, j) = work.m((i - 1) * p + j) + (i == j ? 1.0 : 0.0);
      work.C(i, j) = work.A(i, j);
    }
  double log_det = 0;
  const bool legal = invert_with_det(work.C.data(), ld, p, work.A_inverse.data(), log_det);
  double r = 0;
  if (legal)
    r = exponent * log_det - 0.5 * change_of_trace(model.RMAT(k).COV_MAT, prior.weight,
                                                   sampler.GIF.unchecked_slice(k), sampler.GIF.extent(1),
                                                   work.A_inverse.data(), ld, p);
  return accept_move(source, r, legal, burn_in, count);
}

namespace {

// u -> A u of n rows, A by rows. full: the stride is n; kept: change follows.
template <int n, bool full, bool kept>
void multiply_each(const double* elements, std::int64_t levels, std::int64_t stride, double* u,
                   double* change) {
  double A[n * n];
  std::copy_n(elements, n * n, A);
  if (full) stride = n;
  for (std::int64_t at = 0; at < levels * stride; at += stride) {
    double old[n], x[n];
    for (int i = 0; i < n; ++i) old[i] = u[at + i];
    for (int i = 0; i < n; ++i) {
      x[i] = A[i * n] * old[0];
      for (int j = 1; j < n; ++j) x[i] += A[i * n + j] * old[j];
    }
    for (int i = 0; i < n; ++i) u[at + i] = x[i];
    if constexpr (kept)
      for (int i = 0; i < n; ++i) change[at + i] += x[i] - old[i];
  }
}
template <int n>
void multiply_levels(const double* A, std::int64_t levels, std::int64_t stride, double* u, double* change) {
  if (stride != n)
    change != nullptr ? multiply_each<n, false, true>(A, levels, stride, u, change)
                      : multiply_each<n, false, false>(A, levels, stride, u, change);
  else
    change != nullptr ? multiply_each<n, true, true>(A, levels, stride, u, change)
                      : multiply_each<n, true, false>(A, levels, stride, u, change);
}

// The same of p rows; row: work of p.
void multiply_levels(const double* A, std::int32_t p, std::int64_t levels, std::int64_t stride, double* u,
                     double* change, double* row) {
  for (std::int64_t l = 0; l < levels; ++l, u += stride) {
    for (std::int32_t i = 0; i < p; ++i) {
      row[i] = 0;
      for (std::int32_t j = 0; j < p; ++j) row[i] += A[i * p + j] * u[j];
    }
    if (change != nullptr)
      for (std::int32_t i = 0; i < p; ++i) change[l * stride + i] += row[i] - u[i];
    std::copy_n(row, p, u);
  }
}

// S -> A S A', packed; C: work of the order of A
void move_square(const mat<double>& A, std::int32_t p, double* square, mat<double>& C) {
  for (std::int32_t i = 1; i <= p; ++i) // C = A S
    for (std::int32_t j = 1; j <= p; ++j) {
      C(i, j) = 0;
      for (std::int32_t v = 1; v <= p; ++v) C(i, j) += A(i, v) * square[ihmij(v, j, 0) - 1];
    }
  for (std::int32_t i = 1; i <= p; ++i)
    for (std::int32_t j = 1; j <= i; ++j) {
      double sum = 0;
      for (std::int32_t v = 1; v <= p; ++v) sum += C(i, v) * A(j, v);
      square[ihmij(i, j, 0) - 1] = sum;
    }
}

} // namespace

void take_factor_move(move_work& work, const equation_layout& layout, sampler_store& sampler, std::int32_t g,
                      double* change, double* square) {
  const equation_group& group = layout.group(g);
  const std::int32_t k = group.number, levels = layout.NGR(g, 1), p = layout.NGR(g, 2);
  const std::int64_t stride = group.stride;
  double* u = sampler.sol.data() + group.base;
  double* by_rows = work.m.data();
  for (std::int32_t i = 1; i <= p; ++i)
    for (std::int32_t j = 1; j <= p; ++j) by_rows[(i - 1) * p + j - 1] = work.A(i, j);
  switch (p) {
  case 1:
    multiply_levels<1>(by_rows, levels, stride, u, change);
    break;
  case 2:
    multiply_levels<2>(by_rows, levels, stride, u, change);
    break;
  case 3:
    multiply_levels<3>(by_rows, levels, stride, u, change);
    break;
  case 4:
    multiply_levels<4>(by_rows, levels, stride, u, change);
    break;
  default:
    multiply_levels(by_rows, p, levels, stride, u, change, work.row.data());
  }
  if (square != nullptr) move_square(work.A, p, square, work.C);
  transform_precision(sampler.GIF.unchecked_slice(k), sampler.GIF.extent(1), work.A_inverse.data(),
                      work.A_inverse.extent(1), p, work.C.data());
}

} // namespace zeph
