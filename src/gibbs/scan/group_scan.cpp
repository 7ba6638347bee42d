#include "gibbs/scan/group_scan.h"

#include "formats/free_format.h"
#include "gibbs/scan/scan_records.h"
#include "input/structures.h"
#include "listing/listing_rows.h"
#include "listing/reporting.h"
#include "listing/stops.h"
#include "listing/work_files.h"
#include "numerics/lapack_calls.h"
#include "numerics/normal_draws.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

constexpr std::int64_t redraws_between_looks = 1000000; // of mixture distances
constexpr double largest_snorm = 5.3;                   // ranmar_snorm, of 24-bit uniforms, gives none beyond

// bordered = (C b; b' 0), packed, no row swept: C the block, b its right-hand sides
void border_block(level_work& work, const double* block, const double* rhs, std::int32_t n) {
  const std::int32_t packed = n * (n + 1) / 2;
  double* parm = work.bordered.data();
  std::copy_n(block, packed, parm);
  std::copy_n(rhs, n, parm + packed);
  parm[packed + n] = 0;
  std::fill_n(work.swept.data(), n + 1, logical{0});
}

void say_dependency(reporting& report, const round_state& state, std::int32_t g, std::int32_t l,
                    std::int32_t k, double pivot) {
  say(report, free_row()
                  .text("Round ")
                  .i(state.iround)
                  .text(" Linear dependency in group= ")
                  .i(g)
                  .text("Level= ")
                  .i(l)
                  .text("Equation= ")
                  .i(k)
                  .text("Diagonal= ")
                  .r8(pivot)
                  .str());
}

// The whole block as it was and as it was swept, two lines an element; each pair counts as one line.
void say_block(const level_work& work, reporting& report, scan_stage stage, const double* block,
               std::int32_t g, std::int32_t l, std::int32_t n) {
  say(report, free_row().text("Error in diagonal block").i(g).i(l).str());
  std::int32_t element = 0;
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t j1 = 1; j1 <= j; ++j1) {
      ++element;
      say(report, free_row().text("j,j1,k,l : ").i(j).i(j1).i(g).i(element).str());
      say(report, free_row().i(j).i(j1).r8(block[element - 1]).r8(work.swept_block(element)).str());
      ++report.nlines;
      if (report.nlines <= largest_listing) continue;
      say(report);
      // kept: the two forms of the scan spell it differently
      say(report, stage == scan_stage::all ? "More then 1000 lines printed" : "More than 1000 lines printed");
      say(report, "Program terminates");
      stop_run(report, exit_diagnosed);
    }
}

// bordered = (C^-1 x; x' .), C x = b, by sweeps on the n equations of level l of group g. A small
// pivot is reported with the block and counted in state.ist.
void sweep_block(const equation_layout& layout, const sampler_store& sampler, level_work& work,
                 reporting& report, round_state& state, scan_stage stage, std::int32_t g, std::int32_t l,
                 std::int32_t n) {
  const std::int64_t e0 = layout.group(g).base + (l - 1) * layout.group(g).stride;
  const double* block = layout.DI_of(g).unchecked_col(l);
  border_block(work, block, sampler.RHS.data() + e0, n);
  double* parm = work.bordered.data();
  state.ist = 0;
  // n sweeps: (C b; b' 0) becomes (C^-1 x; x' -b'x), packed
  for (std::int32_t k = 1; k <= n; ++k) {
    double pivot = 0;
    int info = 0;
    sweep(k, parm, n + 1, sweep_tolerance, work.swept.data(), pivot, info);
    if (pivot > dependency_pivot) continue;
    say_dependency(report, state, g, l, k, pivot);
    ++state.ist;
  }
  if (state.ist == 0) return;
  std::copy_n(parm, n * (n + 1) / 2, work.swept_block.data());
  say_block(work, report, stage, block, g, l, n);
}

// c = the packed block, lower triangle, leading dimension n
void unpack_block(const double* block, std::int32_t n, double* c) {
  for (std::int32_t i = 0; i < n; ++i)
    for (std::int32_t j = 0; j <= i; ++j) c[i + j * n] = *block++;
}

// w = L'^-1 z, from the last element up
void solve_transposed(const double* L, std::int32_t n, const double* z, double* w) {
  for (std::int32_t i = n - 1; i >= 0; --i) {
    double sum = 0;
    for (std::int32_t j = i + 1; j < n; ++j) sum += L[j + i * n] * w[j];
    w[i] = (z[i] - sum) / L[i + i * n];
  }
}

