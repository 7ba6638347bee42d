#include "jump/dimension_conversion.h"

#include "formats/free_format.h"
#include "jump/conditional_wishart.h"
#include "jump/jump_store.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "numerics/cholesky_family.h"
#include "numerics/normal_draws.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

namespace zeph {
namespace {

constexpr double least_pivot = 1.0E-12;
constexpr double largest_ratio = 3.0;                            // of the first to the last aijmax
constexpr double least_data = static_cast<double>(1.2F);         // below: too few data for a conversion
constexpr double one_parent = static_cast<double>(0.8660254F);   // root of 3/4
constexpr double two_parents = static_cast<double>(0.70710677F); // root of 1/2
constexpr std::int32_t printed_order = 4;
constexpr std::int32_t unprinted_order = 30;

std::string labelled(std::string_view label, const mat<double>& x) {
  free_row row;
  row.text(label);
  for (const double value : x) row.r8(value);
  return row.str();
}

std::string labelled(std::string_view label, const double* x, std::int64_t ld, std::int32_t n) {
  free_row row;
  row.text(label);
  for (std::int32_t j = 0; j < n; ++j)
    for (std::int32_t i = 0; i < n; ++i) row.r8(x[i + j * ld]);
  return row.str();
}

// ---- the new row of the matrix ----

[[noreturn]] void stop_sampled(reporting& report, const conditional_wishart& c, const mat<double>& whole,
                               const mat<double>& inverse) {
  say(report, labelled("Matrix sampled in sciwhinag", whole));
  say(report, labelled("Inverse is", inverse));
  say(report, labelled("Lambda=", c.L));
  say(report, labelled("LittleR", c.T));
  say(report, labelled("npd matrix sampled", whole));
  stop_run(report, exit_diagnosed);
}

// T = inverse of a Wishart matrix (df, L11).
void draw_little(reporting& report, random_sources& sources, matrix_draw_work& work, conditional_wishart& c,
                 std::int64_t df) {
  mat<double> X;
  allocate(report, X, "X", "sciwhinag", c.r, c.r);
  // X Wishart (df, L11): its inverse is inverse Wishart (df, L11^-1)
  wishart_draw(report, sources, X.data(), c.r, c.L.data(), c.n, c.r, df, work);
  invert_or_stop(report, "LittleT1", X, c.r, c.T);
}

// Rows m+1..n of cov from T and the cross block x:
//   X_rr = T + X_rm V^-1 X_rm'
void assemble(const conditional_wishart& c, double* cov, std::int64_t ld) {
  const std::int32_t m = c.m;
  const auto cross = [&](std::int32_t i, std::int32_t a) { return c.x((i - 1) * m + a); };
  for (std::int32_t i = 1; i <= c.r; ++i) {
    for (std::int32_t a = 1; a <= m; ++a)
      cov[(m + i - 1) + (a - 1) * ld] = cov[(a - 1) + (m + i - 1) * ld] = cross(i, a);
    for (std::int32_t j = 1; j <= i; ++j) {
      double x = c.T(i, j);
      for (std::int32_t a = 1; a <= m; ++a)
        for (std::int32_t b = 1; b <= m; ++b) x += cross(i, a) * c.Vinv(a, b) * cross(j, b);
      cov[(m + i - 1) + (m + j - 1) * ld] = cov[(m + j - 1) + (m + i - 1) * ld] = x;
    }
  }
}

void test_sampled(reporting& report, const conditional_wishart& c, const double* cov, std::int64_t ld) {
  mat<double> whole, inverse;
  allocate(report, whole, "cov", "sciwhinag", c.n, c.n);
  allocate(report, inverse, "inverse", "sciwhinag", c.n, c.n);
  for (std::int32_t j = 1; j <= c.n; ++j)
    for (std::int32_t i = 1; i <= c.n; ++i) whole(i, j) = cov[(i - 1) + (j - 1) * ld];
  double logdet = 0;
  int info = 0;
  inverse_logdet(whole, inverse, c.n, logdet, info);
  if (info != 0) stop_sampled(report, c, whole, inverse);
}

// ---- conversion of a level ----

// Rank of the lower triangle of a, factored in place as by `chol_semi`. A negative pivot ends it
// with the rank reached so far. root: product of the diagonal so far, zeros left out.
std::int32_t rank_so_far(mat<double>& a, std::int32_t n, double& root) {
  std::int32_t rank = 0;
  root = 1.0;
  for (std::int32_t i = 1; i <= n; ++i) {
    // d = a_ii - sum over k < i of l_ik^2
    double d = a(i, i);
    for (std::int32_t k = 1; k < i; ++k) d -= a(i, k) * a(i, k);
    if (std::fabs(d) < pivot_zero) {
      for (std::int32_t j = i; j <= n; ++j) a(j, i) = 0.0;
      continue;
    }
    if (d < 0.0) return rank;
    a(i, i) = std::sqrt(d);
    root *= a(i, i);
    ++rank;
    for (std::int32_t j = i + 1; j <= n; ++j) {
      double product = 0.0;
      for (std::int32_t k = 1; k < i; ++k) product += a(j, k) * a(i, k);
      a(j, i) = (a(j, i) - product) / a(i, i);
    }
  }
  return rank;
}

// pn = [D (D + ginv)^-1, 0; -b'/cstd, 1/cstd]
void make_conversion(reporting& report, conversion_work& work, const double* block, const conversion_terms& t,
                     std::string_view where) {
  const std::int32_t p = t.n - 1;
  for (std::int32_t i = 1; i <= p; ++i)
    for (std::int32_t j = 1; j <= p; ++j) {
      // M = D + ginv, p x p, both packed; D is the data block of the large model, whose leading part is used
      const std::int32_t at = ihmij(i, j, t.n) - 1;
      work.M(i, j) = block[at] + t.ginv[at];
    }
  double logdet = 0;
  int info = 0;
  inverse_logdet(work.M, work.Minv, p, logdet, info);
  if (info != 0) {
    say(report, labelled("Conversion matrix is singular in " + std::string(where), work.M.data(),
                         work.M.extent(1), p));
    stop_run(report, exit_diagnosed);
  }
  for (std::int32_t j = 1; j <= p; ++j) {
    for (std::int32_t i = 1; i <= p; ++i) {
      // pn(1:p,1:p) = D M^-1; last row (-b'/cstd, 1/cstd), last column 0 above it
      double c = 0;
      for (std::int32_t k = 1; k <= p; ++k) c += block[ihmij(i, k, t.n) - 1] * work.Minv(k, j);
      work.pn(i, j) = c;
    }
    work.pn(t.n, j) = -t.b[j - 1] / t.cstd;
    work.pn(j, t.n) = 0;
  }
  work.pn(t.n, t.n) = 1.0 / t.cstd;
}

// True when the whole conversion may be used; root: product of the diagonal of its factor.
bool conversion_is_complete(reporting& report, conversion_work& work, std::int32_t level, std::int32_t n,
                            std::string_view where, double& root) {
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t i = 1; i <= n; ++i) work.pn_lost(i, j) = work.pn(i, j);
  // its factor destroys pn_lost; root: product of the diagonal, so that ln det pn is taken as 2 ln root
  const std::int32_t rank = rank_so_far(work.pn_lost, n, root);
  if (rank < n && !work.singular_told) {
    const std::string text = "Complete conversion singular in " + std::string(where) + ":idim,irank";
    say(report, free_row().text(text).i(level).i(n).i(rank).str());
    work.singular_told = true;
  }
  return rank >= n && !(work.aijmax(1) / work.aijmax(n) > largest_ratio);
}

// out = pn' w
void convert(const conversion_work& work, std::int32_t n, const double* w, double* out) {
  for (std::int32_t j = 1; j <= n; ++j) {
    double x = 0;
    for (std::int32_t i = 1; i <= n; ++i) x += work.pn(i, j) * w[i - 1];
    out[j - 1] = x;
  }
}

// ---- levels of an identity factor ----

// The matrix of order n swept on rows 1..n-1: ginv is their inverse, b the
// coefficients of row n, cstd its conditional standard deviation.
conversion_terms sweep_matrix(reporting& report, conversion_work& work, const mat<double>& cov,
                              std::int32_t n) {
  double* packed = work.packed.data();
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int32_t j = 1; j <= i; ++j) packed[ihmij(i, j, n) - 1] = cov(i, j);
  if (n == printed_order) say(report, labelled("gm", cov.data(), cov.extent(1), n));
  std::fill_n(work.swept.data(), n, logical{0});
  bool definite = true;
  const auto sweep_row = [&](std::int32_t i) {
    double pivot = 0;
    int info = 0;
    sweep(i, packed, n, least_pivot, work.swept.data(), pivot, info);
    return pivot;
  };
  // rows 1..n-1 swept: their block is ginv, row n holds b and the conditional variance
  for (std::int32_t i = 1; i < n; ++i)
    if (!(sweep_row(i) >= least_pivot)) definite = false;
  std::copy_n(packed, n * (n - 1) / 2, work.ginv.data());
  if (!(sweep_row(n) >= least_pivot)) definite = false;
  if (!definite) {
    say(report, "Input covariance matrix n.p.d. in samppegm");
    say(report, labelled("gm", cov.data(), cov.extent(1), n));
    stop_run(report, exit_diagnosed);
  }
  sweep_row(n); // undone: row n holds the coefficients, positive, and the conditional variance
  std::copy_n(packed + n * (n - 1) / 2, n - 1, work.b.data());
  return {n, work.ginv.data(), work.b.data(), std::sqrt(packed[ihmij(n, n, n) - 1])};
}

