#include "prepare/model/directive_lines.h"

#include <fmt/format.h>

namespace zeph::prepare {

std::vector<std::string> directive_lines(const run_section& run, const std::vector<std::int32_t>& prior_df,
                                         const std::vector<std::string>& solutions) {
  std::vector<std::string> lines;
  lines.push_back(fmt::format("{} {}", static_cast<int>(run.analysis.value), run.test_level.value));
  lines.push_back(fmt::format("{} {}", run.seed_a.value, run.seed_b.value));
  lines.push_back(fmt::format("{} {} {}", run.burnin.value, run.rounds.value, run.interval.value));
  for (std::size_t k = 0; k < prior_df.size(); ++k) lines.push_back(fmt::format("{} {}", k + 1, prior_df[k]));
  if (!run.restrict_solutions.value && solutions.empty()) return lines;
  lines.insert(lines.end(),
               {"10", "1.0", "1.0"}); // proposal: df, variance, conversion; read, not used below type 5
  lines.emplace_back("0");            // censored traits
  if (solutions.empty()) lines.emplace_back("0");
  lines.insert(lines.end(), solutions.begin(), solutions.end());
  lines.emplace_back(run.restrict_solutions.value ? "1" : "0");
  return lines;
}

} // namespace zeph::prepare
