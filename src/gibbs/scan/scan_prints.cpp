#include "gibbs/scan/scan_prints.h"

#include "formats/free_format.h"
#include "listing/listing_rows.h"
#include "numerics/column_view.h"
#include "numerics/packed_matrix.h"

#include <algorithm>

namespace zeph {
namespace {

constexpr std::int32_t most_printed = 50;

// Element by element, rows i, j, value: the lower triangle of level 1 of each group.
void print_first_blocks(const equation_layout& layout, reporting& report) {
  say(report, "First diagonal block in each group");
  for (std::int32_t g = 1; g <= layout.ngroups; ++g) {
    say(report, free_row().text("Group").i(g).str());
    if (layout.NGR(g, 1) < 1) continue;
    const auto block = col_of(layout.DI_of(g), 1);
    for (std::int32_t i = 1; i <= layout.NGR(g, 2); ++i)
      for (std::int32_t j = 1; j <= i; ++j) say(report, free_row().i(i).i(j).r8(block(ihmij(i, j, 0))).str());
  }
}

// A row a level: group, level, packed block; at most 50 levels a group.
void print_blocks(const equation_layout& layout, reporting& report) {
  say(report, "Current diagonal blocks");
  for (std::int32_t g = 1; g <= layout.ngroups; ++g) {
    const std::int32_t n = layout.NGR(g, 2);
    for (std::int32_t l = 1; l <= std::min(layout.NGR(g, 1), most_printed); ++l) {
      const auto block = col_of(layout.DI_of(g), l);
      free_row row;
      row.i(g).i(l);
      for (std::int32_t p = 0; p < n * (n + 1) / 2; ++p) row.r8(block[p]);
      say(report, row.str());
    }
  }
}

} // namespace

void print_equations(const equation_layout& layout, const sampler_store& sampler, reporting& report,
                     const round_state& state) {
  if (state.iround == 1) print_first_blocks(layout, report);
  say(report, free_row().text("Current rhs and sol (max. 50), round=").i(state.iround).str());
  for (std::int32_t e = 1; e <= std::min(layout.neq, most_printed); ++e)
    say(report, free_row().i(e).r8(sampler.RHS(e)).r8(sampler.sol(e)).str());
  print_blocks(layout, report);
  if (state.iround == 1) print_first_blocks(layout, report);
}

} // namespace zeph
