// The lines of the listing before the chain that say what moves.
#pragma once

#include "gibbs/moves/move_store.h"

#include <string_view>

namespace zeph {

struct model_records;
struct reporting;

// "Moves that mix .... on", then a line for each factor, pair of factors and latent trait.
void say_moves(const model_records& model, const move_store& moves, reporting& report);
// The same for a run without: "off: ..".
void say_no_moves(std::string_view reason, reporting& report);

} // namespace zeph
