#include "samples/sample_files.h"

#include "formats/column_format.h"
#include "formats/free_format.h"
#include "input/trait_kinds.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"
#include "numerics/column_view.h"
#include "numerics/packed_matrix.h"
#include "samples/accumulators.h"

namespace zeph {
namespace {

template <class Writer> void open_checked(Writer& file, std::string_view name, reporting& report) {
  if (!file.open(path_of(report, name))) write_fault(report, name, "open");
}

template <class Writer> void close_checked(Writer& file, std::string_view name, reporting& report) {
  if (!file.close()) write_fault(report, name, "write");
}

// Solution of equation e as a sample: 0.0 where the model leaves its row out.
double sampled(const equation_layout& layout, const sampler_store& store, bool smaller, std::int64_t e) {
  return smaller && inactive_equation(layout, e) ? 0.0 : store.sol(e);
}

void put_all_solutions(const equation_layout& layout, const sampler_store& store, sequential_writer& file) {
  if (!smaller_model(layout)) {
    file.put(store.sol.data(), layout.neq);
    return;
  }
  for (std::int64_t e = 1; e <= layout.neq; ++e) file.put(sampled(layout, store, true, e));
}

// One row of a description: text in the format 1X, A.
std::string indented(std::string_view text) {
  return column_line().X(1).A(text, static_cast<int>(text.size())).str();
}

void describe_sol_samples(reporting& report) {
  say(report);
  say(report, indented("A binary filen named \"sol.samples\" has been created"));
  say(report);
  say(report, "File description");
  say(report);
  say(report, indented("The first record number of solutions (neq)"));
  say(report, indented("The following records contains sample round (integer) and"));
  say(report, indented("the solution vector with neq elements (real*8)"));
}

void describe_res_samples(std::int32_t nt, reporting& report) {
  constexpr std::string_view position = " Integer*4  Record number (position) in the input file";
  constexpr std::string_view residual = " Real*8     Residual for trait 1";
  constexpr std::string_view residuals = " Real*8     Residuals for trait 1 -";
  constexpr std::string_view shift = "    "; // the column of types moves right for a range of numbers
  const auto item = [](column_line& line, std::string_view text) {
    line.A(text, static_cast<int>(text.size()));
  };

  say(report);
  say(report, "A binary filen named \"res.samples\" has been created");
  say(report);
  say(report, "Description of variables");
  say(report);
  say(report, nt == 1 ? " no.  Type     Content" : " no.      Type     Content");
  column_line first, second;
  first.X(1).I(1, 3);
  if (nt > 1) item(first, shift);
  item(first, position);
  second.X(1).I(2, 3);
  if (nt == 1) {
    item(second, residual);
  } else {
    second.A(" - ", 3).I(nt + 1, 3);
    item(second, residuals);
    second.I(nt, 3);
  }
  say(report, first.str());
  say(report, second.str());
}

} // namespace

void describe_files(const model_records& m, const directives& asked, sample_files& files) {
  files.n_vector = m.nramat + 1;
  files.has_sol_samples = !solves(asked.analysis_type) && m.n_sol_cv != 0;
  files.has_res_samples = !solves(asked.analysis_type) && m.keeps_residuals();
}

void open_sample_files(const model_records& m, const equation_layout& layout, const directives& asked,
                       sample_files& files, reporting& report) {
  describe_files(m, asked, files);
  if (samples_matrices(asked.analysis_type)) open_checked(files.gib_samples, "gib.samples", report);
  if (!solves(asked.analysis_type)) {
    open_checked(files.py, "py", report);
    if (!free_reader().open(path_of(report, "py"))) // the report of model fit reads it
      illegal_input(report, "py", "read", {}, "open", "the file can be opened and read");
    open_checked(files.lpm, "lpm", report);
    if (files.has_sol_samples) {
      open_checked(files.sol_samples, "sol.samples", report);
      files.sol_samples.begin();
      files.sol_samples.put(layout.neq);
      if (!files.sol_samples.end() || !files.sol_samples.flush()) write_fault(report, "sol.samples", "write");
    }
    if (files.has_res_samples) open_checked(files.res_samples, "res.samples", report);
  }
  // kept: scr31 is made in every run and stays empty
  open_checked(files.scr31, "scr31", report);
  if (has_pass(m, value_pass::mixtures) || has_pass(m, value_pass::sequences))
    open_checked(files.mix_pi, "mix_pi", report);
  if (m.has_type(trait_categorical)) open_checked(files.threshold, "threshold", report);
}

void write_py(sample_files& files, const round_state& state, double lik, reporting& report) {
  if (!files.py.is_open()) open_checked(files.py, "py", report);
  free_row& row = files.row.clear();
  row.i(state.iround);
  for (std::size_t k = 0; k < static_cast<std::size_t>(files.n_vector); ++k) row.i(state.ntr[k]);
  row.r8(lik);
  if (!files.py.line(row.str()) || !files.py.flush()) write_fault(report, "py", "write");
}

void write_gib_samples(const model_records& m, const sampler_store& store, const round_state& state,
                       sample_files& files, reporting& report) {
  column_line& line = files.line;
  bool written = true;
  for (std::int32_t k = 1; k <= m.nramat + store.G; ++k) {
    const bool residual = k > m.nramat;
    // the order in the model in force; packed elements run on without gaps
    const std::int32_t d = state.ntr[static_cast<std::size_t>(residual ? m.nramat : k - 1)];
    const std::int32_t code = residual ? m.residual().HETGR_CODE(m.hetgr_index(k - m.nramat)) : 0;
    const auto packed = col_of(store.sscp, k); // lower triangle by rows
    for (std::int32_t r = 1; r <= d; ++r)
      for (std::int32_t c = 1; c <= r; ++c) {
        line.clear().I(state.iround, 8).I(k, 4).I(r, 4).I(c, 4).G(packed(ihmij(r, c, 0)), 15, 6).I(code, 11);
        written = files.gib_samples.line(line.str()) && written;
      }
  }
  if (!written || !files.gib_samples.flush()) write_fault(report, "gib.samples", "write");
}

void write_solution_samples(const model_records& m, const equation_layout& layout, const sampler_store& store,
                            const round_state& state, sample_files& files, reporting& report) {
  if (m.n_sol_cv == 0) return;
  sequential_writer& file = files.sol_samples;
  const auto round = static_cast<std::int32_t>(state.iround);
  // -1 asks for the whole vector, a positive number for that many equations
  if (m.n_sol_cv < 0) {
    file.begin();
    file.put(round);
    put_all_solutions(layout, store, file);
    if (!file.end() || !file.flush()) write_fault(report, "sol.samples", "write");
    return;
  }
  const bool smaller = smaller_model(layout);
  say(report, "iround,sol_cv%eq_no,sol)");
  for (std::int32_t i = 1; i <= m.n_sol_cv; ++i) {
    const std::int32_t e = m.SOL_CV_EQ_NO(i);
    const double value = sampled(layout, store, smaller, e);
    say(report, free_row().i(state.iround).i(e).r8(value).str());
    file.begin();
    file.put(round);
    file.put(e);
    file.put(value);
    if (!file.end()) write_fault(report, "sol.samples", "write");
  }
  if (!file.flush()) write_fault(report, "sol.samples", "write");
}

void write_residual_samples(const model_records& m, const design_store& design, const round_state& state,
                            sample_files& files, reporting& report) {
  if (!m.keeps_residuals()) return;
  sequential_writer& file = files.res_samples;
  for (std::int32_t r = 1; r <= design.nobs; ++r) {
    file.begin();
    file.put(static_cast<std::int32_t>(state.iround));
    file.put(design.OBS_POS_M(r));
    file.put(design.ZEPH_RES.unchecked_col(r), m.nt);
    if (!file.end()) write_fault(report, "res.samples", "write");
  }
  if (!file.flush()) write_fault(report, "res.samples", "write");
}

void write_mix_pi(sample_files& files, const round_state& state, const vec<double>& proportions,
                  reporting& report) {
  free_row& row = files.row.clear();
  row.i(state.iround);
  for (const double share : proportions) row.r8(share);
  if (files.mix_pi.line(row.str()) && files.mix_pi.flush()) return;
  say(report);
  say(report, "ERROR in subroutine WR_MIXZ");
  say(report);
  say(report, "Program terminates");
  stop_run(report, exit_diagnosed);
}

void write_threshold(sample_files& files, const round_state& state, std::int32_t trait, std::int32_t k,
                     double value, reporting& report) {
  if (!files.threshold.line(free_row().i(state.iround).i(trait).i(k).r8(value).str()))
    write_fault(report, "threshold", "write");
}

void flush_thresholds(sample_files& files, reporting& report) {
  if (!files.threshold.flush()) write_fault(report, "threshold", "write");
}

void describe_sample_files(const model_records& m, const sample_files& files, reporting& report) {
  if (m.l_sol_samples && files.has_sol_samples) describe_sol_samples(report);
  if (files.has_res_samples) describe_res_samples(m.nt, report);
}

void close_sample_files(sample_files& files, reporting& report) {
  close_checked(files.gib_samples, "gib.samples", report);
  close_checked(files.py, "py", report);
  close_checked(files.lpm, "lpm", report);
  close_checked(files.sol_samples, "sol.samples", report);
  close_checked(files.res_samples, "res.samples", report);
  close_checked(files.scr31, "scr31", report);
  close_checked(files.mix_pi, "mix_pi", report);
  close_checked(files.threshold, "threshold", report);
}

} // namespace zeph
