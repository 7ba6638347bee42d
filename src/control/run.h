// One run: all its state, owned in one place and handed to routines record by
// record. Two runs can exist side by side.
#pragma once

#include "control/state_file.h"
#include "gibbs/scan/scan_records.h"
#include "input/design_store.h"
#include "input/deviation_store.h"
#include "input/equation_layout.h"
#include "input/model_records.h"
#include "input/prediction_store.h"
#include "input/relationships.h"
#include "input/run_records.h"
#include "input/sampler_store.h"
#include "jump/jump_store.h"
#include "listing/reporting.h"
#include "numerics/random_sources.h"
#include "samples/sample_files.h"

namespace zeph {

struct run {
  run(std::ostream& listing, std::string work_directory) : report(listing, std::move(work_directory)) {}

  reporting report;
  directives asked;
  round_state state;
  chain_counts counts;
  model_records model;
  equation_layout layout;
  design_store design;
  relationship_store relations;
  sampler_store sampler;
  category_store categories;
  mixture_store mixtures;
  deviation_store deviations;
  random_sources sources{report};
  round_work work;
  sample_files files;
  jump_store jump;
  prediction_store predictions;
  saved_state saved;
  sequential_reader r_parm; // open from the start of the chain's values until the data are loaded
};

// The records that the scan works on.
inline scan_records records_of(run& r) {
  return {r.model,      r.layout,   r.design, r.relations, r.sampler,
          r.categories, r.mixtures, r.work,   r.sources,   r.report};
}

// The records that the moves between models work on.
inline jump_records jump_records_of(run& r) {
  return {records_of(r), r.model, r.asked, r.state, r.counts, r.jump};
}

} // namespace zeph
