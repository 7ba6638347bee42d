#include "results/deviation_output.h"

#include "formats/column_format.h"
#include "formats/free_format.h"
#include "formats/text_file.h"
#include "formats/whole_file.h"
#include "input/code_table.h"
#include "listing/listing_rows.h"
#include "listing/reporting.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace zeph {
namespace {

constexpr double largest_variance = 999999995904.0; // kept: the largest that is shown, 1.0E12 in 32 bits
constexpr int listed_rows = 250;
constexpr int last_heading_line = 68; // the heading begins a new page after this line

// What a row shows of one deviation.
struct shown_value {
  double mean = 0, deviation = 0;
};

struct output_form {
  bool sums = false; // means over the calls, with standard deviations
  bool progeny = false;
};

void list(reporting& report, std::string_view text = "") {
  say(report, text);
  ++report.nlines;
}

void list_heading(const output_form& form, std::int32_t factor, reporting& report) {
  if (report.nlines > last_heading_line) banner(report);
  std::string_view last_line;
  list(report);
  if (form.sums && form.progeny) {
    list(report, " Posterior mean and standard error for Trait Deviation (TD) and");
    last_line = " Progeny Trait Deviation (PTD) for Random Factor ";
  } else if (form.sums) {
    last_line = " Posterior mean and standard error for Trait Deviation (TD) for Random Factor ";
  } else if (form.progeny) {
    last_line = " Trait Deviation (TD) and Progeny Trait Deviation (PTD) for Random Factor ";
  } else {
    last_line = " Trait Deviation (TD) for Random Factor ";
  }
  list(report, free_row().text(last_line).i(factor).str());
  list(report);
  list(report, " First 250 levels");
  list(report);
  std::string columns = "        Code  Trait No. rec.       TD";
  if (form.sums) columns += "          SE(TD)";
  if (form.progeny)
    columns += form.sums ? "    No. Prog.      PTD           SE(PTD)" : "        No. Prog.      PTD";
  list(report, columns);
}

// Mean and standard deviation over n calls from a sum and a sum of squares.
shown_value of_sums(double s, double ss, double n) {
  shown_value x;
  if (n < 1) return x;
  // s.d. = (|ss - s^2/n| / (n-1))^1/2, the size taken since rounding may make the sum negative
  x.mean = s / n;
  if (n > 1) x.deviation = std::sqrt(std::min(std::fabs(ss - s * s / n) / (n - 1), largest_variance));
  return x;
}

shown_value value_of(const model_records& m, const deviation_store& d, const output_form& form, bool progeny,
                     std::int32_t t, std::int32_t level) {
  shown_value x;
  if (form.sums) {
    const mat<double>&s = progeny ? d.S_PTD : d.S_TD, &ss = progeny ? d.SS_PTD : d.SS_TD;
    x = of_sums(s(t, level), ss(t, level), static_cast<double>(d.calls));
  } else {
    x.mean = progeny ? d.PTD(t, level) : d.TD(t, level);
  }
  const double scale = m.sol_layout == 1 ? m.SPRE(t) : 1.0;
  return {x.mean * scale, x.deviation * scale};
}

void put_value(column_line& line, const output_form& form, const shown_value& x) {
  line.X(4).G(x.mean, 15, 6);
  if (form.sums) line.G(x.deviation, 15, 6);
}

// The rows of one level, into the file and, while `listed` is below 250, on the listing.
void write_level(const model_records& m, const deviation_store& d, const output_form& form,
                 const code_record& code, text_writer& out, int& listed, reporting& report) {
  column_line line;
  for (std::int32_t t = 1; t <= m.nt; ++t) {
    const std::int32_t own = d.N_TD(t, code.level), progeny = form.progeny ? d.N_PTD(t, code.level) : 0;
    if (own <= 0 && progeny < 1) continue;
    line.clear().X(1).I(code.code, 12).I(t, 5).I(own, 7);
    put_value(line, form, value_of(m, d, form, false, t, code.level));
    if (form.progeny) {
      line.I(progeny, 5);
      put_value(line, form, value_of(m, d, form, true, t, code.level));
    }
    out.line(line.str());
    if (listed >= listed_rows) continue;
    ++listed;
    list(report, line.str());
  }
}

void describe_file(const output_form& form, reporting& report) {
  list(report);
  list(report, form.sums ? "A filen named \"gib.td_ptd\" has been created"
                         : "A filen named \"TD_PTD\" has been created");
  const int variables = 4 + form.sums + (form.progeny ? 2 + form.sums : 0);
  list(report, "It contains the following " + std::to_string(variables) + " variables:");
  int n = 0;
  const auto variable = [&](std::string_view what) {
    list(report, "  " + std::to_string(++n) + ".  " + std::string(what));
  };
  variable("Class code (code in input data)");
  variable("Trait number");
  variable("No. of own reccords");
  variable(form.progeny
               ? "TD (Trait corrected for all effects except the breeding value) average over records"
               : "TD (Mendelian sample + residual) average over records");
  if (form.sums) variable("Standard deviation for TD");
  if (!form.progeny) return;
  variable("No. of progenies with records");
  variable("PTD ( 2*TD average over progenies)");
  if (form.sums) variable("Standard deviation for PTD");
}

// Brings the walk of CODE_TABLE to the first level of the factor.
void pass_to_factor(const model_records& m, std::int32_t factor, code_table& codes, reporting& report) {
  rewind_codes(codes, report);
  for (std::int32_t i = 1; i <= m.nt; ++i)
    for (std::int32_t j = 1; j <= m.MODEL(i).n_f; ++j) skip_codes(codes, m.NLEV(i, j), report);
  for (std::int32_t k = 1; k < factor; ++k) skip_codes(codes, m.NRALEV(k), report);
}

} // namespace

void report_deviations(const model_records& m, const deviation_store& d, const directives& asked,
                       reporting& report) {
  if (d.factor == 0) return;
  const output_form form{m.model_kind == 2, d.progeny};
  const std::string_view name = samples_solutions(asked.analysis_type) && form.sums ? "gib.td_ptd" : "TD_PTD";
  whole_file whole(path_of(report, name));
  text_writer out;
  if (!out.open(whole.path())) write_fault(report, name, "open");
  code_table codes;
  pass_to_factor(m, d.factor, codes, report);
  list_heading(form, d.factor, report);
  int listed = 0;
  for (std::int32_t i = 1; i <= d.levels; ++i)
    write_level(m, d, form, next_code(codes, i, d.levels, report), out, listed, report);
  if (!out.close() || !whole.publish()) write_fault(report, name, "write");
  describe_file(form, report);
}

} // namespace zeph
