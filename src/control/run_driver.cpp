#include "control/run_driver.h"

#include "control/chain_loop.h"
#include "control/directives.h"
#include "control/exact_sampler.h"
#include "control/model_chains.h"
#include "control/predictions.h"
#include "control/sampler_file.h"
#include "control/start_values.h"
#include "formats/free_format.h"
#include "gibbs/latent/latent_updates.h"
#include "gibbs/moves/moves.h"
#include "gibbs/residuals/residual_sums.h"
#include "input/categorical_traits.h"
#include "input/class_effect_covariates.h"
#include "input/code_table.h"
#include "input/data_loading.h"
#include "input/model_information.h"
#include "jump/jump_setup.h"
#include "listing/listing_rows.h"
#include "listing/reporting.h"
#include "listing/run_log.h"
#include "listing/stops.h"
#include "listing/work_files.h"
#include "results/result_files.h"
#include "samples/restart.h"

#include <algorithm>
#include <cstdint>
#include <fmt/format.h>
#include <limits>
#include <new>
#include <ostream>
#include <string>

namespace zeph {
namespace {

void stop_opening(reporting& report) {
  say(report, "Error in opening files.");
  zeph_terminates(report);
}

// The input files are there, MODINF is read; banner and first line of `status`.
void read_model(run& r) {
  if (check_input_files(r.report) != 0) stop_opening(r.report);
  if (QVAMRD(r.model, r.report) != 0) stop_opening(r.report);
  r.report.run_stamp = r.model.run_stamp;
  banner(r.report);
  // kept: the first line of `status` has this name, the last one that of the program
  write_status(r.report, "Program QVAgib initializing");
}

// A restart needs both r_parm and oldsol; one of them alone ends the run.
void look_for_restart(run& r) {
  const bool parameters = file_exists(r.report, "r_parm"), solutions = file_exists(r.report, "oldsol");
  r.asked.restart = parameters && solutions;
  if (parameters == solutions) return;
  say(r.report);
  say(r.report, "A restart of a Gibbs chain requires that the files:");
  say(r.report, "r_parm and oldsol are in the current directory.");
  say(r.report, parameters ? "Only r_parm is present." : "Only oldsol is present");
  zeph_terminates(r.report);
}

// Stores of mixtures, and the count of categorical traits.
void look_at_traits(run& r) {
  std::int32_t categorical = 0;
  for (std::int32_t i = 1; i <= r.model.nt; ++i)
    if (r.model.MODEL(i).TRAIT_TYPE == trait_categorical) ++categorical;
  r.model.ncat = categorical;
  allocate_mixtures(r.model, r.mixtures, r.report);
}

void print_sizes(const model_records& m, const equation_layout& layout, reporting& report) {
  free_row levels, orders, regressions;
  levels.text("nramat,nralev,nbegr").i(m.nramat);
  for (std::int32_t k = 1; k <= m.nramat; ++k) levels.i(m.NRALEV(k));
  levels.i(layout.nbegr);
  orders.text("rmat(:)%n_rc");
  for (std::int32_t k = 1; k <= m.nramat + 1; ++k) orders.i(m.RMAT(k).n_rc);
  regressions.text("model(:)%n_reg");
  for (std::int32_t i = 1; i <= m.nt; ++i) regressions.i(m.MODEL(i).n_reg);
  say(report, levels.str());
  say(report, free_row().text("nbega").i(layout.nbega).str());
  say(report, orders.str());
  say(report, "k,i,j,rmat(k)%cov_mat");
  for (std::int32_t k = 1; k <= m.nramat + 1; ++k)
    for (std::int32_t i = 1; i <= m.RMAT(k).n_rc; ++i)
      for (std::int32_t j = 1; j <= m.RMAT(k).n_rc; ++j)
        say(report, free_row().i(k).i(i).i(j).r8(m.RMAT(k).COV_MAT(i, j)).str());
  say(report, free_row().text("iv_50").i(m.iv_50).str());
  say(report, regressions.str());
  say(report, free_row().text("nregt").i(m.nregt).str());
  say(report, free_row().text("nt").i(m.nt).str());
  say(report, free_row().text("mnef").i(m.mnef).str());
}

void print_structures(const model_records& m, reporting& report) {
  say(report);
  say(report, "        Structure of the random effects in the model");
  for (std::int32_t k = 1; k <= m.nramat; ++k) say(report, free_row().i(k).i(m.RMAT(k).n_rc).str());
}

// Directive lines, then the layout of the equations: counts, checks of the model against them, stores,
// groups. Residual covariances at zero come after the checks, which test their pairs of traits.
void lay_out_equations(run& r) {
  free_reader lines;
  open_directives(r.model, lines, r.report);
  read_directives(r.model, r.asked, r.sources, lines, r.report);
  read_sampler_file(r.model, r.asked, r.report);
  find_state(r);
  count_equations(r.model, r.layout, r.report);
  if (r.asked.test_level == 1) print_sizes(r.model, r.layout, r.report);
  check_model_indices(r.model, r.layout, r.report);
  mark_zero_covariances(r.model, r.sampler, r.report);
  QVAgib_ALLOC(r.model, r.sampler, r.report);
  allocate_equations(r.layout, r.sampler, r.report);
  allocate_deviations(r.model, r.deviations, r.report);
  number_fixed_equations(r.model, r.layout, r.report);
  if (r.asked.test_level > 1) print_structures(r.model, r.report);
  SETGROUPS(r.model, r.layout, r.report, r.asked.test_level);
  const bool more = read_covariate_directives(r.model, r.asked, lines, r.report);
  if (r.asked.nfeto > 0)
    FETOCV(r.model, r.layout, r.asked, directive_file_name(r.model, r.report), r.design, r.report);
  if (more) read_restriction_directive(r.model, r.asked, r.sampler, lines, r.report);
}

// Sample files and the saved state hold the number of a round in 32 bits.
void check_last_round(const run& r, reporting& report) {
  const std::int64_t left = std::numeric_limits<std::int32_t>::max() - r.counts.P_ROUND;
  if (r.asked.nround > left)
    illegal_input(report, directive_file_name(r.model, report), "nround", {}, std::to_string(r.asked.nround),
                  fmt::format("at most {} after round {}", left, r.counts.P_ROUND));
}

// Stores of the chain, and its start values: those of the priors, or of the run that is continued.
void start_chain_values(run& r) {
  allocate_dispersion(r.model, r.layout, r.state, r.sampler, r.report);
  if (ZEPHVAR_ALLOC(r.model, r.sampler, r.report) != 0) {
    // kept: the words of an end, and the run continues; what needs the stores will stop
    say(r.report);
    say(r.report, "ERROR allocating memory");
    say(r.report);
    say(r.report, "ZEPH terminates.");
  }
  r.counts.P_ROUND = std::max(r.asked.nburn, 0);
  if (r.asked.restart && samples_matrices(r.asked.analysis_type)) {
    const std::int64_t last = read_r_parm(r.model, r.sampler, r.sources, r.asked, r.r_parm, r.report);
    if (!has_several_models(r.asked.analysis_type))
      r.counts.P_ROUND = last; // chains over models start from round 1
  } else {
    start_from_priors(r.model, r.asked, r.sampler, r.report);
  }
  check_last_round(r, r.report);
  if (r.asked.test_level >= 2) print_start_matrices(r.model, r.sampler, r.report);
  if (file_exists(r.report, "ytopredict")) read_ytopredict(r.model, r.predictions, r.report);
  if (r.asked.restart) read_oldsol(r.layout, r.asked, r.sampler, r.report);
}

// Data and relationships; then records by residual group and by level of the trait deviations.
void load_data(run& r) {
  r.design.keeps_positions = r.asked.sampler.exact && !solves(r.asked.analysis_type);
  const int status = READTOMEM(r.model, r.layout, r.design, r.relations, r.report);
  if (status == 1) say(r.report, "Data not found");
  if (status != 0) zeph_terminates(r.report, false);
  count_group_records(r.model, r.design);
  count_level_records(r.model, r.design, r.deviations);
}

// Liabilities and thresholds (combined source), start of the Marsaglia source, which a restart has from its
// file, then start values of missing traits, one normal each.
void start_latent_values(run& r) {
  const model_records& m = r.model;
  if (m.has_type(trait_categorical))
    SETCAT(m, r.design, r.categories, r.sources.combined, r.asked.sampler.exact, r.report);
  if (solves(r.asked.analysis_type)) return;
  if (!r.asked.restart || r.asked.analysis_type == analysis::predict)
    RMARIN(r.sources.marsaglia, r.asked.seed_a, r.asked.seed_b);
  scan_records records = records_of(r);
  start_missing_traits(records);
}

// The part of a restart that belongs to the data: latent values, mixture coefficients, residual groups.
void restart_latent_values(run& r) {
  if (r.r_parm.is_open()) {
    read_r_parm_latent(r.model, r.design, r.r_parm, r.report);
    count_group_records(r.model, r.design);
  }
  // the coefficients that the chain left
  if (r.asked.restart && scans_in_two_stages(r.asked)) refresh_covariates(r.sampler.sol, r.design);
}

} // namespace

void start_run(run& r) {
  read_model(r);
  look_for_restart(r);
  look_at_traits(r);
  lay_out_equations(r);
  start_chain_values(r);
  load_data(r);
  check_codes(r.model, r.report); // the reports of the end read it
  allocate_round_work(r.model, r.layout, r.work, r.report);
  prepare_residual_draw(r.model, r.asked, r.work.matrices.constrained, r.work.matrices.draw, r.report);
  begin_exact_sampler(r);
  start_latent_values(r);
  restart_latent_values(r);
  find_exact_forms(r);
  scan_records records = records_of(r);
  find_moves(records, r.asked, r.state);
  start_mixing_proportions(records.model, records.design, records.mixtures);
  if (continues(r.saved))
    continue_files(r);
  else
    open_sample_files(r.model, r.layout, r.asked, r.files, r.report);
  if (samples_solutions(r.asked.analysis_type))
    reserve_state(r.model, r.design, r.sampler, r.files.state, r.report);
  check_result_files(r.model, r.deviations, r.mixtures, r.asked, r.report);
  if (!r.model.L_PTD) return;
  PEDFILE(r.model, r.relations, r.report);
  count_progeny(r.model, r.relations, r.deviations);
}

void run_driver(run& r) {
  start_run(r);
  if (moves_between_models(r.asked.analysis_type)) {
    run_jump_chain(r);
  } else if (has_several_models(r.asked.analysis_type)) {
    run_models(r); // one after the other
  } else {
    run_chain(r);
    report_run(r);
  }
  if (r.asked.test_level >= 2) say(r.report, "Gibbs rounds concluded");
  close_zeinfo(r.jump, r.report);
  close_sample_files(r.files, r.report);
  write_status(r.report, "Program ZEPH has concluded");
  say(r.report);
  say(r.report, " End of " + r.report.program_name);
}

int exit_code_of_run(run& r) {
  try {
    run_driver(r);
    r.report.listing->flush();
    // a listing that could not be written to its end changes the exit code
    return r.report.listing->good() ? 0 : exit_diagnosed;
  } catch (const run_stop& stop) {
    return stop.exit_code;
  } catch (const std::bad_alloc&) {
    for (const std::string_view line :
         {"", "ERROR - Computation impossible in ZEPH: no storage left", "", "ZEPH terminates."})
      say(r.report, line);
    return exit_diagnosed;
  }
}

} // namespace zeph
