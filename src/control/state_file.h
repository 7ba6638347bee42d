// The whole state of a chain, saved between two rounds and taken up again: with the word `state` of the
// file `sampler` a run writes `statelast`, and continues from `r_state`, such a file under its other name.
// The continued chain ends with the same bytes in every file but listing and `status`.
//
// The order of a run:
//   find_state            after the directive lines: r_state is checked against the inputs of the run
//   continue_files        instead of opening the sample files: they are cut to where they were
//   take_state            once all stores are there and filled as for a new chain: the chain's own values
//   round_ends_the_run    after each round
//   save_state            after the last one, before the reports, which change sums into means
// What a state holds: state_blocks.h; the form of the file: samples/state_records.h.
#pragma once

#include "samples/state_records.h"

#include <chrono>
#include <memory>

namespace zeph {

struct run;

// The SHA-256 of an input, by its name.
struct input_print {
  std::string name;
  std::string digits;
};

// Where a chain was when it was saved.
struct chain_position {
  std::int32_t analysis_type = 0;
  std::int32_t sampling = 0; // 0: burn-in; 1: beyond it; analysis type 5: number of the model, from 1
  std::int64_t round = 0;    // the last one that was finished; analysis type 5: of this model
  std::int64_t P_ROUND = 0;
  std::int32_t seeds[2] = {};    // in force: those of the directive file, or by the clock
  std::int32_t nburn = 0;        // in force
  std::int32_t restart = 0;      // not 0: the chain had begun from r_parm and oldsol
  std::vector<std::int32_t> ntr; // nramat+1: the model
};

// A file that grows with the chain, as it was saved.
struct growing_file {
  std::int64_t length = -1;                           // bytes; -1: the run has not got it open
  std::string end = std::string(sha256::length, '0'); // SHA-256 of its last bytes, 4096 or all
};

struct saved_state {
  bool wanted = false;                // the word state
  std::vector<input_print> inputs;    // of this run
  chain_position position;            // of r_state while a chain is continued
  std::int64_t finished = 0;          // last round that is finished; analysis type 5: of the model in force
  std::int32_t model_number = 1;      // analysis type 5: of the model in force
  std::unique_ptr<state_reader> from; // r_state until its values are taken
  bool continued = false;             // the chain began from r_state
  std::unique_ptr<state_writer> to;
  std::chrono::steady_clock::time_point last_save{};
  std::chrono::nanoseconds between{0}; // two saves, instead of the minutes of the word (tests); 0: those
};

// Without the word state: a line when there is an r_state, which is ignored. With it: the sums of the
// inputs; and where there is an r_state, it is opened, checked as a whole and held against the inputs.
// Seeds and burn-in of the chain then replace those of the directive file. Every fault stops as illegal
// input of r_state, code 16: r_parm or oldsol beside it, a sum or a size that differs, more rounds than
// the directive file asks for.
void find_state(run& r);

// True while a chain is to be continued.
inline bool continues(const saved_state& s) { return s.from != nullptr; }

// Takes the place of open_sample_files in a chain that is continued. All growing files are looked at
// first: one that is missing, shorter than it was or of other bytes stops as illegal input of r_state.
// Then they are cut to their lengths and opened at their ends. Files of memberships may be there.
void continue_files(run& r);

// Takes all of r_state; nothing when no chain is continued. From analysis type 5 on after jump_setup.
void take_state(run& r);

// To be asked after each round state.iround. True when a file STOP ends the run; `looked_for`: the plain
// sampler looks for it in this round too. Otherwise the state is saved where its time has come.
bool round_ends_the_run(run& r, bool looked_for);

// True when the state is saved not at the end alone.
bool saves_between_rounds(const run& r);

// Writes statelast, beside the growing files as they are, all of them on the device before it gets its
// name. Nothing without the word state. No part of the run changes but the time of the last save.
void save_state(run& r);

} // namespace zeph
