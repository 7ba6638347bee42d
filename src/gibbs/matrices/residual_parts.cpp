#include "gibbs/matrices/residual_parts.h"

#include "listing/stops.h"
#include "numerics/cholesky_family.h"
#include "numerics/gamma_draws.h"
#include "numerics/lapack_calls.h"
#include "numerics/normal_draws.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace zeph {
namespace {

constexpr std::string_view routine = "residual_parts";

std::int32_t order_of(const residual_part& part) { return static_cast<std::int32_t>(part.traits.size()); }

bool fixed_variance(std::int32_t kind) {
  return kind == trait_liability || kind == trait_mixture || kind == trait_sequence || kind == trait_cured;
}

// Kinds 5, 7 and 8 have no covariance with each other and with kind 4.
bool zero_by_kind(std::int32_t a, std::int32_t b) {
  return fixed_variance(a) && fixed_variance(b) && (a != trait_liability || b != trait_liability);
}

// Pairs that the model holds at zero, nt x nt.
mat<logical> held_pairs(const model_records& m, reporting& report) {
  mat<logical> held;
  allocate(report, held, "held", routine, m.nt, m.nt);
  held.fill(0);
  for (std::int32_t k = 1; k <= m.n_norcov; ++k) {
    const std::int32_t i = m.NORCOV(k, 1), j = m.NORCOV(k, 2);
    if (!zero_by_kind(m.MODEL(i).TRAIT_TYPE, m.MODEL(j).TRAIT_TYPE)) held(i, j) = held(j, i) = 1;
  }
  return held;
}

// The traits joined to trait t by free pairs, t included.
std::vector<std::int32_t> part_of(const model_records& m, const mat<logical>& held, std::int32_t t,
                                  std::vector<logical>& taken) {
  std::vector<std::int32_t> traits{t};
  taken[static_cast<std::size_t>(t - 1)] = 1;
  for (std::size_t k = 0; k < traits.size(); ++k) // grows as neighbours are found
    for (std::int32_t u = 1; u <= m.nt; ++u) {
      const std::int32_t i = traits[k];
      if (taken[static_cast<std::size_t>(u - 1)] != 0 || held(i, u) != 0 ||
          zero_by_kind(m.MODEL(i).TRAIT_TYPE, m.MODEL(u).TRAIT_TYPE))
        continue;
      taken[static_cast<std::size_t>(u - 1)] = 1;
      traits.push_back(u);
    }
  std::sort(traits.begin(), traits.end());
  return traits;
}

// Whether pairs of the part are held, and the free covariances of each trait.
void describe_part(const model_records& m, const mat<logical>& held, residual_part& part, reporting& report) {
  bool fixed = false;
  for (const std::int32_t t : part.traits) fixed = fixed || fixed_variance(m.MODEL(t).TRAIT_TYPE);
  part.free.assign(part.traits.size(), {});
  for (std::size_t j = 0; j < part.traits.size(); ++j)
    for (std::size_t i = 0; i < part.traits.size(); ++i) {
      if (i == j) continue;
      if (held(part.traits[i], part.traits[j]) == 0) {
        part.free[j].push_back(static_cast<std::int32_t>(i));
        continue;
      }
      part.held = true;
      if (fixed && i > j)
        illegal_input(report, "sampler", "NORCOV", {part.traits[j], part.traits[i]}, "0",
                      "exact only without a binary, mixture or cure trait that these traits have free "
                      "covariances with");
    }
}

void allocate_part(const model_records& m, const directives& asked, residual_part& part,
                   matrix_draw_work& matrix_work, reporting& report) {
  const std::int64_t p = order_of(part);
  for (mat<double>* x : {&part.R, &part.S, &part.S_inverse, &part.W})
    allocate(report, *x, "R", routine, p, p);
  allocate(report, part.SCALE, "SCALE", routine, p);
  part.SCALE.fill(1.0);
  for (mat<double>* x : {&part.V, &part.V_inverse}) allocate(report, *x, "V", routine, p - 1, p - 1);
  allocate(report, part.A, "A", routine, p, p);
  for (mat<double>* x : {&part.B, &part.T}) allocate(report, *x, "B", routine, p, p);
  for (vec<double>* x : {&part.m, &part.z}) allocate(report, *x, "m", routine, p);
  fit_matrix_work(report, matrix_work, static_cast<std::int32_t>(p));
  prepare_part_draw(m, asked, part.traits, part.constrained, matrix_work, report);
}

// out = the rows and columns of x that belong to the part
void take_part(const double* x, std::int64_t ld, const residual_part& part, mat<double>& out) {
  for (std::int32_t j = 1; j <= order_of(part); ++j)
    for (std::int32_t i = 1; i <= order_of(part); ++i)
      out(i, j) = x[(part.traits[static_cast<std::size_t>(i - 1)] - 1) +
                    (part.traits[static_cast<std::size_t>(j - 1)] - 1) * ld];
}

[[noreturn]] void singular(reporting& report) {
  computation_impossible(report, "sample_covariances", "singular sums of squares of a part of the residual");
}

// The rows of the part but j, 0-based, of position k of the others.
std::int32_t other(std::int32_t k, std::int32_t j) { return k < j ? k : k + 1; }

// V^-1 of the traits other than j (from 0)
void invert_others(residual_part& part, std::int32_t j, reporting& report) {
  const std::int32_t n = order_of(part) - 1;
  for (std::int32_t a = 0; a < n; ++a)
    for (std::int32_t b = 0; b < n; ++b) part.V(a + 1, b + 1) = part.R(other(a, j) + 1, other(b, j) + 1);
  double logdet = 0;
  int info = 0;
  inverse_logdet(part.V, part.V_inverse, n, logdet, info);
  if (info != 0) singular(report);
}

// Row and column j (from 0) of R from its full conditional distribution given the others.
void draw_row(reporting& report, random_sources& sources, residual_part& part, std::int32_t j,
              std::int64_t df) {
  const std::int32_t p = order_of(part), n = p - 1;
  const std::vector<std::int32_t>& free = part.free[static_cast<std::size_t>(j)];
  const auto s = static_cast<std::int32_t>(free.size());
  const auto place = [&](std::int32_t k) { // of free trait k among the others, from 1
    const std::int32_t i = free[static_cast<std::size_t>(k - 1)];
    return i < j ? i + 1 : i;
  };
  const auto S = [&](std::int32_t a, std::int32_t b) {
    return part.S(other(a - 1, j) + 1, other(b - 1, j) + 1);
  };
  invert_others(part, j, report);
  // T = V^-1 C (n x s), B = S_oo T, A = T'B, m = T'S_oj
  for (std::int32_t k = 1; k <= s; ++k)
    for (std::int32_t a = 1; a <= n; ++a) part.T(a, k) = part.V_inverse(a, place(k));
  for (std::int32_t k = 1; k <= s; ++k)
    for (std::int32_t a = 1; a <= n; ++a) {
      double sum = 0;
      for (std::int32_t b = 1; b <= n; ++b) sum += S(a, b) * part.T(b, k);
      part.B(a, k) = sum;
    }
  for (std::int32_t k = 1; k <= s; ++k) {
    for (std::int32_t l = 1; l <= s; ++l) {
      double sum = 0;
      for (std::int32_t a = 1; a <= n; ++a) sum += part.T(a, k) * part.B(a, l);
      part.A(k, l) = sum;
    }
    double sum = 0;
    for (std::int32_t a = 1; a <= n; ++a) sum += part.T(a, k) * part.S(other(a - 1, j) + 1, j + 1);
    part.m(k) = part.z(k) = sum;
  }
  // A = L L', m = A^-1 m; q = S_jj - m'A m
  int info = 0;
  const auto ld = static_cast<int>(part.A.extent(1));
  if (s > 0) DPOTRF(s, part.A.data(), ld, info);
  if (info == 0 && s > 0) DPOTRS(s, 1, part.A.data(), ld, part.m.data(), s, info);
  if (info != 0) singular(report);
  double q = part.S(j + 1, j + 1);
  for (std::int32_t k = 1; k <= s; ++k) q -= part.m(k) * part.z(k);
  if (!(q > 0.0)) singular(report);
  const std::int64_t shape_df = df + p - 1 - s;
  if (shape_df < 1)
    computation_impossible(report, "sample_covariances",
                           fmt::format("df = {} of a row of the residual", shape_df));
  const double chi_square =
      2.0 * static_cast<double>(sgamma(sources.combined, static_cast<float>(shape_df) / 2.0F, sources.gamma));
  const double g = q / chi_square;
  // s = m + g^1/2 L'^-1 z
  for (std::int32_t k = 1; k <= s; ++k) part.z(k) = normal_draw(sources.combined);
  for (std::int32_t k = s; k >= 1; --k) {
    for (std::int32_t l = k + 1; l <= s; ++l) part.z(k) -= part.A(l, k) * part.z(l);
    part.z(k) /= part.A(k, k);
  }
  for (std::int32_t k = 1; k <= s; ++k) part.m(k) += std::sqrt(g) * part.z(k);
  // R_oj = C s, R_jj = g + s'C'V^-1 C s
  double diagonal = g;
  for (std::int32_t k = 1; k <= s; ++k) {
    for (std::int32_t l = 1; l <= s; ++l)
      diagonal += part.m(k) * part.V_inverse(place(k), place(l)) * part.m(l);
    const std::int32_t i = free[static_cast<std::size_t>(k - 1)] + 1;
    part.R(i, j + 1) = part.R(j + 1, i) = part.m(k);
  }
  part.R(j + 1, j + 1) = diagonal;
}

// W of a part without pairs held at zero.
void draw_whole(reporting& report, random_sources& sources, residual_part& part, std::int64_t df,
                matrix_draw_work& matrix_work) {
  const std::int32_t p = order_of(part);
  double logdet = 0;
  int info = 0;
  inverse_logdet(part.S, part.S_inverse, p, logdet, info);
  if (info != 0) singular(report);
  if (part.constrained.lists.C.empty()) {
    rinvwish(report, sources, part.W.data(), p, part.S_inverse.data(), p, p, df, matrix_work);
    return;
  }
  std::copy(part.S.begin(), part.S.end(), part.constrained.S.begin());
  std::copy(part.S_inverse.begin(), part.S_inverse.end(), part.constrained.A.begin());
  rinvwish_con(report, sources, part.constrained, part.R.data(), df, part.W, part.SCALE, matrix_work);
}

} // namespace

