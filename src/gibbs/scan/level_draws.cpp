#include "gibbs/scan/level_draws.h"

#include "gibbs/scan/group_scan.h"
#include "gibbs/scan/level_walk.h"
#include "input/structures.h"

#include <array>

namespace zeph {
namespace {

// Element (ti,tj) of the residual inverse of group h; 1 where the products already hold it.
double multiplier_of(const sampler_store& sampler, const block_term& term) {
  return term.ti == 0 ? 1.0 : sampler.RCOVI(term.ti, term.tj, term.h);
}

// The second list of a reduced animal model is summed elsewhere.
bool squared_in_walk(const model_records& model, const directives& asked, const equation_group& group) {
  if (!samples_matrices(asked.analysis_type) || group.kind != group_kind::random_factor) return false;
  return !(is_pedigree(model.RMAT(group.number)) && model.RMAT(group.number).L_RAM);
}

void describe_factor(const model_records& model, const relationship_store& relations,
                     const sampler_store& sampler, const residual_form& fast, std::int32_t n,
                     const equation_group& group, level_walk& w) {
  w.random = true;
  if (!is_identity(model.RMAT(group.number))) {
    w.links = &fast.links[static_cast<std::size_t>(group.number - 1)];
    w.diag = view_of(relations.of(group.number).diag);
  }
  for (std::int32_t i = 0; i < n; ++i)
    for (std::int32_t j = 0; j < n; ++j) w.G[i][j] = sampler.GIF(i + 1, j + 1, group.number);
}

// Zero, for the classes and the n rows of a group.
level_sums* empty_sums(residual_form& fast, const group_form& form, std::int32_t n) {
  const std::int64_t packed = packed_of(n);
  std::fill_n(fast.moved.H.data(), std::int64_t{n} * n, 0.0);
  std::fill_n(fast.moved.products.data(), packed * packed, 0.0);
  if (form.level_class.allocated())
    std::fill_n(fast.moved.squares.data(), packed * form.class_diag.size(), 0.0);
  return &fast.moved;
}

} // namespace

void level_block(const sampler_store& sampler, const group_form& form, std::int32_t n, std::int32_t l,
                 column_view<double> block) {
  const std::int64_t packed = std::int64_t{n} * (n + 1) / 2;
  const std::int64_t row = form.level_class.allocated() ? form.level_class(l) : std::int64_t{l} - 1;
  std::fill_n(block.part(0, packed).unchecked(), packed, 0.0);
  for (std::size_t k = 0; k < form.terms.size() && form.terms[k].element < packed; ++k)
    block[form.terms[k].element] +=
        multiplier_of(sampler, form.terms[k]) * col_of(form.sums, static_cast<std::int64_t>(k) + 1)[row];
}

void draw_levels(scan_records& r, const directives& asked, std::int32_t g, bool keep_change, bool sum_move) {
  residual_form& fast = r.work.fast;
  group_form& form = fast.groups[static_cast<std::size_t>(g - 1)];
  const equation_group& group = r.layout.group(g);
  const std::int32_t n = r.layout.NGR(g, 2);
  level_walk w;
  w.levels = r.layout.NGR(g, 1);
  w.stride = group.stride;
  w.rhs = part_of(r.sampler.RHS, group.base, w.levels * w.stride);
  w.sol = part_of(r.sampler.sol, group.base, w.levels * w.stride);
  // none at the last group: the residuals are then computed from scratch from all solutions
  if (keep_change) w.change = part_of(fast.change, 0, w.levels * w.stride);
  w.form = &form;
  if (form.changing) w.data_blocks = view_of(r.layout.DI_of(g));
  w.packed_stride = r.layout.DI_of(g).extent(1);
  w.meetings = meetings_of(r.work.meetings, g, r.sampler, r.work.inverses, asked);
  if (w.meetings != nullptr) {
    w.change = part_of(fast.change, 0, w.levels * w.stride);
    if (w.stride != n) // rows that the model in force leaves out do not change
      std::fill_n(w.change.unchecked(), w.levels * w.stride, 0.0);
    w.design = &r.design;
    w.sampler = &r.sampler;
    w.weighted = r.work.values.weighted;
  }
  for (std::size_t k = 0; k < form.terms.size(); ++k)
    fast.multipliers(k + 1) = multiplier_of(r.sampler, form.terms[k]);
  w.multipliers = view_of(fast.multipliers);
  if (group.kind == group_kind::random_factor)
    describe_factor(r.model, r.relations, r.sampler, r.work.fast, n, group, w);
  w.relaxed = draws_relaxed(r.work.moves, group);
  if (sum_move) w.sums = empty_sums(fast, form, n);
  std::array<double, packed_of(largest_unrolled_order)> square{};
  const int info = w.relaxed ? draw_relaxed(r.sources.marsaglia, w, form, n, square.data())
                             : draw_by_order<false>(r.sources.marsaglia, w, form, n, square.data());
  if (info != 0) stop_at_block(r.report, g, " 1 potrf info= ", info);
  // U'A^-1 U came out of the walk: the draw of the matrix need not sum it again
  if (!squared_in_walk(r.model, asked, group)) return;
  std::copy_n(square.data(), n * (n + 1) / 2,
              col_of(fast.square, group.number).part(0, n * (n + 1) / 2).unchecked());
  fast.square_done(group.number) = 1;
}

} // namespace zeph
