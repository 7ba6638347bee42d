// Where the chains of a study are. All names that zeph-chains, zeph-watch and zeph-report share:
//
//   RUNS/chains.toml                 plan of the study: seeds, rounds, hashes, starts (study_records.h)
//   RUNS/STOP                        a stop was asked for: chains that wait do not start
//   RUNS/slurm/                      batch files and their outputs
//   RUNS/chain1/seg1/                a run of ZEPH: its inputs as links, its directive file, all that it
//                                    wrote
//   RUNS/chain1/seg2/                its continuation: oldsol and r_parm are links to lastsol and gparlast of
//                                    seg1
//   RUNS/chain1/seg1/segment.toml    what this segment is (study_records.h)
//   RUNS/chain1/seg1/process         who runs it (processes.h)
//   RUNS/chain1/seg1/listing.txt     standard output and error of ZEPH
//   RUNS/chain1/seg1/exit            exit code, a line, once ZEPH has ended
//
// Chains and segments are numbered from 1. A segment's directory appears whole, by a rename, and is never
// used twice.
#pragma once

#include <filesystem>
#include <vector>

namespace zeph::chains {

namespace fs = std::filesystem;

constexpr const char* chains_name = "chains.toml";
constexpr const char* segment_name = "segment.toml";
constexpr const char* process_name = "process";
constexpr const char* listing_name = "listing.txt";
constexpr const char* exit_name = "exit";
constexpr const char* stop_name = "STOP";
constexpr const char* slurm_name = "slurm";

fs::path chain_directory(const fs::path& runs, int chain);
fs::path segment_directory(const fs::path& runs, int chain, int segment);

// Number of the last segment of a chain, 0 when it has none. Segments without a gap count from seg1.
int last_segment(const fs::path& runs, int chain);

// True when the directory is one of a study: it holds chains.toml.
bool is_study(const fs::path& directory);

} // namespace zeph::chains
