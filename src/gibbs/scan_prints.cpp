#include "gibbs/scan_prints.h"

#include "formats/free_format.h"
#include "listing/listing_rows.h"

#include <algorithm>

namespace zeph {
namespace {

constexpr std::int32_t most_printed = 50;

void print_first_blocks(const scan_records& r) {
  say(r.report, "First diagonal block in each group");
  for (std::int32_t g = 1; g <= r.layout.ngroups; ++g) {
    say(r.report, free_row().text("Group").i(g).str());
    if (r.layout.NGR(g, 1) < 1) continue;
    const double* element = r.layout.DI_of(g).col(1);
    for (std::int32_t i = 1; i <= r.layout.NGR(g, 2); ++i)
      for (std::int32_t j = 1; j <= i; ++j) say(r.report, free_row().i(i).i(j).r8(*element++).str());
  }
}

void print_blocks(const scan_records& r) {
  say(r.report, "Current diagonal blocks");
  for (std::int32_t g = 1; g <= r.layout.ngroups; ++g) {
    const std::int32_t n = r.layout.NGR(g, 2);
    for (std::int32_t l = 1; l <= std::min(r.layout.NGR(g, 1), most_printed); ++l) {
      const double* element = r.layout.DI_of(g).col(l);
      free_row row;
      row.i(g).i(l);
      for (std::int32_t p = 0; p < n * (n + 1) / 2; ++p) row.r8(element[p]);
      say(r.report, row.str());
    }
  }
}

} // namespace

void print_equations(const scan_records& r, const round_state& state) {
  if (state.iround == 1) print_first_blocks(r);
  say(r.report, free_row().text("Current rhs and sol (max. 50), round=").i(state.iround).str());
  for (std::int32_t e = 1; e <= std::min(r.layout.neq, most_printed); ++e)
    say(r.report, free_row().i(e).r8(r.sampler.RHS(e)).r8(r.sampler.sol(e)).str());
  print_blocks(r);
  if (state.iround == 1) print_first_blocks(r);
}

} // namespace zeph