// Element (x,x) of the inverse of L L', x from 0; y is work of n.
double inverse_element(const double* L, std::int32_t n, std::int32_t x, double* y) {
  double sum = 0;
  // y = L^-1 i_x, i_x column x of the identity: y_i = (delta_ix - sum over j < i of l_ij y_j) / l_ii;
  // (C^-1)_xx = y'y
  for (std::int32_t i = x; i < n; ++i) {
    double dot = i == x ? -1.0 : 0.0;
    for (std::int32_t j = x; j < i; ++j) dot += L[i + j * n] * y[j];
    y[i] = -dot / L[i + i * n];
    sum += y[i] * y[i];
  }
  return sum;
}

// Distances are drawn again as often as it takes. A round that could never end, since
// no normals bring a distance up from its mean, or whose end nobody waits for (STOP),
// ends the run. variance(x): of equation x, from 0.
template <class Variance>
void judge_redraws(const level_work& work, reporting& report, std::int64_t redraws, const double* mean,
                   std::int32_t n, Variance&& variance) {
  if (redraws % redraws_between_looks != 0) return;
  bool hopeless = file_exists(report, "STOP");
  // w_e is a sum of n normals with coefficients of squared length (C^-1)_ee: by Cauchy and Schwarz
  // |w_e| <= ((C^-1)_ee n)^1/2 max |z|, so that a distance beyond that bound can never be reached
  for (const std::int32_t e : work.distances)
    hopeless = hopeless || mean[e - 1] + largest_snorm * std::sqrt(n * variance(e - 1)) < least_distance;
  if (!hopeless) return;
  computation_impossible(report, "GIBSCAN",
                         free_row()
                             .text("no positive mixture distance in")
                             .i(redraws)
                             .text("draws of the plain regressions")
                             .str());
}

} // namespace

void allocate_level_work(const model_records& m, const equation_layout& layout, level_work& work,
                         reporting& report) {
  std::int32_t n = 0;
  for (std::int32_t g = 1; g <= layout.ngroups; ++g) n = std::max(n, layout.NGR(g, 2));
  const std::int64_t order = std::int64_t{n} + 1, packed = order * (order + 1) / 2;
  work.nmax = n;
  // packed: the triangle of order n + 1, block and border. The two names of an array are those that the
  // message prints when its storage fails.
  allocate(report, work.bordered, "PARM", "ZEPH2", packed);
  allocate(report, work.swept, "LOGI", "ZEPH2", order);
  allocate(report, work.swept_block, "PARMS", "GIBSCAN", packed);
  allocate(report, work.link_sums, "IPARM", "GIBSCAN", n);
  allocate(report, work.C, "CMAT", "GIBSCAN", std::int64_t{n} * n);
  allocate(report, work.mean, "MEAN", "ZEPH2", order);
  allocate(report, work.z, "WORK", "ZEPH2", order);
  allocate(report, work.w, "W", "GIBSCAN", order);
  allocate(report, work.x, "X", "ZEPH2", order);
  fit_matrix_work(report, work.draw, n);
  work.distances = mixture_distances(m);
}

void stop_at_block(reporting& report, std::int32_t g, std::string_view routine, int info) {
  say(report, free_row().text("Group: ").i(g).text(routine).i(info).str());
  stop_run(report, exit_block_factor);
}

void subtract_links(const model_records& model, const relationship_store& relations, sampler_store& sampler,
                    level_work& work, std::int32_t k, std::int32_t l, std::int32_t p) {
  const relationship_rows& rows = relations.of(k);
  const std::int64_t first = rows.start(l), last = rows.start(l + 1);
  if (first == last) return;
  const std::int64_t base = model.NBEGRA(k), stride = model.RMAT(k).n_rc;
  double* sums = work.link_sums.data(); // sums = sum over c of a(l,c) sol(c), p rows
  std::fill_n(sums, p, 0.0);
  const double* sol = sampler.sol.data() + base;
  for (std::int64_t node = first; node < last; ++node) {
    // c = rows.col(node): its solution is new when c < l, of the last round when c > l
    const double a = rows.val(node);
    const double* other = sol + (rows.col(node) - 1) * stride;
    for (std::int32_t j = 0; j < p; ++j) sums[j] += a * other[j];
  }
  double* rhs = sampler.RHS.data() + base + (l - 1) * stride;
  for (std::int32_t i = 1; i <= p; ++i) { // RHS -= GIF sums
    double link = 0;
    for (std::int32_t j = 1; j <= p; ++j) link += sampler.GIF(i, j, k) * sums[j - 1];
    rhs[i - 1] -= link;
  }
}

