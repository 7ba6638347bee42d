#include "gibbs/scan/gibscan.h"

#include "formats/free_format.h"
#include "gibbs/latent/latent_updates.h"
#include "gibbs/moves/moves.h"
#include "gibbs/scan/record_pass.h"
#include "gibbs/scan/residual_body.h"
#include "gibbs/scan/scan_groups.h"
#include "gibbs/scan/scan_prints.h"
#include "input/class_effect_covariates.h"
#include "listing/listing_rows.h"
#include "listing/run_log.h"
#include "samples/accumulators.h"

#include <cmath>

namespace zeph {
namespace {

// kept: 1e-10 as a 32-bit number, of the relative change of all solutions
constexpr double convergence_limit = static_cast<double>(1e-10F);
constexpr std::int64_t first_relaxed_round = 101;

// The line of `status`: round, rounds of the run, dimensions of the model in force.
void write_position(reporting& report, const directives& asked, const round_state& state, free_row& row) {
  row.clear()
      .text("Current round is")
      .i(state.iround)
      .text("out of")
      .i(std::int64_t{asked.nburn} + asked.nround)
      .text("in model");
  for (const std::int32_t dimension : state.ntr) row.i(dimension);
  write_status(report, row.str());
}

// Sums of the round's sample and its rows in the sample files.
void take_sample(scan_records& r, const directives& asked, const round_state& state, chain_counts& counts,
                 sample_files& files) {
  accumulate_solutions(r.model, r.layout, r.sampler, counts);
  if (samples_matrices(asked.analysis_type)) {
    accumulate_covariances(r.model, r.sampler, state);
    write_gib_samples(r.model, r.sampler, state, files, r.report);
  }
  write_solution_samples(r.model, r.layout, r.sampler, state, files, r.report);
  write_residual_samples(r.model, r.design, state, files, r.report);
}

// After the groups, in this order: residuals e, lik = -log p(y | b, R) and the draws of missing traits
// (Marsaglia source); U'A^-1 U of the factors and new matrices (combined source); latent values (combined
// source); the sample of the round. sscp holds the sums before the matrices are drawn, the matrices after.
template <class Body>
void post_scan(const Body& body, scan_records& r, const directives& asked, const round_state& state,
               chain_counts& counts, sample_files& files) {
  r.sampler.sscp.fill(0.0);
  const bool sampled = takes_sample(asked, state);
  if (!solves(asked.analysis_type)) {
    double lik = 0;
    body.residual_pass(r, asked, state, lik);
    if (asked.sampler.exact && sampled) {
      body.ready_values(r, asked);
      lik = score_units(r, asked);
    }
    if (sampled) write_py(files, state, lik, r.report);
  }
  if (samples_matrices(asked.analysis_type)) {
    sscp_random(r.model, r.relations, r.sampler, r.work.matrices, r.work.fast, r.report, state);
    sample_covariances(r, asked, state);
  }
  ranmar_save(r.sources.marsaglia);
  if (has_latent_traits(r.model, asked)) {
    body.ready_values(r, asked);
    update_latent_variables(r, asked, state, files);
  }
  if (sampled) take_sample(r, asked, state, counts, files);
}

// One pass over the groups in one stage; in two where solutions serve as covariables: the groups that
// the solutions come from, then, with the coefficients ZD computed from these solutions, the others.
template <class Body>
void round_with(const Body& body, scan_records& r, const directives& asked, round_state& state,
                chain_counts& counts, solver_sums& sums, sample_files& files) {
  const bool two_stages = scans_in_two_stages(asked);
  if (two_stages) {
    body.begin_round(r, asked, state, scan_stage::sources);
    scan_groups(body, r, asked, state, counts, scan_stage::sources, sums);
    if (state.iround > 0) refresh_covariates(r.sampler.sol, r.design);
  }
  const scan_stage stage = two_stages ? scan_stage::others : scan_stage::all;
  if (!r.work.moves.traits.empty()) {
    body.ready_head(r, asked, state);
    move_traits(r, asked, state);
  }
  body.begin_round(r, asked, state, stage);
  if (asked.test_level > 2) print_equations(r.layout, r.sampler, r.report, state);
  scan_groups(body, r, asked, state, counts, stage, sums);
  if (!r.work.moves.pairs.empty()) move_pairs(r, asked, state);
  post_scan(body, r, asked, state, counts, files);
}

// "Round=" and the relative change; the mark of convergence when it is small.
void judge_convergence(reporting& report, round_state& state, const solver_sums& sums) {
  // without any solution so far (ssq = 0) cd is no number and the chain continues
  const double cd = std::sqrt(sums.ssd / sums.ssq);
  say(report, free_row().text("Round=").i(state.iround).text(" Cd= ").r8(cd).str());
  if (cd < convergence_limit) state.ist = GS_CONVERGED;
}

} // namespace

void GIBSCAN(scan_records& r, const directives& asked, round_state& state, chain_counts& counts,
             sample_files& files) {
  write_position(r.report, asked, state, files.row);
  solver_sums sums;
  // rounds 1..100 are plain Gauss-Seidel; from then on sol = found + omega (found - before)
  sums.omega = state.iround < first_relaxed_round ? 0.0 : relaxation;
  state.ist = 0;
  if (body_of(r, asked) == scan_body::fast)
    round_with(residual_body(), r, asked, state, counts, sums, files);
  else
    round_with(record_pass(), r, asked, state, counts, sums, files);
  if (solves(asked.analysis_type)) judge_convergence(r.report, state, sums);
}

} // namespace zeph
