#include "prepare/model/residual_record.h"

#include "prepare/messages/messages.h"
#include "shared/indexing.h"

#include <fmt/format.h>

namespace zeph::prepare {

namespace {

const start_matrix& start_of_group(const start_values& s, std::size_t g) {
  return s.residual_groups.empty() ? s.residual : s.residual_groups[g];
}

// Records of group g (1-based), all together and by pairs of traits.
void count_group(const record_selection& records, const residual_patterns& p, std::int32_t g,
                 structure_record& residual) {
  const int nt = static_cast<int>(records.present.size());
  for (std::size_t i = 0; i < records.records.size(); ++i) {
    if (!p.group.empty() && p.group[i] != g) continue;
    ++residual.HETG_N_OBS(g);
    const std::vector<int> traits = traits_of(p.mask[from1(p.pattern[i])], nt);
    for (const int s : traits)
      for (const int t : traits) ++residual.carried.HETGR_NOBS(g, s + 1, t + 1);
  }
}

void fill_group(const residual_patterns& p, const start_matrix& start, std::int32_t g,
                const std::string& title, structure_record& residual, message_log& log) {
  const int nt = start.order;
  residual.carried.HETGR_L_PR(g) = 1;
  for (int i = 0; i < nt; ++i)
    for (int j = 0; j < nt; ++j) residual.HETGR_COV_MAT(g, i + 1, j + 1) = start.at(i, j);
  std::vector<double> inverse;
  for (std::int32_t q = 1; q <= residual.n_pat; ++q) {
    double log_determinant = 0.0;
    if (!inverse_of_part(start, traits_of(p.mask[from1(q)], nt), inverse, log_determinant)) {
      add_error(log, {}, title + " start is not positive definite");
      return;
    }
    residual.HETGR_RDET(g, q) = log_determinant;
    for (int i = 0; i < nt; ++i)
      for (int j = 0; j < nt; ++j) residual.HETGR_RIIF(g, q, i + 1, j + 1) = inverse[from0(i * nt + j)];
  }
}

} // namespace

void fill_residual(const model_description& d, const record_selection& records,
                   const residual_patterns& patterns, const start_values& start, structure_record& residual,
                   message_log& log) {
  const int nt = start.residual.order;
  for (int i = 0; i < nt; ++i)
    for (int j = 0; j < nt; ++j)
      residual.COV_MAT(i + 1, j + 1) = residual.P_COV_MAT(i + 1, j + 1) = start.residual.at(i, j);
  for (const auto* list : {&d.residual.zero, &d.residual.apart})
    for (const trait_pair& z : *list) {
      residual.carried.L_RCOV_ZERO(z.first + 1, z.second + 1) = 1;
      residual.carried.L_RCOV_ZERO(z.second + 1, z.first + 1) = 1;
    }
  for (std::int32_t q = 1; q <= residual.n_pat; ++q) {
    const auto at = from1(q);
    residual.carried.ISIT(q) = patterns.mask[at];
    residual.carried.ISIT_B(q) = static_cast<std::int32_t>(patterns.n_records[at]);
    residual.carried.ISIT_C(q) = q;
  }
  for (std::int32_t g = 1; g <= residual.n_hetgr; ++g) {
    const auto at = from1(g);
    residual.HETGR_CODE(g) = patterns.group_numbers.empty() ? 1 : patterns.group_numbers[at];
    const std::string title = patterns.group_codes.empty()
                                  ? "[residual]"
                                  : fmt::format("[residual] group {}", patterns.group_codes[at]);
    count_group(records, patterns, g, residual);
    fill_group(patterns, start_of_group(start, at), g, title, residual, log);
  }
}

} // namespace zeph::prepare
