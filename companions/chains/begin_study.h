// The plan of a new study.
#pragma once

#include "chains/command_options.h"
#include "chains/work_model.h"

namespace zeph::chains {

constexpr std::int64_t last_round_number = 99999999; // eight columns hold it in gib.samples

// Reads the work directory and sets the plan: seeds of every chain, hashes, the ZEPH to run. Nothing is
// written. False with one line for each fault. `notes` says what may surprise the user.
bool plan_study(const run_options& o, study& s, std::vector<std::string>& notes,
                std::vector<std::string>& faults);

// Where the study goes: --into, or WORK.runs beside WORK.
fs::path runs_of(const run_options& o);

// The line of `starts` for a command that begins now.
start_record start_now(const std::string& command, bool slurm, int jobs, const std::string& options);

// Processes at a time: as asked, or the processors of this machine; not more than there are chains.
int jobs_of(int asked, std::size_t chains);

} // namespace zeph::chains