void solve_level(const equation_layout& layout, sampler_store& sampler, level_work& work, reporting& report,
                 round_state& state, scan_stage stage, std::int32_t g, std::int32_t l, solver_sums& sums) {
  const std::int32_t n = layout.NGR(g, 2);
  const std::int64_t e0 = layout.group(g).base + (l - 1) * layout.group(g).stride;
  sweep_block(layout, sampler, work, report, state, stage, g, l, n);
  const double* parm = work.bordered.data();
  const std::int32_t packed = n * (n + 1) / 2;
  double* sol = sampler.sol.data() + e0;
  for (std::int32_t i = 0; i < n; ++i) {
    // found: element i of C^-1 RHS, in the border after the sweeps
    const double before = sol[i], found = parm[packed + i];
    sums.ssd += (before - found) * (before - found);
    sums.ssq += before * before;
    sol[i] = (found - before) * sums.omega + found; // over-relaxed by omega
  }
}

void sample_level(const equation_layout& layout, sampler_store& sampler, level_work& work, reporting& report,
                  chain_counts& counts, ranmar_draws& draws, std::int32_t g, std::int32_t l, bool relaxed) {
  const std::int32_t n = layout.NGR(g, 2);
  const std::int64_t e0 = layout.group(g).base + (l - 1) * layout.group(g).stride;
  double *c = work.C.data(), *mean = work.mean.data(), *z = work.z.data(), *w = work.w.data();
  unpack_block(layout.DI_of(g).unchecked_col(l), n, c); // C = L L', mean = C^-1 RHS
  std::copy_n(sampler.RHS.data() + e0, n, mean);
  int info = 0;
  DPOTRF(n, c, n, info);
  if (info != 0) stop_at_block(report, g, " 1 potrf info= ", info);
  DPOTRS(n, 1, c, n, mean, n, info);
  if (info != 0) stop_at_block(report, g, " 1 potrs info= ", info);
  // n normals a level, in the order of its equations
  for (std::int32_t i = 0; i < n; ++i) z[i] = ranmar_snorm(draws);
  solve_transposed(c, n, z, w); // w = L'^-1 z, of covariance C^-1
  // a mixture distance below least_distance: all n normals again, until none is
  if (g == 1 && layout.group(g).kind == group_kind::plain_regressions && !work.distances.empty() &&
      breaks_distance_rule(work.distances, mean, w)) {
    ++counts.nlabel;
    std::int64_t redraws = 0;
    do {
      judge_redraws(work, report, ++redraws, mean, n,
                    [&](std::int32_t x) { return inverse_element(c, n, x, w); });
      for (std::int32_t i = 0; i < n; ++i) z[i] = ranmar_snorm(draws);
      solve_transposed(c, n, z, w);
    } while (breaks_distance_rule(work.distances, mean, w));
  }
  if (relaxed) {
    for (std::int32_t i = 0; i < n; ++i) {
      double& u = sampler.sol(e0 + i + 1);
      u = mean[i] + draw_relaxation * (u - mean[i]) + relaxed_noise * w[i];
    }
    return;
  }
  for (std::int32_t i = 0; i < n; ++i) sampler.sol(e0 + i + 1) = mean[i] + w[i];
}

void sample_level_swept(const equation_layout& layout, sampler_store& sampler, level_work& work,
                        marsaglia_source& marsaglia, reporting& report, round_state& state,
                        chain_counts& counts, scan_stage stage, std::int32_t g, std::int32_t l) {
  const std::int32_t n = layout.NGR(g, 2);
  const std::int64_t e0 = layout.group(g).base + (l - 1) * layout.group(g).stride;
  sweep_block(layout, sampler, work, report, state, stage, g, l, n);
  double *parm = work.bordered.data(), *c = work.C.data(), *mean = work.mean.data();
  double *x = work.x.data(), *z = work.z.data();
  // C^-1 in full and C^-1 RHS from the swept block; parm becomes the set-up of the draw: mean, U, U'U = C^-1
  const double* inverse = parm;
  for (std::int32_t i = 0; i < n; ++i)
    for (std::int32_t j = 0; j <= i; ++j) c[i + j * n] = c[j + i * n] = *inverse++;
  std::copy_n(inverse, n, mean);
  ranmar_setgmn(report, mean, c, n, n, parm, work.draw);
  // x = C^-1 RHS + U'z, n normals of the Marsaglia source
  ranmar_genmn(marsaglia, parm, x, z);
  const bool ruled = g == 1 && layout.group(g).kind == group_kind::plain_regressions;
  if (ruled && distance_too_small(work.distances, x)) {
    if (stage == scan_stage::sources)
      ++counts.nlabel;
    else
      say(report, free_row().text("Resampling of mixture distances - Round: ").i(state.iround).str());
    std::int64_t redraws = 0;
    do {
      judge_redraws(work, report, ++redraws, mean, n, [&](std::int32_t e) { return c[e + e * n]; });
      ranmar_genmn(marsaglia, parm, x, z);
    } while (distance_too_small(work.distances, x));
  }
  std::copy_n(x, n, sampler.sol.data() + e0);
}

