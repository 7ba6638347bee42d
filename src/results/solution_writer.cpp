#include "results/solution_writer.h"

#include "formats/column_format.h"
#include "formats/free_format.h"
#include "formats/text_file.h"
#include "formats/whole_file.h"
#include "input/code_table.h"
#include "input/structures.h"
#include "listing/listing_rows.h"
#include "listing/reporting.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <array>
#include <cmath>
#include <string>

namespace zeph {
namespace {

// 1.0E-13 as a 32-bit number: what is smaller counts as 0.
constexpr double negligible = static_cast<double>(1.0E-13F);
constexpr int block_rows = 250;     // rows of a block on the listing
constexpr int last_block_line = 68; // a block begins a new page after this line
constexpr int last_row_line = 77;   // a row of a random factor does after this one

enum class second_column { none, as_it_is, zero, root };

struct unit_form {
  bool listing;
  int nr;
  second_column second;
};
// By the unit digit of the option.
constexpr std::array<unit_form, 7> unit_forms = {{{false, 2, second_column::as_it_is},
                                                  {true, 1, second_column::none},
                                                  {true, 2, second_column::as_it_is},
                                                  {false, 2, second_column::zero},
                                                  {true, 2, second_column::root},
                                                  {true, 2, second_column::as_it_is},
                                                  {true, 2, second_column::zero}}};

struct writer_state {
  const model_records& m;
  vec<double>& first;
  vec<double>& second;
  std::string_view file;
  reporting& report;
  int unit = 0;
  unit_form form{};
  text_writer out;
  code_table codes;
  column_line line; // work
};

using row_numbers = std::array<std::int64_t, 7>; // iout
using row_values = std::array<double, 2>;        // rout

// ---- lines

void list(writer_state& w, std::string_view text = "") {
  say(w.report, text);
  ++w.report.nlines;
}

void turn_page_after(writer_state& w, int line) {
  if (w.form.listing && w.report.nlines > line) banner(w.report);
}

void write_row(writer_state& w, const row_numbers& iout, const row_values& rout) {
  w.line.clear().I(iout[0], 1).I(iout[1], 3).I(iout[2], 3).I(iout[3], 4);
  w.line.I(iout[4], 12).I(iout[5], 12).I(iout[6], 12);
  for (int i = 0; i < w.form.nr; ++i) w.line.G(rout[static_cast<std::size_t>(i)], 20, 6);
  if (!w.out.line(w.line.str())) write_fault(w.report, w.file, "write");
}

// Ends the current listing row with its values.
void list_row(writer_state& w, const row_values& rout) {
  for (int i = 0; i < w.form.nr; ++i) w.line.G(rout[static_cast<std::size_t>(i)], 20, 6);
  list(w, w.line.str());
}

// Column heading of a block: its own text, then the labels of the values.
std::string column_heading(const writer_state& w, std::string_view text, bool random) {
  std::string label = w.unit == 5 ? (random ? "BLUP" : "BLUE") : "P_MEAN";
  label.resize(8, ' ');
  std::string heading = std::string(text) + std::string(12, ' ') + label;
  if (w.unit == 1 || w.unit == 6) return heading;
  return heading + std::string(8, ' ') + (w.unit == 4 ? "P_STD" : "         Prev. solution");
}

void list_title(writer_state& w) {
  if (!w.form.listing) return;
  list(w);
  list(w, w.unit == 5
              ? "    BLUE and BLUP for fixed and random effects"
              : "    Posterior mean (P_MEAN) and standard error (P_STD) for fixed and random effects");
  list(w);
}

// ---- values

double without_dust(vec<double>& x, std::int64_t e) {
  if (std::fabs(x(e)) < negligible) x(e) = 0;
  return x(e);
}

// rout of equation e, which belongs to trait t.
row_values values_of(writer_state& w, std::int64_t e, std::int32_t t) {
  row_values rout{without_dust(w.first, e), 0.0};
  if (w.form.second == second_column::as_it_is) rout[1] = without_dust(w.second, e);
  if (w.form.second == second_column::root) rout[1] = w.second(e) < 0 ? 0.0 : std::sqrt(w.second(e));
  if (w.m.sol_layout == 1) {
    rout[0] *= w.m.SPRE(t);
    if (w.form.second == second_column::root) rout[1] *= w.m.SPRE(t);
  }
  return rout;
}

// ---- blocks

void write_regression(writer_state& w, std::int32_t t, std::int32_t r, int& listed) {
  const trait_record& trait = w.m.MODEL(t);
  // a plain regression is one equation, a nested one an equation a level of its effect
  const bool nested = trait.REG_TYPE(r) == 1;
  const std::int32_t effect = nested ? trait.REG_N_EF_INP(r) : 0;
  const std::int32_t levels = nested ? w.m.NLEV(t, effect) : 1;
  for (std::int32_t level = 1; level <= levels; ++level) {
    const std::int64_t e = std::int64_t{w.m.NBEGREG(t, r)} + level;
    const row_values rout = values_of(w, e, t);
    write_row(w, {1, t, effect, r, level, 0, 0}, rout);
    if (!w.form.listing || ++listed > block_rows) continue;
    std::string name = trait.REG_NAME(r);
    name.resize(18, ' ');
    w.line.clear().T(8).A(trait.TRAIT_NAME, 8).T(18).A(name, 18).T(38).I(e, 7).T(48);
    list_row(w, rout);
  }
}

void write_regressions(writer_state& w) {
  bool any = false;
  for (std::int32_t t = 1; t <= w.m.nt; ++t) any = any || w.m.MODEL(t).n_reg > 0;
  if (!any) return;
  turn_page_after(w, last_block_line);
  if (w.form.listing) {
    list(w, "  Regression coefficients");
    list(w);
    list(w, column_heading(w, "Trait  Regression            Eq-no", false));
  }
  int listed = 0;
  for (std::int32_t t = 1; t <= w.m.nt; ++t)
    for (std::int32_t r = 1; r <= w.m.MODEL(t).n_reg; ++r)
      if (w.m.MODEL(t).REG_TYPE(r) == 0 || w.m.MODEL(t).REG_TYPE(r) == 1) write_regression(w, t, r, listed);
}

void write_fixed_effect(writer_state& w, std::int32_t t, std::int32_t j) {
  const trait_record& trait = w.m.MODEL(t);
  turn_page_after(w, last_block_line);
  if (w.form.listing) {
    list(w);
    list(w, free_row().text("  First 250 equations for Trait: ").text(trait.TRAIT_NAME).str());
    list(w, free_row().text("  Fixed Effect: ").text(trait.F_EF_NAME(j)).str());
    list(w);
    list(w, column_heading(w, "Code     N-obs           Eq-no", false));
  }
  const std::int32_t levels = w.m.NLEV(t, j);
  for (std::int32_t i = 1; i <= levels; ++i) {
    // CODE_TABLE is walked in step with the blocks: one record a level
    const code_record code = next_code(w.codes, i, levels, w.report);
    const std::int64_t e = std::int64_t{w.m.NBEGF(t, j)} + code.level;
    const row_values rout = trait.INTERCEPT(j) ? values_of(w, e, t) : row_values{};
    write_row(w, {2, t, j, 0, code.code, code.nobs, code.level}, rout);
    if (!w.form.listing || i > block_rows) continue;
    w.line.clear().X(1).I(code.code, 14).I(code.nobs, 10).T(35).I(e, 7).T(45);
    list_row(w, rout);
  }
}

void list_factor_heading(writer_state& w, std::int32_t k) {
  const structure_row& structure = row_of(structure_of(w.m.RMAT(k)));
  w.line.clear().A(structure.heading, static_cast<int>(structure.heading.size())).I(k, 3);
  w.line.A(" (variance structure: ", 22).A(structure.equation, 10).A(")", 1);
  list(w);
  list(w, w.line.str());
  list(w);
  list(w, column_heading(w, "Code  N-obs Number   Trait       Eq-no         ", true));
}

void write_random_factor(writer_state& w, std::int32_t k) {
  const structure_record& factor = w.m.RMAT(k);
  turn_page_after(w, last_block_line);
  if (w.form.listing) list_factor_heading(w, k);
  const std::int32_t levels = w.m.NRALEV(k);
  int listed = 0;
  for (std::int32_t i = 1; i <= levels; ++i) {
    const code_record code = next_code(w.codes, i, levels, w.report);
    for (std::int32_t t = 1; t <= factor.n_t; ++t) {
      // kept: a row beyond n_rc, which the factor does not have, is written with zeros
      const std::int32_t row = factor.T_NO(t) > 0 ? factor.T_NO(t) : t;
      const std::int64_t e = w.m.NBEGRA(k) + (code.level - std::int64_t{1}) * factor.n_rc + row;
      const row_values rout = row <= factor.n_rc ? values_of(w, e, factor.TRAIT_NO(t)) : row_values{};
      write_row(w, {3, factor.TRAIT_NO(t), t, k, code.code, code.nobs, code.level}, rout);
      if (!w.form.listing || ++listed > block_rows) continue;
      turn_page_after(w, last_row_line);
      w.line.clear().X(1).I(code.code, 14).I(code.nobs, 7).I(t, 5).X(4).A(factor.T_NAME(t), 8).I(e, 9);
      list_row(w, rout);
    }
  }
}

void write_ordinary_blocks(writer_state& w) {
  write_regressions(w);
  for (std::int32_t t = 1; t <= w.m.nt; ++t)
    for (std::int32_t j = 1; j <= w.m.MODEL(t).n_f; ++j) write_fixed_effect(w, t, j);
  for (std::int32_t k = 1; k <= w.m.nramat; ++k) write_random_factor(w, k);
}

[[noreturn]] void refuse_option(std::int32_t option, reporting& report) {
  say(report);
  say(report, "ERROR: Wrong options for writing/printing solutions !");
  say(report);
  say(report, free_row().text("Specified option: ").i(option).str());
  say(report, "Legal options are: 0,1,2,3,4,11,21,12,22,13,23");
  stop_run(report, exit_diagnosed);
}

} // namespace

int SOLWRITE(std::int32_t option, const model_records& m, const vec<std::int32_t>& IREST,
             std::int32_t n_IREST, vec<double>& first, vec<double>& second, std::string_view file,
             reporting& report) {
  // The option: tens and unit digit; kept: the tens by a product of 32-bit numbers.
  const int tens = static_cast<int>(static_cast<float>(option) * 0.1F);
  const int unit = option % 10;
  if (tens >= 3) refuse_option(option, report);
  if (option < 0 || unit > 6) {
    say(report, free_row().text("SOLWRITE - Illegal options : ").i(option).str());
    return 1;
  }
  writer_state w{m,  first, second, file, report, unit, unit_forms[static_cast<std::size_t>(unit)],
                 {}, {},    {}};

  // Restricted equations have no error.
  if (unit == 4 || unit == 6)
    for (std::int32_t i = 1; i <= n_IREST; ++i) second(IREST(i)) = 0;

  // Only the genomic effects, of which there are none: nothing for the file.
  if (tens == 2) {
    list_title(w);
    return 0;
  }

  // The whole file: header row, then the blocks.
  whole_file whole(path_of(report, file));
  if (!w.out.open(whole.path())) write_fault(report, file, "open");
  rewind_codes(w.codes, report);
  write_row(w, {0, unit, 7, w.form.nr, 0, 0, 0}, {});
  list_title(w);
  write_ordinary_blocks(w);
  if (!w.out.close() || !whole.publish()) write_fault(report, file, "write");
  return 0;
}

} // namespace zeph
