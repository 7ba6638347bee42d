// Levels of one group that meet in a record: direct and maternal effects of one factor, say, where the levels
// of an animal and of its dam are in the same row of the design.
//
// The right-hand sides of a group are formed when it is entered. What its own earlier levels have changed
// since is missing in them: for each record and each pair of its entries i, k in the group with
// level(k) < level(i), before level(i) is solved or drawn,
//   RHS(i) -= R^-1(t,t') z_i z_k (sol(k) - solution of k when the group was entered),
// z with the roots of the record's weights. Without it a round is no Gibbs sampler, and no Gauss-Seidel step.
#pragma once

#include "input/design_store.h"
#include "input/equation_layout.h"
#include "input/run_records.h"
#include "input/sampler_store.h"

#include <vector>

namespace zeph {

struct residual_inverses;

// Element (ti,tj) of the inverse of residual group h; of missing pattern `pattern` of the group in the
// solver.
struct residual_element {
  std::int32_t ti = 0, tj = 0, h = 0, pattern = 0;
};

// One pair of equations of a level and an earlier one; equal pairs are merged.
struct level_link {
  std::int32_t level = 0;   // of the later one, from 1
  std::int32_t place = 0;   // its row in the level, from 0
  std::int32_t row = 0;     // equation of the earlier one in the group, from 0
  std::int32_t element = 0; // index into elements
  double v = 0;             // sum of z_i z_k
};

// The same where coefficients or residual groups change in the run: the record is read each time.
struct moving_link {
  std::int32_t level = 0, place = 0, row = 0;
  std::int32_t record = 0;           // from 1
  std::int32_t entry = 0, other = 0; // of the record, from 1: of the later and of the earlier level
};

struct group_meetings {
  std::vector<residual_element> elements;
  std::vector<level_link> links;   // in level order
  std::vector<moving_link> moving; // the same, instead of links
  vec<std::int64_t> first;         // levels + 1: first link of each level, from 0
  std::vector<double> inverse;     // of the elements, in this pass over the group
  bool any() const { return first.allocated(); }
};

struct level_meetings {
  std::vector<group_meetings> groups; // [g-1]; empty: meetings are left out
};

// Finds the pairs of all groups. coefficients_move(record, entry) of the run, see coefficient_changes.
void find_level_meetings(const model_records& model, const equation_layout& layout,
                         const design_store& design, const sampler_store& sampler, const directives& asked,
                         level_meetings& meetings, reporting& report);

// The meetings of group g with their elements of the residual inverse as they are now; null: none.
const group_meetings* meetings_of(level_meetings& meetings, std::int32_t g, const sampler_store& sampler,
                                  const residual_inverses& inverses, const directives& asked);

// z_i z_k R^-1(t,t') of a moving link with the present coefficients, group and inverse.
double moving_value(const moving_link& link, const design_store& design, const sampler_store& sampler,
                    bool weighted);

} // namespace zeph