void restrict_solutions(sampler_store& s) {
  for (std::int32_t k = 1; k <= s.n_IREST; ++k) s.sol(s.IREST(k)) = 0;
}

void say_group_start(reporting& report, std::int32_t g) {
  say(report, free_row().text("Starting on group").i(g).str());
}

namespace {

// RHS of level l less what the earlier levels that it meets in a record have changed since the group was
// entered with the solutions `entered`.
void subtract_meetings(scan_records& r, const group_meetings& met, std::int32_t g, std::int32_t l) {
  const equation_group& group = r.layout.group(g);
  const double *sol = r.sampler.sol.data() + group.base, *entered = r.work.levels.entered.data();
  double* rhs = r.sampler.RHS.data() + group.base + (l - 1) * group.stride;
  const std::int64_t from = met.first(l), to = met.first(l + 1);
  for (std::int64_t k = from; k < to; ++k) {
    if (met.moving.empty()) {
      const level_link& link = met.links[static_cast<std::size_t>(k)];
      rhs[link.place] -=
          met.inverse[static_cast<std::size_t>(link.element)] * link.v * (sol[link.row] - entered[link.row]);
    } else {
      const moving_link& link = met.moving[static_cast<std::size_t>(k)];
      rhs[link.place] -= moving_value(link, r.design, r.sampler, r.work.values.weighted) *
                         (sol[link.row] - entered[link.row]);
    }
  }
}

} // namespace

void scan_levels(scan_records& r, const directives& asked, round_state& state, chain_counts& counts,
                 scan_stage stage, std::int32_t g, solver_sums& sums) {
  const equation_group& group = r.layout.group(g);
  const bool random = group.kind == group_kind::random_factor;
  const bool linked = random && !is_identity(r.model.RMAT(group.number));
  const std::int32_t levels = r.layout.NGR(g, 1), n = r.layout.NGR(g, 2);
  const bool updated = state.gropd(g) != 0;
  if (n == 0) return;
  const group_meetings* met = meetings_of(r.work.meetings, g, r.sampler, r.work.inverses, asked);
  if (met != nullptr)
    std::copy_n(r.sampler.sol.data() + group.base, levels * group.stride, r.work.levels.entered.data());
  // what level l owes to the levels before it and to its relatives
  const auto complete_rhs = [&](std::int32_t l) {
    if (met != nullptr) subtract_meetings(r, *met, g, l);
    if (linked) subtract_links(r.model, r.relations, r.sampler, r.work.levels, group.number, l, n);
  };
  // the solver; or a group that keeps its solutions, whose right-hand sides still lose the links
  if (!samples_solutions(asked.analysis_type) || !updated) {
    for (std::int32_t l = 1; l <= levels; ++l) {
      complete_rhs(l);
      if (updated) solve_level(r.layout, r.sampler, r.work.levels, r.report, state, stage, g, l, sums);
    }
    return;
  }
  // either stage of a scan in two: the swept form of the draw
  if (stage != scan_stage::all) {
    for (std::int32_t l = 1; l <= levels; ++l) {
      complete_rhs(l);
      sample_level_swept(r.layout, r.sampler, r.work.levels, r.sources.marsaglia, r.report, state, counts,
                         stage, g, l);
    }
    return;
  }
  const bool relaxed = draws_relaxed(r.work.moves, group);
  ranmar_draws draws(r.sources.marsaglia); // started: tested once, not at each draw
  for (std::int32_t l = 1; l <= levels; ++l) {
    complete_rhs(l);
    sample_level(r.layout, r.sampler, r.work.levels, r.report, counts, draws, g, l, relaxed);
  }
}

} // namespace zeph
