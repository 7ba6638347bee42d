#include "prepare/output/summary.h"

#include "input/structures.h"
#include "prepare/description/description_words.h"
#include "prepare/tables/column_numbers.h"

#include "prepare/messages/messages.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <numeric>

namespace zeph::prepare {

namespace {

constexpr std::size_t names_shown = 10;

std::string records_text(const model_description& d, const prepared_model& p) {
  const record_selection& s = p.records;
  std::string out =
      fmt::format("Records of {}: {} read, {} used", p.data.table.file, p.data.n_records(), s.n_used());
  if (s.n_without_trait > 0) out += fmt::format(", {} dropped without a trait", s.n_without_trait);
  if (s.n_without_group > 0)
    out += fmt::format(", {} dropped without {}", s.n_without_group, d.residual.groups.value);
  out += "\n";
  for (const removal& r : s.removals)
    out += fmt::format("  {} set missing in {}: {}\n", d.traits[from0(r.trait)].name, r.lines.size(), r.why);
  return out;
}

std::string patterns_text(const model_description& d, const prepared_model& p) {
  if (d.traits.size() < 2) return "";
  std::string out = "\nMissing patterns (+ present, - missing)\n   No   Records  ";
  for (const trait_section& t : d.traits) out += " " + t.name;
  out += "\n";
  for (std::size_t q = 0; q < p.patterns.mask.size(); ++q) {
    out += fmt::format("{:5}{:10}  ", q + 1, p.patterns.n_records[q]);
    for (std::size_t t = 0; t < d.traits.size(); ++t) {
      const bool present = ((p.patterns.mask[q] >> (d.traits.size() - 1 - t)) & 1) != 0;
      out += fmt::format(" {:<{}}", present ? '+' : '-', std::max<int>(1, characters(d.traits[t].name)));
    }
    while (out.back() == ' ') out.pop_back();
    out += "\n";
  }
  return out;
}

std::string cell(const std::string& text, int width) {
  return text + std::string(from0(std::max(0, width - characters(text))), ' ');
}

std::string traits_text(const model_description& d, const prepared_model& p) {
  std::string out = "\nTrait               Records        Mean          SD     Minimum     Maximum\n";
  for (std::size_t t = 0; t < d.traits.size(); ++t) {
    const column_statistics& s = p.start.traits[t].observed;
    out += fmt::format("{}{:9}{:12.5g}{:12.5g}{:12.5g}{:12.5g}\n", cell(d.traits[t].name, 18), s.n, s.mean,
                       s.sd, s.min, s.max);
    if (p.names.traits[t] != d.traits[t].name) out += fmt::format("  in the files: {}\n", p.names.traits[t]);
  }
  return out;
}

// ---- what the kinds of the traits hold

std::int64_t records_with(const prepared_model& p, std::size_t t, const std::vector<double>& value,
                          double wanted) {
  return std::ranges::count_if(
      p.records.records, [&](std::uint32_t r) { return p.records.present[t][r] != 0 && value[r] == wanted; });
}

std::string categories_line(const model_description& d, const prepared_model& p, std::size_t t) {
  const trait_values& values = p.data.traits[t];
  if (values.categories.empty()) return "";
  const double first = d.traits[t].kind.value == trait_kind::ordered ? 1.0 : 0.0;
  std::string out = fmt::format("  {} ({}):", d.traits[t].name, word_of(d.traits[t].kind.value));
  for (std::size_t k = 0; k < values.categories.size(); ++k) {
    const double code = first + static_cast<double>(k);
    const std::string number = fmt::format("{}", code);
    out += fmt::format("{} {}{} in {}", k > 0 ? "," : "", number,
                       number == values.categories[k] ? "" : " " + values.categories[k],
                       records_with(p, t, values.y, code));
  }
  return out + "\n";
}

std::string censored_line(const model_description& d, const prepared_model& p, std::size_t t) {
  const trait_values& values = p.data.traits[t];
  if (values.code.empty()) return "";
  std::array<std::int64_t, 4> n{};
  for (const std::uint32_t r : p.records.records)
    if (p.records.present[t][r] != 0) ++n[from0(values.code[r] + 1)];
  return fmt::format("  {} (censored): {} observed, {} right, {} left, {} interval\n", d.traits[t].name, n[1],
                     n[2], n[0], n[3]);
}

std::string mixture_line(const model_description& d, const prepared_model& p, std::size_t t) {
  const trait_section& trait = d.traits[t];
  if (trait.indicator < 0) return "";
  const std::size_t i = from0(trait.indicator);
  return fmt::format("  {} ({}): above by shift({}) in component 1, where {} of its {} records begin\n",
                     trait.name, word_of(trait.kind.value), d.traits[i].name,
                     records_with(p, t, p.data.traits[i].y, 1.0), p.start.traits[t].observed.n);
}

std::string sequence_line(const model_description& d, const prepared_model& p, std::size_t t) {
  const trait_section& trait = d.traits[t];
  if (trait.kind.value != trait_kind::sequence) return "";
  const record_sequences& s = p.records.sequences;
  return fmt::format(
      "  {} (sequence): {} subjects of 1 to {} records, {} with an event; {} is the liability to\n"
      "    have one at all, in the last record of each\n",
      trait.name, s.n_subjects, s.longest, s.n_with_event, d.traits[from0(trait.partner)].name);
}

std::string held_lines(const model_description& d) {
  std::string variances, covariances;
  for (const trait_section& t : d.traits)
    if (has_unit_variance(t.kind.value)) variances += (variances.empty() ? "" : ", ") + t.name;
  for (const auto* list : {&d.residual.zero, &d.residual.apart})
    for (const trait_pair& z : *list)
      if (z.at.line == 0)
        covariances += fmt::format("{}{} with {}", covariances.empty() ? "" : ", ",
                                   d.traits[from0(z.first)].name, d.traits[from0(z.second)].name);
  if (!variances.empty()) variances = "  residual variance 1: " + variances + "\n";
  if (!covariances.empty()) covariances = "  residual covariance 0: " + covariances + "\n";
  return variances + covariances;
}

std::string kinds_text(const model_description& d, const prepared_model& p) {
  std::string out;
  for (std::size_t t = 0; t < d.traits.size(); ++t)
    out += categories_line(d, p, t) + censored_line(d, p, t) + mixture_line(d, p, t) + sequence_line(d, p, t);
  out += held_lines(d);
  return out.empty() ? out : "\nKinds of traits\n" + out;
}

std::string class_line(const std::string& trait, const class_effect& c) {
  const auto smallest = std::ranges::min_element(c.n_records);
  std::string out = fmt::format("{}{}{:9}", cell(trait, 18), cell(c.name, 24), c.n_levels());
  if (smallest != c.n_records.end())
    out += fmt::format("   smallest {} with {}",
                       shown(c.identification[from0(smallest - c.n_records.begin())]), *smallest);
  return out + (c.intercept ? "" : "   (only nested regressions)") + "\n";
}

std::string effects_text(const model_description& d, const prepared_model& p) {
  std::string out = "\nTrait             Fixed effect               Levels\n";
  for (std::size_t t = 0; t < d.traits.size(); ++t) {
    for (const class_effect& c : p.fixed[t].classes) out += class_line(d.traits[t].name, c);
    for (const fixed_regression& x : p.fixed[t].regressions) {
      const std::int32_t n = x.nested < 0 ? 1 : p.fixed[t].classes[from0(x.nested)].n_levels();
      out += fmt::format("{}{}{:9}   regression", cell(d.traits[t].name, 18), cell(x.name, 24), n);
      if (x.solution >= 0) out += " on the solutions of " + d.covariables[from0(x.solution)].solution.value;
      out += "\n";
    }
    std::vector<std::string> left_out;
    for (const coding_row& row : p.fixed[t].coding)
      if (row.state != column_state::kept && row.state != column_state::no_data)
        left_out.push_back(row.column);
    if (!left_out.empty())
      out += fmt::format("  without equation (reference or dependent): {}\n", joined(left_out, names_shown));
  }
  return out;
}

std::string scales_text(const prepared_model& p) {
  std::string out;
  std::vector<std::string> told;
  for (const fixed_part& fixed : p.fixed)
    for (const covariable_scale& s : fixed.scales) {
      if (std::ranges::find(told, s.name) != told.end()) continue;
      told.push_back(s.name);
      if (s.mapped) out += fmt::format("  {}: {} to {} taken as -1 to 1\n", s.name, s.low, s.high);
      if (!s.mapped && s.shift != 0.0) out += fmt::format("  {}: less {:.10g}\n", s.name, s.shift);
    }
  return out.empty() ? out : "\nCovariables\n" + out;
}

std::string matrix_text(const start_matrix& m, const std::vector<std::string>& names) {
  std::string out;
  for (int i = 0; i < m.order; ++i) {
    out += "    " + cell(names[from0(i)], 16);
    for (int j = 0; j <= i; ++j) out += fmt::format("{:13.6g}", m.at(i, j));
    out += "\n";
  }
  return out;
}

// Without a chain over them the matrices are used as they start.
std::string prior_text(const model_description& d, std::int32_t df, int order) {
  if (!samples_matrices(d.run.analysis.value)) return ", stays as it is";
  return df <= order + 1 ? ", flat prior" : fmt::format(", prior degrees of freedom {}", df);
}

std::string origin_text(const start_matrix& m) { return m.given ? "start as given" : "start by default"; }

std::string factor_text(const model_description& d, const prepared_model& p, std::size_t k) {
  const factor_levels& f = p.factors[k];
  std::string out = fmt::format("  {} {}: {} levels", k + 1, f.name, f.n_levels());
  if (f.n_groups > 0) out += fmt::format(" ({} of them phantom groups)", f.n_groups);
  out += ", " + word_of(d.factors[f.section].kind);
  if (!f.inbreeding.empty()) {
    const double sum = std::accumulate(f.inbreeding.begin(), f.inbreeding.end(), 0.0);
    out += fmt::format(", average F {:.4g}", sum / static_cast<double>(f.inbreeding.size()));
  }
  if (!f.inverse.empty()) out += fmt::format(", {} elements in the inverse", f.inverse.size());
  if (f.blended > 0.0) out += fmt::format(", blended with {:g} I", f.blended);
  out += fmt::format("\n    {}{}\n", origin_text(p.start.factors[k]),
                     prior_text(d, d.factors[f.section].prior_df.value, f.order()));
  return out + matrix_text(p.start.factors[k], f.row_names);
}

std::string matrices_text(const model_description& d, const prepared_model& p) {
  std::string out = "\nRandom factors\n";
  if (p.factors.empty()) out += "  none\n";
  for (std::size_t k = 0; k < p.factors.size(); ++k) out += factor_text(d, p, k);
  std::vector<std::string> traits;
  for (const trait_section& t : d.traits) traits.push_back(t.name);
  const std::string prior = prior_text(d, d.residual.prior_df.value, static_cast<int>(traits.size()));
  if (p.patterns.group_codes.empty())
    return out + fmt::format("  residual\n    {}{}\n", origin_text(p.start.residual), prior) +
           matrix_text(p.start.residual, traits);
  for (std::size_t g = 0; g < p.patterns.group_codes.size(); ++g)
    out += fmt::format("  residual of {} {}: {} records\n    {}{}\n", d.residual.groups.value,
                       p.patterns.group_codes[g],
                       p.model.residual().HETG_N_OBS(static_cast<std::int64_t>(g) + 1),
                       origin_text(p.start.residual_groups[g]), prior) +
           matrix_text(p.start.residual_groups[g], traits);
  return out;
}

std::string size_text(const model_description& d, const prepared_model& p) {
  return fmt::format(
      "\nEquations {}, of them fixed {}\nDesign in memory: {:.1f} MB ({} bytes x {} entries x {} records)\n"
      "Analysis \"{}\": {} rounds of burn-in, {} rounds, interval {}\n",
      equations_of(p.model), p.model.nfeq, static_cast<double>(design_bytes(p)) / 1e6, bytes_per_entry,
      p.largest_row, p.records.n_used(), word_of(d.run.analysis.value), d.run.burnin.value,
      d.run.rounds.value, d.run.interval.value);
}

std::string sampler_text(const model_description& d, const prepared_model& p) {
  std::vector<std::string> words = p.sampler;
  if (!p.exact && samples_solutions(d.run.analysis.value)) words.insert(words.begin(), "classic");
  return words.empty() ? "" : fmt::format("Sampler: {}\n", fmt::join(words, ", "));
}

const char* word_of_state(column_state state) {
  switch (state) {
  case column_state::kept:
    return "kept";
  case column_state::reference:
    return "reference";
  case column_state::dependent:
    return "dropped";
  case column_state::no_data:
    return "no data";
  }
  return "";
}

} // namespace

std::string summary_text(const model_description& d, const prepared_model& p) {
  std::string out = d.title.value.empty() ? "" : d.title.value + "\n\n";
  return out + records_text(d, p) + patterns_text(d, p) + traits_text(d, p) + kinds_text(d, p) +
         effects_text(d, p) + scales_text(p) + matrices_text(d, p) + size_text(d, p) + sampler_text(d, p);
}

std::string detail_text(const model_description& d, const prepared_model& p) {
  std::string out;
  for (std::size_t t = 0; t < p.fixed.size(); ++t) {
    out += fmt::format("\nFixed part of {}: level, records, kept or not, why\n", d.traits[t].name);
    for (const coding_row& row : p.fixed[t].coding)
      out += fmt::format("  {} {:9}  {}{}{}\n", cell(row.column, 30), row.n_records, word_of_state(row.state),
                         row.why.empty() ? "" : ": ", row.why);
  }
  for (const removal& r : p.records.removals) {
    out += fmt::format("\n{} set missing because {}, lines of {}:\n", d.traits[from0(r.trait)].name, r.why,
                       p.data.table.file);
    std::string line;
    for (const std::int64_t number : r.lines) {
      line += fmt::format(" {}", number);
      if (line.size() < 100) continue;
      out += line + "\n";
      line.clear();
    }
    if (!line.empty()) out += line + "\n";
  }
  return out;
}

} // namespace zeph::prepare