free_part free_part_of(const model_records& m, std::int32_t t, reporting& report) {
  const mat<logical> held = held_pairs(m, report);
  std::vector<logical> taken(static_cast<std::size_t>(m.nt), 0);
  free_part part;
  part.traits = part_of(m, held, t, taken);
  for (const std::int32_t i : part.traits) {
    if (i != t && held(i, t) == 0 && !zero_by_kind(m.MODEL(i).TRAIT_TYPE, m.MODEL(t).TRAIT_TYPE)) ++part.free;
    for (const std::int32_t j : part.traits) part.held = part.held || held(i, j) != 0;
  }
  return part;
}

void find_residual_parts(const model_records& m, const directives& asked, residual_parts& parts,
                         matrix_draw_work& matrix_work, reporting& report) {
  const mat<logical> held = held_pairs(m, report);
  std::vector<logical> taken(static_cast<std::size_t>(m.nt), 0);
  for (std::int32_t t = 1; t <= m.nt; ++t) {
    if (taken[static_cast<std::size_t>(t - 1)] != 0) continue;
    residual_part& part = parts.parts.emplace_back();
    part.traits = part_of(m, held, t, taken);
    describe_part(m, held, part, report);
  }
  if (parts.parts.size() == 1 && !parts.parts[0].held) {
    parts.parts.clear();
    return;
  }
  for (residual_part& part : parts.parts) allocate_part(m, asked, part, matrix_work, report);
}

void draw_residual_parts(reporting& report, random_sources& sources, residual_parts& parts, const double* R,
                         std::int64_t records, std::int64_t prior_df, mat<double>& W,
                         matrix_draw_work& matrix_work) {
  const auto nt = static_cast<std::int32_t>(W.extent(1));
  for (residual_part& part : parts.parts) {
    take_part(W.data(), nt, part, part.S);
    take_part(R, nt, part, part.R);
  }
  W.fill(0.0);
  for (residual_part& part : parts.parts) {
    const std::int32_t p = order_of(part);
    const std::int64_t df = prior_df > nt + 1 ? records + prior_df - nt + p : records - p - 1;
    if (part.held) {
      for (std::int32_t j = 0; j < p; ++j) draw_row(report, sources, part, j, df);
      std::copy(part.R.begin(), part.R.end(), part.W.begin());
    } else {
      draw_whole(report, sources, part, df, matrix_work);
    }
    for (std::int32_t j = 1; j <= p; ++j)
      for (std::int32_t i = 1; i <= p; ++i)
        W(part.traits[static_cast<std::size_t>(i - 1)], part.traits[static_cast<std::size_t>(j - 1)]) =
            part.W(i, j);
  }
}

} // namespace zeph
