#include "input/equation_layout.h"

#include "formats/column_format.h"
#include "input/structures.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"

#include <algorithm>
#include <limits>

namespace zeph {
namespace {

constexpr std::int64_t largest_equation = std::numeric_limits<std::int32_t>::max();

// A pedigree structure whose phantom groups are equations of their own holds
// one level more, when the solver asks for it.
bool has_group_level(const model_records& m, const structure_record& r) {
  return m.solver_code >= 20 && m.solver_code <= 22 && r.n_phg >= 1 && !r.r216;
}

[[noreturn]] void unknown_structure(const structure_record& r, reporting& report) {
  say(report);
  say(report, "ERROR - Unknown type of variance structure: " + r.CV_STRUCT);
  say(report);
  say(report, "Computations terminates ");
  stop_run(report, exit_input_stage);
}

std::int64_t levels_of_qtl(const model_records& m, std::int64_t k, reporting& report) {
  const std::int32_t factor = m.RMAT(k).QTL_FACTOR;
  if (factor < 1 || factor > m.nramat)
    illegal_input(report, "MODINF", "QTL_FACTOR", {k}, std::to_string(factor),
                  "1.." + std::to_string(m.nramat));
  return m.NRALEV(factor);
}

// A count of equations that leaves 32 bits can't be addressed.
std::int32_t within_32_bits(std::int64_t count, std::string_view item, reporting& report) {
  if (count < 0 || count > largest_equation)
    illegal_input(report, "MODINF", item, {}, std::to_string(count),
                  "0.." + std::to_string(largest_equation));
  return static_cast<std::int32_t>(count);
}

void count_groups(const model_records& m, equation_layout& layout, reporting& report) {
  std::int64_t n_reg0 = 0, n_reg1 = 0, n_fixed = 0;
  for (std::int32_t i = 1; i <= m.nt; ++i) {
    const trait_record& trait = m.MODEL(i);
    for (std::int32_t j = 1; j <= trait.n_reg; ++j) {
      n_reg0 += trait.REG_TYPE(j) == 0;
      n_reg1 += trait.REG_TYPE(j) == 1;
    }
    for (std::int32_t j = 1; j <= trait.n_f; ++j) n_fixed += trait.INTERCEPT(j);
  }
  layout.n_reg0 = within_32_bits(n_reg0, "number of plain regressions", report);
  layout.n_reg1 = within_32_bits(n_reg1, "number of nested regressions", report);
  layout.ngroups =
      within_32_bits((n_reg0 > 0 ? 1 : 0) + n_reg1 + n_fixed + m.nramat, "number of groups", report);
}

void form_groups(const model_records& m, equation_layout& layout) {
  std::int32_t g = 0;
  const auto add_group = [&](const equation_group& group, std::int32_t levels, std::int32_t equations) {
    layout.groups[static_cast<std::size_t>(g++)] = group;
    layout.NGR(g, 1) = levels;
    layout.NGR(g, 2) = equations;
  };

  if (layout.n_reg0 > 0) add_group({group_kind::plain_regressions, 0, 0, 0, layout.n_reg0}, 1, layout.n_reg0);
  for (std::int32_t i = 1; i <= m.nt; ++i) {
    const trait_record& trait = m.MODEL(i);
    for (std::int32_t j = 1; j <= trait.n_reg; ++j)
      if (trait.REG_TYPE(j) == 1)
        add_group({group_kind::nested_regression, i, j, m.NBEGREG(i, j), 1}, m.NLEV(i, trait.REG_N_EF_INP(j)),
                  1);
  }
  for (std::int32_t i = 1; i <= m.nt; ++i) {
    const trait_record& trait = m.MODEL(i);
    for (std::int32_t j = 1; j <= trait.n_f; ++j)
      if (trait.INTERCEPT(j)) add_group({group_kind::fixed_effect, i, j, m.NBEGF(i, j), 1}, m.NLEV(i, j), 1);
  }
  for (std::int32_t k = 1; k <= m.nramat; ++k) {
    const std::int32_t order = m.RMAT(k).n_rc;
    add_group({group_kind::random_factor, 0, k, m.NBEGRA(k), order}, m.NRALEV(k), order);
  }
}

// A table of one row per trait: a blank line, the trait in columns 10-14, and
// from column 18 on the values, 36 a line.
template <class Count, class Value>
void say_trait_table(const model_records& m, reporting& report, Count count, Value value) {
  constexpr std::int32_t values_a_line = 36;
  for (std::int32_t i = 1; i <= m.nt; ++i) {
    say(report);
    column_line line;
    line.X(9).I(i, 5).T(18);
    const std::int32_t n = count(m.MODEL(i));
    for (std::int32_t j = 1; j <= n; ++j) {
      line.I(value(i, j), 6);
      if (j % values_a_line != 0 || j == n) continue;
      say(report, line.str());
      line.clear().T(18);
    }
    say(report, line.str());
  }
}

void print_first_equations(const model_records& m, reporting& report, std::int32_t test_level) {
  const auto fixed_effects = [](const trait_record& trait) { return trait.n_f; };
  const auto regressions = [](const trait_record& trait) { return trait.n_reg; };

  say_label(report, "First Equation Number for \"Fixed\" Effects            ");
  say_trait_table(m, report, fixed_effects, [&](auto i, auto j) { return std::int64_t{m.NBEGF(i, j)} + 1; });
  if (m.nregt != 0) {
    say(report);
    say_label(report, "First Equation Number for Regressions Effects      ");
    say_trait_table(m, report, regressions,
                    [&](auto i, auto j) { return std::int64_t{m.NBEGREG(i, j)} + 1; });
    say(report);
    say_label(report, "Real input number for covariables                  ");
    say_trait_table(m, report, regressions, [&](auto i, auto j) { return m.MODEL(i).REG_INP(j); });
  }
  if (test_level > 1) {
    say_label(report, "        No of levels for each \"fixed\" effect");
    say_trait_table(m, report, fixed_effects, [&](auto i, auto j) { return m.NLEV(i, j); });
    say_label(report, "        Nesting of regressions");
    say_trait_table(m, report, regressions, [&](auto i, auto j) { return m.MODEL(i).REG_N_EF_INP(j); });
  }
}

void print_layout(const model_records& m, const equation_layout& layout, reporting& report,
                  std::int32_t test_level) {
  say(report);
  say_count(report, "Number of \"fixed\" regressions in model ..............", m.nfreg);
  say_count(report, "Total no of equations in system ...................", layout.neq);
  say_count(report, "Total no of random equations ......................", layout.neq_r);
  say(report);
  print_first_equations(m, report, test_level);
  say(report);
  say_count(report, "No of groups defined ..............................", layout.ngroups);
  say(report);
  say_label(report, "   Group   Levels  Equations    ");
  for (std::int32_t g = 1; g <= layout.ngroups; ++g)
    say(report, column_line().X(30).I(g, 5).I(layout.NGR(g, 1), 10).I(layout.NGR(g, 2), 10).str());
  say(report);
}

// One array per group: packed positions of a block of full order x levels.
void allocate_blocks(equation_layout& layout, std::vector<mat<double>>& blocks, std::string_view name,
                     reporting& report) {
  allocate_rows(report, blocks, name, "SETGROUPS", layout.ngroups);
  const std::string element = std::string(name) + ".AG";
  for (std::int32_t g = 1; g <= layout.ngroups; ++g) {
    const std::int64_t order = layout.NGR(g, 2);
    // order (order+1)/2, halved first: order below 2^31 keeps it within 64 bits
    const std::int64_t packed = order % 2 == 0 ? order / 2 * (order + 1) : (order + 1) / 2 * order;
    allocate(report, blocks[static_cast<std::size_t>(g - 1)], element, "SETGROUPS", packed, layout.NGR(g, 1));
  }
}

} // namespace

void count_equations(const model_records& m, equation_layout& layout, reporting& report) {
  layout.n_plain = layout.n_ped = layout.n_qtl = 0;
  for (std::int32_t k = 1; k <= m.nramat; ++k) {
    const structure_record& r = m.RMAT(k);
    const std::int64_t order = r.n_rc;
    const std::int64_t own = order * m.NRALEV(k);
    const structure_kind kind = structure_of(r);
    if (kind == structure_kind::unknown) unknown_structure(r, report);
    switch (row_of(kind).block) {
    case equation_block::plain:
      layout.n_plain += own;
      break;
    case equation_block::pedigree:
      layout.n_ped += own + (has_group_level(m, r) ? order : 0);
      break;
    case equation_block::of_other_factor:
      layout.n_qtl += order * levels_of_qtl(m, k, report);
      break;
    }
    // kept small at each step, so that the sums themselves can't overflow
    within_32_bits(layout.n_plain + layout.n_ped, "neq", report);
    within_32_bits(layout.n_qtl, "equations of ABS_QTL", report);
  }
  layout.nbegr = m.nfeq;
  layout.nbega = within_32_bits(m.nfeq + layout.n_plain, "nbega", report);
  layout.neq = within_32_bits(m.nfeq + layout.n_plain + layout.n_ped, "neq", report);
  layout.neq_r = within_32_bits(layout.n_plain + layout.n_ped, "neq_r", report);
}

void number_fixed_equations(const model_records& m, equation_layout& layout, reporting& report) {
  layout.max_n_f = 0;
  for (std::int32_t i = 1; i <= m.nt; ++i) layout.max_n_f = std::max(layout.max_n_f, m.MODEL(i).n_f);
  allocate(report, layout.IFEQNO, "IFEQNO", "QVAgib_ALLOC", m.nt, std::max(m.mnef, layout.max_n_f));
  std::int64_t running = std::int64_t{m.nfreg} + 1;
  for (std::int32_t j = 1; j <= layout.max_n_f; ++j)
    for (std::int32_t i = 1; i <= m.nt; ++i) {
      layout.IFEQNO(i, j) = within_32_bits(running, "first equation of a fixed effect", report);
      running += m.NLEV(i, j);
    }
}

void SETGROUPS(const model_records& m, equation_layout& layout, reporting& report, std::int32_t test_level) {
  count_groups(m, layout, report);
  allocate(report, layout.NGR, "NGR", "SETGROUPS", layout.ngroups, 2);
  allocate_rows(report, layout.groups, "groups", "SETGROUPS", layout.ngroups);
  form_groups(m, layout);
  print_layout(m, layout, report, test_level);
  allocate_blocks(layout, layout.DI, "DI", report);
  allocate_blocks(layout, layout.CDI, "CDI", report);
}

} // namespace zeph
