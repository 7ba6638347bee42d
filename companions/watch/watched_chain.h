// One chain that is watched, and what its files say about it now. Only reads.
#pragma once

#include "chains/round_pace.h"
#include "chains/segment_state.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::watch {

namespace fs = std::filesystem;

enum class life { waits, running, ended }; // waits: not begun; it may never begin

// What was seen last. A `status` that is missing for a moment leaves it as it was.
struct chain_look {
  life now = life::waits;
  std::string state = "waits"; // starting, burn-in, sampling, stopping, complete, stopped, failed, killed ..
  std::int64_t round = 0, of = 0; // of the chain, burn-in included; of 0: not known
  std::string trouble;            // why it failed
  double age = 0;                 // seconds since `status` changed
  std::vector<int> model;         // dimensions, of chains between models
  std::vector<double> mixture;    // last row of mix_pi, a value a trait; empty without the file
};

struct watched_chain {
  fs::path runs;                  // a study, and
  int chain = 0;                  // the number of its chain; 0: `directory` alone is watched
  fs::path directory;             // where ZEPH runs; of a study: its last segment, empty while it has none
  std::string name;               // "chain 2", or the directory
  bool queued = false;            // begun with Slurm: it begins when its turn comes
  bool models = false;            // the analysis moves between models
  std::vector<std::string> mixed; // per trait its name when it has a mixture, else empty; none known: empty
  chain_look look;
  chains::round_pace pace;
  std::int64_t seen_round = -1; // round of the last change that was seen, and when
  double seen_time = 0;
};

// The chains of a directory: every chain of a study, or one run of ZEPH. False with `fault` when it is
// neither.
bool chains_in(const fs::path& directory, std::vector<watched_chain>& all, std::string& fault);

// Looks again. now: seconds of the steady clock.
void look_again(watched_chain& c, double now);

} // namespace zeph::watch
