#include "gibbs/moves/binary_scale.h"
#include "gibbs/moves/moves.h"
#include "gibbs/moves/threshold_moves.h"
#include "gibbs/scan/scan_records.h"

namespace zeph {

void move_traits(scan_records& r, const directives& asked, const round_state& state) {
  bool prepared = false; // means and variances of residuals given a record's others, with R as it is
  for (trait_move& trait : r.work.moves.traits) {
    if (!trait.moves) continue;
    if (!prepared) prepare_conditionals(r.model, r.sampler, r.work.latent);
    prepared = true;
    if (r.model.MODEL(trait.t).TRAIT_TYPE == trait_liability)
      move_binary_scale(r, asked, state, trait);
    else
      prepared = !move_thresholds(r, asked, state, trait);
  }
}

} // namespace zeph