double conditional_mean(const conversion_terms& t, const double* u) {
  double mean = 0;
  for (std::int32_t j = 0; j < t.n - 1; ++j) mean += t.b[j] * u[j];
  return mean;
}

// ---- levels of a pedigree factor ----

// Known parents of a level: how many, and the sum of their values of row m of sol.
struct parent_sum {
  std::int32_t known = 0;
  double sum = 0;
};

template <class Value>
parent_sum parents_of(const mat<std::int32_t>& pedmat, std::int32_t level, Value value) {
  // a negative parent is a group of parents; its number is a level too
  parent_sum of;
  for (std::int32_t x = 1; x <= 2; ++x) {
    const std::int32_t parent = std::abs(pedmat(x, level));
    if (parent == 0) continue;
    ++of.known;
    of.sum += value(parent);
  }
  return of;
}

// Root of the share of the variance that known parents leave: 1, 3/4, 1/2, as 32-bit roots. Inbreeding of
// the parents is not counted.
double segregation(std::int32_t known) { return known == 0 ? 1.0 : known == 1 ? one_parent : two_parents; }

// work(n,j), j < n: coefficients of row n of the packed matrix; its conditional standard deviation.
float sweep_pedigree_matrix(jump_store& jump, std::int32_t n) {
  conversion_work& work = jump.conversion;
  for (std::int32_t i = 1; i <= n; ++i)
    for (std::int32_t j = 1; j <= i; ++j) work.packed(ihmij(i, j, n)) = jump.cov_new(i, j);
  std::fill_n(work.swept.data(), n, logical{0});
  for (std::int32_t i = 1; i < n; ++i) {
    double pivot = 0;
    int info = 0;
    sweep(i, work.packed.data(), n, least_pivot, work.swept.data(), pivot, info);
  }
  std::copy_n(work.packed.data() + n * (n - 1) / 2, n - 1, work.b.data());
  // kept: the standard deviation is a 32-bit number
  return static_cast<float>(std::sqrt(work.packed(ihmij(n, n, n))));
}

} // namespace

