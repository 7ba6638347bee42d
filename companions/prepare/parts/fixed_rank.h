// The fixed part of a trait is brought to full rank: which columns stay, which are the reference, and why.
#pragma once

#include "prepare/messages/messages.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace zeph::prepare {

// One effect of the fixed part, in the order of the formula. A column of the design is a level of a class
// effect (coefficient 1), a plain regression (its covariable), or a level of a nested regression (covariable
// within level). Spans have one value per record of the data and stay with the caller.
struct fixed_effect {
  std::string name;                      // "herd:year", "age", "season:leg1"
  std::span<const std::int32_t> level{}; // 1..n_levels; empty: plain regression. 0: not in the record
  std::span<const double> covariable{};  // empty: class effect
  std::int32_t n_levels = 1;
  std::span<const std::string> identification{}; // size n_levels; empty for a plain regression
  bool whole = false; // a class effect that goes before the others in keeping all levels
};

enum class column_state { kept, reference, dependent, no_data };

// Line of the table "level, kept or reference, why".
struct column_decision {
  std::int32_t effect = 0;    // index of the effect, from 0
  std::int32_t level = 1;     // level as given, from 1
  std::int64_t n_records = 0; // records with a coefficient that is not 0
  column_state state = column_state::kept;
  std::string why{}; // empty when kept
};

struct fixed_coding {
  std::vector<column_decision> column;              // all columns: effect by effect, level by level
  std::vector<std::vector<std::int32_t>> new_level; // per effect and level: new number 1.., 0: no column
  std::vector<std::int32_t> n_kept;                 // per effect: levels that stay
  std::int64_t rank = 0;                            // columns that stay in all
};

// Coding of the fixed part over the records with use[r] not 0 (empty: all): the class effect with most levels
// (the first of several; one that is `whole` before all others) keeps all of them, each other class effect
// loses the level with most records, then every column that depends on columns before it is dropped. The
// order is: the widest class effect, then the effects as given. A mean is a class effect of one level by
// the caller's choice, and only needed beside no class effect. Dependent columns are found by SuiteSparseQR
// and named in the log ("fixed effects of wwt are dependent: ..."), as errors or, by choice, as warnings; the
// table has them all. Levels without data are dropped too. Columns are scaled to length 1; a column counts as
// dependent when what the others leave of it is shorter than 1e-6.
fixed_coding code_fixed_part(const std::string& trait, std::span<const fixed_effect> effects,
                             std::span<const std::uint8_t> use, bool dependence_is_error, message_log& log);

// The full coding instead: every level stays; levels without data are marked no_data and keep their number.
fixed_coding full_coding(std::span<const fixed_effect> effects, std::span<const std::uint8_t> use);

// "sex:2", "herd:year:[7:1998]", "age".
std::string column_name(const fixed_effect& effect, std::int32_t level);

} // namespace zeph::prepare
