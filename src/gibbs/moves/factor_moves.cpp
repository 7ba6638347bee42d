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

factor_prior prior_of_factor(const model_records& model, const directives& asked, std::int32_t k,
                             std::int32_t p) {
  const std::int32_t q = asked.sampler.exact ? model.RMAT(k).n_rc : p;
  if (asked.PDF(k) > q + 1)
    return {std::int64_t{asked.PDF(k)} - q + p, static_cast<double>(asked.PDF(k) - q - 1)};
  return {-(std::int64_t{p} + 1), 0.0};
}

bool moves_in_round(std::int32_t p, std::int64_t round) {
  if (p <= largest_of_every_round) return true;
  const std::int64_t every = (std::int64_t{p} * p + 17) / 18;
  return round % every == 0;
}

void add_record_to_sums(const scan_records& r, std::int32_t irec, std::int32_t k, std::int32_t p,
                        factor_sums& sums) {
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

void take_factor_move(move_work& work, sampler_store& sampler, std::int32_t k, std::int32_t p,
                      std::int32_t levels, std::int32_t stride, std::int64_t base, double* change,
                      double* square) {
  double* row = work.row.data();
  for (std::int32_t l = 0; l < levels; ++l) {
    double* u = sampler.sol.data() + base + std::int64_t{l} * stride;
    for (std::int32_t i = 0; i < p; ++i) {
      row[i] = 0;
      for (std::int32_t j = 0; j < p; ++j) row[i] += work.A(i + 1, j + 1) * u[j];
    }
    for (std::int32_t i = 0; i < p; ++i) {
      if (change != nullptr) change[std::int64_t{l} * stride + i] += row[i] - u[i];
      u[i] = row[i];
    }
  }
  if (square != nullptr) { // C = A S, then S = C A'
    for (std::int32_t i = 1; i <= p; ++i)
      for (std::int32_t j = 1; j <= p; ++j) {
        double sum = 0;
        for (std::int32_t v = 1; v <= p; ++v) sum += work.A(i, v) * square[ihmij(v, j, 0) - 1];
        work.C(i, j) = sum;
      }
    for (std::int32_t i = 1; i <= p; ++i)
      for (std::int32_t j = 1; j <= i; ++j) {
        double sum = 0;
        for (std::int32_t v = 1; v <= p; ++v) sum += work.C(i, v) * work.A(j, v);
        square[ihmij(i, j, 0) - 1] = sum;
      }
  }
  transform_precision(sampler.GIF.unchecked_slice(k), sampler.GIF.extent(1), work.A_inverse.data(),
                      work.A_inverse.extent(1), p, work.C.data());
}

} // namespace zeph
