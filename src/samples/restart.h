// Continuation of a chain by a later run. A run leaves its last state in
// `lastsol` and `gparlast`; the user copies them to `oldsol` and `r_parm`, and
// a run that finds both continues from there. Binary records:
//
// lastsol / oldsol: neq; then per equation its number and `sol`
//
// gparlast / r_parm, the first part read before the data, the second after:
//   P_ROUND, the last round run
//   seed_a, seed_b of the run
//   the current pair of seeds of the combined source
//   the saved state of the Marsaglia source
//   GIF(:,:,k), a record for each random factor; GDET; RCOV; RDET; RCOVI; LVDET;
//   IDET_RVAR, each whole
//   n_hetgr records: SCALE of IW_STR
//   --- second part
//   per trait, for types 3, 4 and 5: Y_M(trait,:), 32-bit; then, for any type and
//   each regression with REG_MIXTURE: its coefficient in each record, 64-bit
//   IRESG_M, when there are two or more residual groups
#pragma once

#include "formats/sequential_file.h"
#include "input/design_store.h"
#include "input/equation_layout.h"
#include "input/run_records.h"
#include "input/sampler_store.h"
#include "numerics/random_sources.h"

namespace zeph {

struct reporting;

// Takes the storage of `out` for the longest record of both files, before the chain, so that
// its state can be written whatever is left then. A failure is reported as that of the
// variable gparlast, in bytes; a missing store IW_STR stops as impossible.
void reserve_state(const model_records& m, const design_store& design, const sampler_store& store,
                   sequential_writer& out, reporting& report);

// Writes all of `sol` through `out`. A failure is a write_fault.
void write_lastsol(const equation_layout& layout, const sampler_store& store, sequential_writer& out,
                   reporting& report);

// Writes the state of the chain, P_ROUND = iround - 1 first. A combined source
// that was never used is started with its default seeds first. A failure is a
// write_fault; a missing store IW_STR stops as impossible.
void write_gparlast(const model_records& m, const design_store& design, const sampler_store& store,
                    random_sources& sources, const directives& asked, const round_state& state,
                    sequential_writer& out, reporting& report);

// Opens r_parm and reads its first part: P_ROUND, which is returned, both sources, all matrices, the
// SCALE vectors (record g into IW_STR(nramat+g), though each holds those of group
// 1). With the seeds of the part before the combined source continues where it
// stopped, otherwise it starts from seed_a, seed_b; the Marsaglia source continues
// in both cases. Prints what it does. Stops with code 16: a read that fails,
// after the lines that name the thing; values that no chain can have (illegal
// input); a model with a trait of type 3.
std::int64_t read_r_parm(const model_records& m, sampler_store& store, random_sources& sources,
                         const directives& asked, sequential_reader& r_parm, reporting& report);

// Reads the second part from the open r_parm into the loaded data, and closes it.
// A read that fails, or a residual group outside 1..G, is illegal input.
void read_r_parm_latent(const model_records& m, design_store& design, sequential_reader& r_parm,
                        reporting& report);

// Reads oldsol into `sol`; the file's equation numbers decide the places. Stops
// with code 16 when it ends too early, is of another size, or names an equation
// outside 1..neq.
void read_oldsol(const equation_layout& layout, const directives& asked, sampler_store& store,
                 reporting& report);

} // namespace zeph
