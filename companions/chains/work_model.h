// What zeph-chains must know of a work directory: its directive file, its inputs, and the sizes of the state
// that a chain of its model saves.
#pragma once

#include "chains/directive_text.h"
#include "chains/study_records.h"
#include "formats/sha256.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::chains {

struct work_model {
  std::string directive_name; // a plain name
  directive_text directives;
  std::int32_t neq = 0;                 // equations
  std::vector<std::int32_t> types;      // kind of each trait
  std::vector<std::int64_t> state;      // bytes of each record of gparlast, in order
  std::vector<std::string> state_names; // what each of them holds

  bool exact = false;       // the file sampler has the word
  bool saves_state = false; // it has the word state: the whole state of a chain is saved along the way

  bool draws_thresholds() const; // a trait has them
  bool forgets_values() const;   // a continued chain draws values of a trait again
};

// Reads MODINF and the directive file. False with `fault` when they can't be read, or when the directive file
// is not in the directory itself.
bool read_work_model(const fs::path& work, work_model& m, std::string& fault);

// A line of the file `sampler` of the directory begins with the word.
bool sampler_asks_for(const fs::path& work, std::string_view word);

// Names of the files of the directory that go into every segment as links, sorted: those that ZEPH reads, and
// those that names.json lists; `sampler` whoever wrote it. The directive file, oldsol, r_parm, r_state,
// statelast and STOP are not among them.
std::vector<std::string> input_names(const fs::path& work, const work_model& m);

// The sizes and hashes of these files and of the directive file. False with `fault` when one can't be read.
bool print_inputs(const fs::path& work, const std::vector<std::string>& names,
                  std::vector<input_record>& inputs, std::string& fault);

// One line for each input of the study that is gone or has other bytes now. With `quick` only sizes are
// compared.
std::vector<std::string> changed_inputs(const fs::path& work, const study& s, bool quick);

} // namespace zeph::chains
