#include "gibbs/scan/gibscan.h"

#include "formats/free_format.h"
#include "gibbs/latent/latent_updates.h"
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

constexpr double convergence_limit = static_cast<double>(1e-10F);
constexpr std::int64_t first_relaxed_round = 101;

void write_position(reporting& report, const run_frame& f, free_row& row) {
  row.clear()
      .text("Current round is")
      .i(f.iround)
      .text("out of")
      .i(std::int64_t{f.nburn} + f.nround)
      .text("in model");
  for (const std::int32_t dimension : f.ntr) row.i(dimension);
  write_status(report, row.str());
}

// Sums of the round's sample and its rows in the sample files.
void take_sample(scan_records& r, run_frame& f, sample_files& files) {
  accumulate_solutions(r.model, r.layout, r.sampler, f);
  if (f.analysis_type > 2) {
    accumulate_covariances(r.model, r.sampler, f);
    write_gib_samples(r.model, r.sampler, f, files, r.report);
  }
  write_solution_samples(r.model, r.layout, r.sampler, f, files, r.report);
  write_residual_samples(r.model, r.design, f, files, r.report);
}

// After the groups: residual sums, new (co)variance matrices, latent values, the sample of the round.
template <class Body> void post_scan(const Body& body, scan_records& r, run_frame& f, sample_files& files) {
  r.sampler.sscp.fill(0.0);
  const bool sampled = takes_sample(f);
  if (f.analysis_type > 0) {
    double lik = 0;
    body.residual_pass(r, f, lik);
    if (sampled) write_py(files, f, lik, r.report);
  }
  if (f.analysis_type > 2) {
    sscp_random(r.model, r.relations, r.sampler, r.work.matrices, r.work.fast, r.report, f);
    sample_covariances(r, f);
  }
  ranmar_save(r.sources.marsaglia);
  if (has_latent_traits(r.model, f)) {
    body.ready_values(r, f);
    update_latent_variables(r, f, files);
  }
  if (sampled) take_sample(r, f, files);
}

template <class Body>
void round_with(const Body& body, scan_records& r, run_frame& f, solver_sums& sums, sample_files& files) {
  if (scans_in_two_stages(f)) {
    f.stage = scan_stage::sources;
    body.begin_round(r, f);
    scan_groups(body, r, f, sums);
    if (f.iround > 0) refresh_covariates(r.sampler.sol, r.design);
    f.stage = scan_stage::others;
  }
  body.begin_round(r, f);
  if (f.test_level > 2) print_equations(r.layout, r.sampler, r.report, f);
  scan_groups(body, r, f, sums);
  f.stage = scan_stage::all;
  post_scan(body, r, f, files);
}

// "Round=" and the relative change; the mark of convergence when it is small.
void judge_convergence(reporting& report, run_frame& f, const solver_sums& sums) {
  const double cd = std::sqrt(sums.ssd / sums.ssq);
  say(report, free_row().text("Round=").i(f.iround).text(" Cd= ").r8(cd).str());
  if (cd < convergence_limit) f.ist = GS_CONVERGED;
}

} // namespace

void GIBSCAN(scan_records& r, run_frame& f, sample_files& files) {
  write_position(r.report, f, files.row);
  solver_sums sums;
  sums.omega = f.iround < first_relaxed_round ? 0.0 : relaxation;
  f.dens = 0;
  f.ist = 0;
  if (body_of(r, f) == scan_body::fast)
    round_with(residual_body(), r, f, sums, files);
  else
    round_with(record_pass(), r, f, sums, files);
  if (f.analysis_type == 0) judge_convergence(r.report, f, sums);
}

} // namespace zeph
