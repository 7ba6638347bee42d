#include "jump/jump_setup.h"

#include "input/relationships.h"
#include "input/structures.h"
#include "jump/exact_moves.h"
#include "jump/pedigree_order.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"
#include "numerics/packed_matrix.h"

#include <algorithm>
#include <string>

namespace zeph {
namespace {

constexpr std::int32_t first_random_code = 2; // REG_TYPE below: plain and nested regressions
constexpr std::int32_t active_code = 2, inactive_code = 3;

void start_smallest_model(jump_records& r) {
  std::vector<std::int32_t>& model = r.state.ntr;
  for (std::int32_t k = 1; k <= r.model.nramat + 1; ++k) {
    model[static_cast<std::size_t>(k - 1)] = k <= r.model.nramat ? 1 : r.model.residual().n_rc;
    set_structure(r.model, r.scan.layout, model, k, 1); // kept: the record of the first trait
  }
  for (std::int32_t k = 1; k <= r.model.nramat; ++k) invert_start_matrix(r, k);
}

void need_a_moving_factor(const model_records& m, reporting& report) {
  for (std::int32_t k = 1; k <= m.nramat; ++k)
    if (m.RMAT(k).n_rc >= 2) return;
  say(report, "All random effects have covariance matrix of dimension one");
  say(report);
  say(report, "ZEPH terminates. ");
  stop_run(report, exit_diagnosed);
}

void allocate_moves(jump_records& r) {
  constexpr std::string_view routine = "jump_rounds";
  reporting& report = r.scan.report;
  jump_store& jump = r.jump;
  std::int32_t order = 0;
  std::int64_t levels = 0, solutions = 0;
  for (std::int32_t k = 1; k <= r.model.nramat; ++k) {
    if (r.model.RMAT(k).n_rc < 2) continue;
    // over the factors that can move: largest order, levels, and solutions
    order = std::max(order, r.model.RMAT(k).n_rc);
    levels = std::max(levels, std::int64_t{r.model.NRALEV(k)});
    solutions = std::max(solutions, std::int64_t{r.model.NRALEV(k)} * r.model.RMAT(k).n_rc);
  }
  jump.new_model = jump.small_model = jump.large_model = r.state.ntr;
  allocate(report, jump.cov_new, "cov_new", routine, order, order);
  allocate(report, jump.prop_scale, "prop_scale", routine, order, order);
  allocate(report, jump.conv_vec, "conv_vec", routine, order);
  allocate(report, jump.prop_z, "prop_z", routine, levels);
  allocate(report, jump.conv_sol, "conv_sol", routine, solutions);
  allocate(report, jump.saved_sscp, "sscp", "model_move", r.scan.sampler.sscp.extent(1),
           r.scan.sampler.sscp.extent(2));
  fit_conversion_work(report, jump.conversion, order);
}

void find_log_determinants(jump_records& r) {
  reporting& report = r.scan.report;
  const relationship_store& relations = r.scan.relations;
  allocate(report, r.jump.log_det_A, "log_det_A", "jump_setup", r.model.nramat);
  const std::int32_t k = relations.pedigree_factor;
  if (k == 0 || r.model.RMAT(k).n_rc < 2) return;
  const std::string number = std::to_string(k);
  // ln |A| = -ln |A^-1|, from the elements of the inverse in the file, parents before progeny
  r.jump.settled =
      settle_levels(relations.pedmat, r.model.NRALEV(k), std::string(parents_prefix) + number, report);
  r.jump.log_det_A(k) =
      log_det_relationship(relations.of(k), r.jump.settled,
                           std::string(row_of(structure_kind::pedigree).file_prefix) + number, report);
}

// Mixtures switch coefficients, and move records between residual groups.
bool data_blocks_stay(const jump_records& r) {
  const mat<std::int32_t>& XD6_M = r.scan.design.XD6_M;
  const bool switched = std::any_of(XD6_M.begin(), XD6_M.end(), [](std::int32_t x) { return x > 0; });
  return !switched && !(r.scan.sampler.G > 1 && r.model.has_type(trait_mixture));
}

void open_zeinfo(reporting& report) {
  text_writer file;
  if (!file.open(path_of(report, "zeinfo")) || !file.line("starting") || !file.close())
    write_fault(report, "zeinfo", "open");
}

} // namespace

void set_structure(model_records& m, equation_layout& layout, const std::vector<std::int32_t>& model,
                   std::int32_t k, std::int32_t record) {
  if (record <= m.nt) {
    trait_record& t = m.MODEL(record);
    std::int32_t c = 0;
    for (std::int32_t j = 1; j <= t.n_reg; ++j) {
      if (t.REG_TYPE(j) < first_random_code || t.REG_R_MATNO(j) != k) continue;
      // row 1 is active always: the c-th random regression of the factor is row c+1
      const bool active = c < model[static_cast<std::size_t>(k - 1)] - 1;
      t.REG_TYPE(j) = active ? active_code : inactive_code;
      if (active) ++c;
    }
  }
  for (std::int32_t f = 1; f <= m.nramat; ++f)
    layout.NGR(layout.group_of_factor(f, m.nramat), 2) = model[static_cast<std::size_t>(f - 1)];
}

void invert_start_matrix(jump_records& r, std::int32_t k) {
  const mat<double>& COV_MAT = r.model.RMAT(k).COV_MAT;
  cube<double>& GIF = r.scan.sampler.GIF;
  double logdet = 0;
  int info = 0;
  inverse_logdet(COV_MAT.data(), COV_MAT.extent(1), GIF.unchecked_slice(k), GIF.extent(1),
                 r.state.ntr[static_cast<std::size_t>(k - 1)], logdet, info);
}

void enter_new_model(jump_records& r) {
  jump_store& jump = r.jump;
  const std::int32_t k = jump.jump_k, n = jump.new_model[static_cast<std::size_t>(k - 1)];
  double logdet = 0;
  int info = 0;
  inverse_logdet(jump.cov_new, jump.prop_scale, n, logdet, info);
  for (std::int32_t j = 1; j <= n; ++j)
    for (std::int32_t i = 1; i <= n; ++i) r.scan.sampler.GIF(i, j, k) = jump.prop_scale(i, j);
  set_structure(r, jump.new_model, k);
  r.state.ntr = jump.new_model;
}

void jump_setup(jump_records& r, relationship_store& relations, analysis start) {
  reporting& report = r.scan.report;
  PEDFILE(r.model, relations, report);
  if (moves_between_models(start)) start_smallest_model(r);
  need_a_moving_factor(r.model, report);
  allocate_moves(r);
  find_log_determinants(r);
  r.jump.blocks_stay = data_blocks_stay(r);
  if (r.asked.sampler.exact) allocate_exact_moves(r);
  if (!r.jump.zeinfo.is_open()) open_zeinfo(report);
}

void write_zeinfo(jump_store& jump, std::string_view row, reporting& report) {
  if (!jump.zeinfo.is_open() && !jump.zeinfo.open(path_of(report, "zeinfo")))
    write_fault(report, "zeinfo", "open");
  if (!jump.zeinfo.line(row)) write_fault(report, "zeinfo", "write");
}

void flush_zeinfo(jump_store& jump, reporting& report) {
  if (!jump.zeinfo.flush()) write_fault(report, "zeinfo", "write");
}

void close_zeinfo(jump_store& jump, reporting& report) {
  if (!jump.zeinfo.close()) write_fault(report, "zeinfo", "write");
}

} // namespace zeph