void fit_conversion_work(reporting& report, conversion_work& work, std::int32_t order) {
  constexpr std::string_view routine = "samppegm";
  const std::int64_t n = order;
  allocate(report, work.aijmax, "aijmax", routine, n);
  work.aijmax.fill(1.0);
  if (n > 0) work.aijmax(1) = 4.0;
  allocate(report, work.M, "M", routine, n, n);
  allocate(report, work.Minv, "Minv", routine, n, n);
  allocate(report, work.pn, "pn", routine, n, n);
  allocate(report, work.pn_lost, "pn", routine, n, n);
  allocate(report, work.packed, "packed", routine, n * (n + 1) / 2);
  allocate(report, work.swept, "LOGI", routine, n);
  allocate(report, work.ginv, "ginv", routine, n * (n + 1) / 2);
  allocate(report, work.b, "b", routine, n);
  allocate(report, work.w, "w", routine, n);
}

void sciwhinag(reporting& report, random_sources& sources, matrix_draw_work& work, std::int32_t n,
               std::int32_t m, double* cov, std::int64_t ld, std::int64_t df, const double* scale,
               std::int64_t lds) {
  conditional_wishart c;
  describe_conditional(report, c, n, m, cov, ld, scale, lds);
  if (n > unprinted_order) {
    say(report, "before");
    say(report, labelled("", cov, ld, n));
    say(report, labelled("", scale, lds, n));
  }
  invert_or_stop(report, "T3inv", c.V, m, c.Vinv);
  draw_little(report, sources, work, c, df);
  invert_or_stop(report, "Lambda11", c.L, c.r, c.L11i);
  find_moments(c);
  describe_cross_block(c);
  mvn_draw(report, sources.combined, c.x.data(), c.mean.data(), c.cov.data(), c.cov.extent(1), c.r * m, work);
  assemble(c, cov, ld);
  test_sampled(report, c, cov, ld);
  if (n > unprinted_order) {
    say(report, "after");
    say(report, labelled("", cov, ld, n));
    say(report, labelled("", scale, lds, n));
  }
}

