#include "gibbs/group_scan.h"

#include "formats/free_format.h"
#include "numerics/packed_matrix.h"

#include <algorithm>

namespace zeph {
namespace {

// PARM = block, border RHS, last element 0; rows unswept
void border_block(scan_records& r, const double* block, const double* rhs, std::int32_t n) {
  const std::int32_t packed = n * (n + 1) / 2;
  double* parm = r.work.PARM.data();
  std::copy_n(block, packed, parm);
  std::copy_n(rhs, n, parm + packed);
  parm[packed + n] = 0;
  std::fill_n(r.work.LOGI.data(), n + 1, logical{0});
}

void say_dependency(scan_records& r, const run_frame& f, std::int32_t g, std::int32_t l, std::int32_t k,
                    double pivot) {
  say(r.report, free_row()
                    .text("Round ")
                    .i(f.iround)
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

// The whole block as it was and as it was swept, two lines an element.
void say_block(scan_records& r, const double* block, std::int32_t g, std::int32_t l, std::int32_t n) {
  say(r.report, free_row().text("Error in diagonal block").i(g).i(l).str());
  std::int32_t element = 0;
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t j1 = 1; j1 <= j; ++j1) {
      ++element;
      say(r.report, free_row().text("j,j1,k,l : ").i(j).i(j1).i(g).i(element).str());
      say(r.report, free_row().i(j).i(j1).r8(block[element - 1]).r8(r.work.PARMS(element)).str());
      ++r.report.nlines;
      if (r.report.nlines <= largest_listing) continue;
      say(r.report);
      say(r.report, "More then 1000 lines printed");
      say(r.report, "Program terminates");
      stop_run(r.report, exit_diagnosed);
    }
}

} // namespace

void subtract_links(scan_records& r, std::int32_t k, std::int32_t l, std::int32_t p) {
  const relationship_rows& rows = r.relations.of(k);
  const std::int64_t first = rows.start(l), last = rows.start(l + 1);
  if (first == last) return;
  const std::int64_t base = r.model.NBEGRA(k), stride = r.model.RMAT(k).n_rc;
  double* sums = r.work.link_sums.data();
  std::fill_n(sums, p, 0.0);
  const double* sol = r.sampler.sol.data() + base;
  for (std::int64_t node = first; node < last; ++node) {
    const double a = rows.val(node);
    const double* other = sol + (rows.col(node) - 1) * stride;
    for (std::int32_t j = 0; j < p; ++j) sums[j] += a * other[j];
  }
  double* rhs = r.sampler.RHS.data() + base + (l - 1) * stride;
  for (std::int32_t i = 1; i <= p; ++i) {
    double link = 0;
    for (std::int32_t j = 1; j <= p; ++j) link += r.sampler.GIF(i, j, k) * sums[j - 1];
    rhs[i - 1] -= link;
  }
}

void solve_level(scan_records& r, run_frame& f, std::int32_t g, std::int32_t l, solver_sums& sums) {
  const std::int32_t n = r.layout.NGR(g, 2);
  const std::int64_t e0 = r.layout.group(g).base + (l - 1) * r.layout.group(g).stride;
  const double* block = r.layout.DI_of(g).col(l);
  border_block(r, block, r.sampler.RHS.data() + e0, n);
  double* parm = r.work.PARM.data();
  f.ist = 0;
  for (std::int32_t k = 1; k <= n; ++k) {
    double pivot = 0;
    int info = 0;
    sweep(k, parm, n + 1, sweep_tolerance, r.work.LOGI.data(), pivot, info);
    if (pivot > dependency_pivot) continue;
    say_dependency(r, f, g, l, k, pivot);
    ++f.ist;
  }
  const std::int32_t packed = n * (n + 1) / 2;
  if (f.ist > 0) {
    std::copy_n(parm, packed, r.work.PARMS.data());
    say_block(r, block, g, l, n);
  }
  double* sol = r.sampler.sol.data() + e0;
  for (std::int32_t i = 0; i < n; ++i) {
    const double before = sol[i], found = parm[packed + i];
    sums.ssd += (before - found) * (before - found);
    sums.ssq += before * before;
    sol[i] = (found - before) * sums.omega + found;
  }
}

void restrict_solutions(sampler_store& s) {
  for (std::int32_t k = 1; k <= s.n_IREST; ++k) s.sol(s.IREST(k)) = 0;
}

void say_group_start(reporting& report, std::int32_t g) {
  say(report, free_row().text("Starting on group").i(g).str());
}

void scan_levels(scan_records& r, run_frame& f, std::int32_t g, solver_sums& sums) {
  const equation_group& group = r.layout.group(g);
  const bool random = group.kind == group_kind::random_factor;
  const bool linked = random && !structure_is(r.model.RMAT(group.number), "I");
  const std::int32_t levels = r.layout.NGR(g, 1), n = r.layout.NGR(g, 2);
  const bool updated = f.gropd(g) != 0;
  if (n == 0) return;
  for (std::int32_t l = 1; l <= levels; ++l) {
    if (linked) subtract_links(r, group.number, l, n);
    if (updated) solve_level(r, f, g, l, sums);
  }
}

} // namespace zeph
