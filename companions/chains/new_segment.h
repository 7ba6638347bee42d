// Makes the directory of a segment.
#pragma once

#include "chains/study_records.h"

#include <string>

namespace zeph::chains {

// Makes RUNS/chainC/segS with links to the inputs in the work directory, its own directive file,
// segment.toml, the file `process` that names the calling process (with the Slurm job, when it runs in one),
// and from segment 2 on oldsol and r_parm as links into the segment before. It appears whole under its name.
// False with `fault` when that name exists and holds results, or on a failure of the disk. One that never
// began is replaced.
bool make_segment(const fs::path& runs, const study& s, const segment_record& r, pid_t runner,
                  std::string& fault);

// Writes the segment's own directive file into its directory: that of the work directory with the segment's
// seeds and rounds. False with `fault`, which names the file.
bool write_directives(const fs::path& directory, const fs::path& work, const study& s,
                      const segment_record& r, std::string& fault);

// The work directory of a study.
fs::path work_of(const fs::path& runs, const study& s);

// Slurm's job and task, "12_3", of the process that calls; empty outside of a job.
std::string slurm_job();

} // namespace zeph::chains