void pup(reporting& report, conversion_work& work, std::int32_t level, const double* block,
         const conversion_terms& t, double elast, double z, const double* u, double* out, double& jacobian) {
  // w = (u, u_n), u_n = b'u + cstd z: d u_n / d z = cstd
  make_conversion(report, work, block, t, "pup");
  double* w = work.w.data();
  std::copy_n(u, t.n - 1, w);
  w[t.n - 1] = elast + t.cstd * z;
  jacobian += std::log(t.cstd);
  double root = 1.0;
  if (!conversion_is_complete(report, work, level, t.n, "pup", root)) {
    std::copy_n(w, t.n, out);
    return;
  }
  convert(work, t.n, w, out);
  // kept: twice the log of the product of the factor's diagonal, as if pn were symmetric
  jacobian += std::log(root * root);
}

void pdn(reporting& report, conversion_work& work, std::int32_t level, const double* block,
         const conversion_terms& t, const double* u, double* out, double& jacobian) {
  double root = 1.0;
  // a level with next to no data takes the simple conversion
  if (!(block[0] < least_data)) {
    make_conversion(report, work, block, t, "pdn");
    if (conversion_is_complete(report, work, level, t.n, "pdn", root)) {
      convert(work, t.n, u, out);
      jacobian += std::log(root * root);
      return;
    }
  }
  std::copy_n(u, t.n, out);
  jacobian += std::log(t.cstd);
}

