#include "results/covariance_report.h"

#include "formats/column_format.h"
#include "formats/free_format.h"
#include "formats/text_file.h"
#include "formats/whole_file.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"

namespace zeph {
namespace {

constexpr std::int32_t values_of_a_line = 6;

// A result file of text rows; every fault stops.
struct row_file {
  row_file(reporting& run_report, std::string_view file)
      : report(run_report), name(file), whole(path_of(run_report, file)) {
    if (!out.open(whole.path())) write_fault(report, name, "open");
  }
  void line(const std::string& text) {
    if (!out.line(text)) write_fault(report, name, "write");
  }
  void publish() {
    if (!out.close() || !whole.publish()) write_fault(report, name, "write");
  }
  reporting& report;
  std::string_view name;
  whole_file whole;
  text_writer out;
};

// One matrix of the report.
struct reported_matrix {
  std::int32_t k = 0;    // its number: factor, or nramat+g
  std::int32_t d = 0;    // its order in the current model
  bool residual = false; // of a residual group,
  std::int32_t code = 0; // with this code
};

// 1X, T2, 6I16: numbers of the columns.
void say_heading(std::int32_t d, reporting& report) {
  for (std::int32_t first = 1; first <= d; first += values_of_a_line) {
    column_line line;
    line.X(1).T(2);
    for (std::int32_t c = first; c <= d && c < first + values_of_a_line; ++c) line.I(c, 16);
    say(report, line.str());
  }
}

// 1X, I5, 2X, 12(T9, 6F16.7, /): row r of the lower triangle. The slash after
// the sixth value ends a line, so a row of 6, 12, .. values has an empty line
// after it. `values`: packed triangle.
void say_row(std::int32_t r, const double*& values, reporting& report) {
  column_line line;
  line.X(1).I(r, 5).X(2);
  for (std::int32_t c = 1; c <= r; ++c) {
    // six values a line, the first from column 9
    if (c % values_of_a_line == 1) line.T(9);
    line.F(*values++, 16, 7);
    if (c % values_of_a_line != 0) continue;
    say(report, line.str());
    line.clear();
  }
  if (r % values_of_a_line == 0)
    say(report);
  else
    say(report, line.str());
}

void say_triangle(std::string_view title, const double* values, std::int32_t d, reporting& report) {
  say(report, title);
  say_heading(d, report);
  for (std::int32_t r = 1; r <= d; ++r) say_row(r, values, report);
}

void write_rows(const reported_matrix& x, const sampler_store& store, const round_state& state,
                row_file& gparout, row_file& PAROUT) {
  constexpr std::size_t vector_entries = 5; // of the model vector, zeros beyond its end
  const double *mean = store.PARPOSTMEAN.unchecked_col(x.k), *sd = store.PARVAR.unchecked_col(x.k);
  for (std::int32_t r = 1; r <= x.d; ++r)
    for (std::int32_t c = 1; c <= r; ++c) {
      column_line both, means;
      // both files by rows of the lower triangle; means and deviations are packed alike
      both.I(x.k, 3).I(r, 3).I(c, 3).G(*mean, 25, 15).G(*sd++, 25, 15).X(2);
      for (std::size_t i = 0; i < vector_entries; ++i) both.I(i < state.ntr.size() ? state.ntr[i] : 0, 4);
      gparout.line(both.str());
      means.I(x.k, 3).I(r, 3).I(c, 3).G(*mean++, 25, 15);
      if (x.residual) means.X(2).I(x.code, 8);
      PAROUT.line(means.str());
    }
}

void report_matrix(const reported_matrix& x, const sampler_store& store, const round_state& state,
                   row_file& gparout, row_file& PAROUT, reporting& report) {
  say(report);
  say(report, free_row().text("   Random effect no ").i(x.k).str());
  say_triangle("   Means", store.PARPOSTMEAN.unchecked_col(x.k), x.d, report);
  write_rows(x, store, state, gparout, PAROUT);
  say(report);
  say_triangle("   Standard Errors           ", store.PARVAR.unchecked_col(x.k), x.d, report);
}

} // namespace

void report_covariances(const model_records& m, const sampler_store& store, const round_state& state,
                        reporting& report) {
  row_file gparout(report, "gparout"), PAROUT(report, "PAROUT");
  say(report);
  say(report, "   Posterior mean and standard error of all (co)variances");
  for (std::int32_t k = 1; k <= m.nramat; ++k)
    report_matrix({k, state.ntr[static_cast<std::size_t>(k - 1)]}, store, state, gparout, PAROUT, report);

  say(report);
  say(report, "  Posterior mean and SD of residual dispersion");
  say(report);
  for (std::int32_t g = 1; g <= store.G; ++g) {
    const reported_matrix x = {m.nramat + g, state.ntr[static_cast<std::size_t>(m.nramat)], true,
                               m.residual().HETGR_CODE(m.hetgr_index(g))};
    if (store.G >= 2)
      say(report, free_row().text(" Group code: ").i(x.code).text(" CV-matrix no.:").i(x.k).str());
    report_matrix(x, store, state, gparout, PAROUT, report);
  }
  gparout.publish();
  PAROUT.publish();
}

} // namespace zeph
