// The files that the end of a run makes, looked at before its first round: what would keep
// them from being written then ends the run now.
#pragma once

#include "input/deviation_store.h"
#include "input/mixture_store.h"
#include "input/run_records.h"

namespace zeph {

// Tries the names of all files that the final reports of this run will make. One that can't
// be opened for writing is a write_fault. mixz_prob and mixz_last are not written over: a file of a
// former run, of which this one is not the continuation (membership_made), is illegal input, code 16.
// Nothing is changed or left in the directory.
void check_result_files(const model_records& m, const deviation_store& deviations,
                        const mixture_store& mixtures, const directives& asked, reporting& report);

} // namespace zeph
