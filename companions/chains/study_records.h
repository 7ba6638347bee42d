// The two records of a study, each a TOML file: chains.toml, the plan, and segment.toml, what one run of ZEPH
// is. docs/chains.md has their keys.
#pragma once

#include "chains/layout.h"
#include "chains/seeds.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::chains {

struct input_record {
  std::string file; // name in the work directory and in every segment
  std::int64_t bytes = 0;
  std::string sha256;
};

struct chain_record {
  int number = 0; // from 1
  seed_pair seeds;
  std::int64_t last = 0; // the round that the chain is to reach, burn-in included
};

struct start_record {
  std::string command;        // "run" or "continue"
  std::string time;           // 2026-11-21 09:30:00, local
  std::string where;          // "here" or "slurm"
  int jobs = 0;               // here: processes at a time
  std::string options;        // slurm: of sbatch, as given
  std::string program_sha256; // of the ZEPH that it runs
  std::vector<std::string> job_ids;
};

struct study {
  std::string version; // of zeph-chains
  std::string work;    // the work directory, from RUNS
  std::string program; // ZEPH, whole path
  std::string program_sha256;
  std::string directive; // name of the directive file
  std::int32_t analysis = 0;
  std::int32_t burnin = 0, rounds = 0, interval = 1;
  seed_pair seeds_given; // as in the work directory, zeros included
  std::vector<input_record> inputs;
  std::vector<chain_record> chains; // in order, 1..n
  std::vector<start_record> starts; // at least one

  std::int64_t first_sampled() const { return std::int64_t{burnin} + 1; }
};

struct resume_record {
  std::string time;        // as of a start
  std::int64_t after = 0;  // round of the state that it was continued from, as the segment's files number it
  std::int32_t rounds = 0; // in its directive file from then on
};

struct segment_record {
  int chain = 0, segment = 0;
  seed_pair seeds;
  std::int32_t burnin = 0, rounds = 0, interval = 1; // third line of its directive file
  std::int64_t first = 1;                            // number of its first round in its own files
  std::int64_t shift = 0;                  // number in the files + shift = number of the round in the chain
  bool counts = true;                      // false: only ends a burn-in
  std::vector<resume_record> resumes = {}; // each time that it was continued in its own directory

  std::int64_t last() const { return first - 1 + burnin + rounds; } // as its files number it
};

// Read and write. A file is replaced whole, by a rename. False with `fault`, which names the file; a key that
// is missing or of another kind is a fault too.
bool read_study(const fs::path& runs, study& s, std::string& fault);
bool write_study(const fs::path& runs, const study& s, std::string& fault);
bool read_segment(const fs::path& directory, segment_record& r, std::string& fault);
bool write_segment(const fs::path& directory, const segment_record& r, std::string& fault);

// The local time, 2026-11-21 09:30:00.
std::string time_now();

// Puts the text under a name beside `path`, then renames. False when it can't be written.
bool replace_file(const fs::path& path, const std::string& text);

// The bytes of a file. False, and no text, when it can't be read to its end.
bool read_text(const fs::path& path, std::string& text);
// The same; empty when it can't be read.
std::string text_of(const fs::path& path);

} // namespace zeph::chains
