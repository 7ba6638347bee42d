#include "prepare/model/equation_ranges.h"

#include "prepare/description/description_messages.h"

#include "prepare/messages/messages.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <set>

namespace zeph::prepare {

namespace {

void add_trait(const prepared_model& p, int t, std::vector<equation_range>& out) {
  const model_records& m = p.model;
  const fixed_part& fixed = p.fixed[from0(t)];
  for (std::size_t j = 0; j < fixed.classes.size(); ++j)
    if (fixed.classes[j].intercept)
      out.push_back({"class", t, fixed.classes[j].name, m.NBEGF(t + 1, j + 1) + 1LL,
                     fixed.classes[j].n_levels(), 1, 0});
  for (std::size_t j = 0; j < fixed.regressions.size(); ++j) {
    const int nested = fixed.regressions[j].nested;
    const std::int64_t n = nested < 0 ? 1 : fixed.classes[from0(nested)].n_levels();
    out.push_back(
        {"regression", t, fixed.regressions[j].name, m.NBEGREG(t + 1, j + 1) + 1LL, n, 1, nested + 1});
  }
}

bool is_named(const model_description& d, const equation_range& range, const std::string& wanted) {
  const std::string name = range.name == "mean" ? "1" : range.name;
  if (name == wanted) return true;
  return range.trait >= 0 && d.traits[from0(range.trait)].name + "." + name == wanted;
}

} // namespace

std::vector<equation_range> equation_ranges(const model_description& d, const prepared_model& p) {
  std::vector<equation_range> out;
  for (int t = 0; t < static_cast<int>(d.traits.size()); ++t) add_trait(p, t, out);
  for (std::size_t k = 0; k < p.factors.size(); ++k) {
    const factor_levels& f = p.factors[k];
    const std::int64_t n = static_cast<std::int64_t>(f.n_levels()) * f.order();
    out.push_back(
        {"factor", -1, f.name, p.model.NBEGRA(static_cast<std::int64_t>(k) + 1) + 1LL, n, f.order(), 0});
  }
  return out;
}

std::vector<std::int32_t> kept_equations(const model_description& d,
                                         const std::vector<equation_range>& ranges, message_log& log) {
  std::set<std::int32_t> kept;
  for (const text_value& wanted : d.keep.effects) {
    bool found = false;
    for (const equation_range& range : ranges) {
      if (!is_named(d, range, wanted.value)) continue;
      found = true;
      for (std::int64_t e = 0; e < range.n; ++e) kept.insert(static_cast<std::int32_t>(range.first + e));
    }
    if (found) continue;
    std::vector<std::string> names;
    for (const equation_range& range : ranges) names.push_back(range.name == "mean" ? "1" : range.name);
    error_at(d, log, wanted.at, fmt::format("[keep] solutions: no equations of \"{}\"", wanted.value)).hint =
        nearest_hint(wanted.value, names);
  }
  return {kept.begin(), kept.end()};
}

} // namespace zeph::prepare
