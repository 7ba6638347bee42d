#include "jump/jump_rounds.h"

#include "formats/free_format.h"
#include "gibbs/scan/gibscan.h"
#include "gibbs/scan/record_pass.h"
#include "input/structures.h"
#include "jump/exact_moves.h"
#include "jump/jump_setup.h"
#include "jump/model_moves.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "numerics/column_view.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

// cov_new = the factor's matrix as drawn in this round, zero in what is still to come.
void unpack_drawn_matrix(jump_records& r) {
  jump_store& jump = r.jump;
  const std::int32_t k = jump.jump_k, rows = r.state.ntr[static_cast<std::size_t>(k - 1)];
  const auto packed = col_of(r.scan.sampler.sscp, k);
  for (std::int32_t i = 1; i <= jump.imax; ++i)
    for (std::int32_t j = 1; j <= i; ++j)
      jump.cov_new(i, j) = jump.cov_new(j, i) = i <= rows ? packed(ihmij(i, j, 0)) : 0.0;
}

// prop_scale = prodf times the factor's start matrix, last row and column by conv_coef.
void scale_proposal(jump_records& r) {
  jump_store& jump = r.jump;
  const mat<double>& COV_MAT = r.model.RMAT(jump.jump_k).COV_MAT;
  for (std::int32_t i = 1; i <= jump.imax; ++i) jump.conv_vec(i) = i < jump.imax ? 1.0 : r.asked.conv_coef;
  for (std::int32_t j = 1; j <= jump.imax; ++j)
    for (std::int32_t i = 1; i <= jump.imax; ++i)
      jump.prop_scale(i, j) = r.asked.prodf * COV_MAT(i, j) * jump.conv_vec(i) * jump.conv_vec(j);
}

[[noreturn]] void stop_unknown_structure(reporting& report, const structure_record& factor) {
  say(report, "Unknown co-variance structure " + factor.CV_STRUCT);
  say(report);
  say(report, "ZEPH terminates. ");
  stop_run(report, exit_diagnosed);
}

void report_round(jump_records& r) {
  jump_store& jump = r.jump;
  for (const std::string& row : jump.diagnostic) write_zeinfo(jump, row, r.scan.report);
  free_row row;
  row.i(r.state.iround);
  for (const std::int32_t dimension : r.state.ntr) row.i(dimension);
  for (const std::int32_t dimension : jump.new_model) row.i(dimension);
  row.r8(jump.p_up).r8(jump.p_down).l(jump.jump_down).r8(jump.log_ratio).r8(jump.log_u).l(jump.accepted);
  write_zeinfo(jump, row.str(), r.scan.report);
  flush_zeinfo(jump, r.scan.report);
}

} // namespace

void propose_move(jump_records& r) {
  jump_store& jump = r.jump;
  marsaglia_source& source = r.scan.sources.marsaglia;
  // uniform over the factors; one with a single row is drawn again
  do {
    jump.jump_k = static_cast<std::int32_t>(std::ceil(RANMAR(source) * r.model.nramat));
  } while (r.model.RMAT(jump.jump_k).n_rc == 1);
  const auto at = static_cast<std::size_t>(jump.jump_k - 1);
  const std::int32_t dimension = r.state.ntr[at], high = r.model.RMAT(jump.jump_k).n_rc;
  // p_down of a factor at its smallest dimension is 0, at its largest 1: a uniform is drawn all the same
  jump.p_up = rplus(r.scan.report, dimension, 1, high);
  jump.p_down = rminus(r.scan.report, dimension, 1, high);
  jump.jump_down = RANMAR(source) <= jump.p_down;
  jump.jump_dir = jump.jump_down ? -1 : 1;
  jump.new_model = r.state.ntr;
  jump.new_model[at] += jump.jump_dir;
  jump.small_model = jump.jump_down ? jump.new_model : r.state.ntr;
  jump.large_model = jump.jump_down ? r.state.ntr : jump.new_model;
  jump.imax = jump.large_model[at];
}