void samppegm(jump_records& r, std::int32_t k) {
  jump_store& jump = r.jump;
  reporting& report = r.scan.report;
  conversion_work& work = jump.conversion;
  const std::int32_t n = jump.large_model[static_cast<std::size_t>(k - 1)], levels = r.model.NRALEV(k);
  const std::int64_t stride = r.model.RMAT(k).n_rc;
  const conversion_terms t = sweep_matrix(report, work, jump.cov_new, n);
  mat<double>& CDI = r.scan.layout.CDI_of(r.scan.layout.group_of_factor(k, r.model.nramat));
  std::fill_n(jump.conv_sol.data(), levels * stride, 0.0);
  work.singular_told = false;
  if (!jump.jump_down) ranmar_kr_normals(r.scan.sources.marsaglia, jump.prop_z.data(), levels);
  double* u = r.scan.sampler.sol.data() + r.model.NBEGRA(k);
  double* out = jump.conv_sol.data();
  for (std::int32_t l = 1; l <= levels; ++l, u += stride, out += stride) {
    // down: z of the present u_n; up: u_n from a new z. One z a level, drawn together before the walk.
    const double elast = conditional_mean(t, u);
    if (jump.jump_down) {
      jump.prop_z(l) = (u[n - 1] - elast) / t.cstd;
      pdn(report, work, l, CDI.unchecked_col(l), t, u, out, jump.jacobian);
    } else {
      u[n - 1] = t.cstd * jump.prop_z(l) + elast;
      pup(report, work, l, CDI.unchecked_col(l), t, elast, jump.prop_z(l), u, out, jump.jacobian);
    }
  }
}

void sampanim(jump_records& r, std::int32_t k) {
  jump_store& jump = r.jump;
  reporting& report = r.scan.report;
  const std::int32_t m = jump.new_model[static_cast<std::size_t>(k - 1)];
  say(report, "Start on sampanim");
  if (m < 2) {
    say(report, free_row().text("Attempt to increase model to ").i(m).text("for effect ").i(k).str());
    stop_run(report, exit_diagnosed);
  }
  const std::int32_t n = jump.imax;
  const std::int64_t stride = r.model.RMAT(k).n_rc;
  const double sd = static_cast<double>(sweep_pedigree_matrix(jump, n));
  const double* b = jump.conversion.b.data();
  double* sol = r.scan.sampler.sol.data() + r.model.NBEGRA(k);
  const mat<std::int32_t>& pedmat = r.scan.relations.pedmat;
  const auto row = [&](std::int32_t level) { return sol + (level - 1) * stride; };
  const auto regression = [&](std::int32_t level) {
    double sum = 0;
    for (std::int32_t j = 0; j < n - 1; ++j) sum += b[j] * row(level)[j];
    return sum;
  };
  if (jump.jump_down) {
    // t = sol of trait n less its regression, then the draw of the way up solved for z
    const auto deviation = [&](std::int32_t level) { return row(level)[n - 1] - regression(level); };
    for (const std::int32_t level : jump.settled) {
      const parent_sum parents = parents_of(pedmat, level, deviation);
      const double scale = segregation(parents.known) * sd;
      jump.prop_z(level) = (deviation(level) - 0.5 * parents.sum) / scale;
      jump.jacobian += std::log(scale);
    }
  } else {
    for (const std::int32_t level : jump.settled) {
      // up, generation by generation: u_n(l) = half the parents' sum + c_l sd z, the parents' values without
      // their regression, which all levels get afterwards
      const parent_sum parents = parents_of(pedmat, level, [&](std::int32_t p) { return row(p)[n - 1]; });
      const double scale = segregation(parents.known) * sd;
      ranmar_kr_normals(r.scan.sources.marsaglia, &jump.prop_z(level), 1);
      row(level)[n - 1] = 0.5 * parents.sum + scale * jump.prop_z(level);
      jump.jacobian += std::log(scale);
    }
    for (const std::int32_t level : jump.settled) row(level)[n - 1] += regression(level);
  }
  std::copy_n(sol, r.model.NRALEV(k) * stride, jump.conv_sol.data());
}

} // namespace zeph