void recompute_data_blocks(jump_records& r) {
  say(r.scan.report, "diagonals recomputed");
  // the line is printed in either case
  if (r.jump.blocks_stay && r.jump.blocks_made) return;
  // made once: with all rows of each factor, of which smaller models read the leading blocks
  std::vector<std::int32_t> model = r.jump.large_model;
  if (r.jump.blocks_stay)
    for (std::int32_t k = 1; k <= r.model.nramat; ++k)
      model[static_cast<std::size_t>(k - 1)] = r.model.RMAT(k).n_rc;
  set_structure(r, model, r.jump.jump_k);
  // round 0 and the solver: CDI without the prior precision, by the inverses of the model file
  bddrmc_init(r.scan, 0, analysis::solve, model);
  set_structure(r, r.state.ntr, r.jump.jump_k);
  r.jump.blocks_made = true;
}

void convert_dimension(jump_records& r) {
  jump_store& jump = r.jump;
  const std::int32_t k = jump.jump_k;
  const structure_record& factor = r.model.RMAT(k);
  unpack_drawn_matrix(r);
  scale_proposal(r);
  if (!jump.jump_down)
    sciwhinag(r.scan.report, r.scan.sources, jump.conversion.matrix_work, jump.imax, jump.imax - 1,
              jump.cov_new.data(), jump.cov_new.extent(1), r.asked.prodf, jump.prop_scale.data(),
              jump.prop_scale.extent(1));
  const double* sol = r.scan.sampler.sol.data() + r.model.NBEGRA(k);
  jump.jacobian = 0;
  // z, conv_sol and jacobian of the factor's levels; conv_sol begins as a copy of its solutions
  jump.prop_z.fill(0.0);
  std::copy_n(sol, std::int64_t{r.model.NRALEV(k)} * factor.n_rc, jump.conv_sol.data());
  if (is_identity(factor))
    samppegm(r, k);
  else if (is_pedigree(factor))
    sampanim(r, k);
  else
    stop_unknown_structure(r.scan.report, factor);
}

void decide_move(jump_records& r) {
  jump_store& jump = r.jump;
  // model_move gives small to large; the way down is its inverse
  if (jump.jump_down) jump.log_ratio = -jump.log_ratio;
  jump.log_u = std::log(RANMAR(r.scan.sources.marsaglia));
  jump.log_alpha = jump.log_ratio < 0 ? jump.log_ratio : 0.0;
  jump.accepted = !std::isnan(jump.log_ratio) && jump.log_alpha > jump.log_u;
}

void take_move(jump_records& r) {
  jump_store& jump = r.jump;
  const std::int32_t k = jump.jump_k, n = jump.new_model[static_cast<std::size_t>(k - 1)];
  if (!jump.jump_down) {
    const auto packed = col_of(r.scan.sampler.sscp, k);
    // up: the proposed matrix is the sample of the round
    for (std::int32_t i = 1; i <= n; ++i)
      for (std::int32_t j = 1; j <= i; ++j) packed(ihmij(i, j, 0)) = jump.cov_new(i, j);
  }
  enter_new_model(r); // prop_scale is free again
  swap_solutions(r, k, jump.large_model);
}

namespace {

void run_exact_round(jump_records& r, sample_files& files) {
  const std::int32_t rows = r.state.ntr[static_cast<std::size_t>(r.jump.jump_k - 1)];
  GIBSCAN(r.scan, r.asked, r.state, r.counts, files);
  weigh_exact_move(r);
  decide_move(r);
  report_exact_move(r, rows);
  if (r.jump.accepted) take_exact_move(r);
}

} // namespace

void jump_round(jump_records& r, sample_files& files) {
  reporting& report = r.scan.report;
  if (r.asked.test_level >= 0) {
    say(report);
    say(report, free_row().text("Starting round ").i(r.state.iround).str());
  }
  propose_move(r);
  if (r.asked.sampler.exact) {
    run_exact_round(r, files);
    return;
  }
  if (!r.jump.jump_down) recompute_data_blocks(r);
  GIBSCAN(r.scan, r.asked, r.state, r.counts, files);
  if (takes_parent_groups(r.asked.analysis_type)) return;
  convert_dimension(r);
  model_move(r);
  decide_move(r);
  report_round(r);
  if (r.jump.accepted) take_move(r);
}

} // namespace zeph
