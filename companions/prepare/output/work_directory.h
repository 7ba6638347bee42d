// Writes the work directory: the files that ZEPH reads, and those that describe them.
#pragma once

#include "prepare/model/prepared_model.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace zeph::prepare {

struct directory_result {
  bool ok = false;
  std::string fault;                // what could not be written
  bool mixed = false;               // after a fault: some files are new, others those of before
  std::vector<std::string> files;   // written, without the directory
  std::vector<std::string> removed; // of an earlier preparation
};

// MODINF, RCDATA_I, RCDATA_R, CODE_TABLE, the directive file, sampler where the description asks for more
// than the classic chain, one relationship file per factor that has one, PEDFILEk for a pedigree, and beside
// them codes_*.csv, prepare.txt (the text given) and names.json.
//
// CODE_TABLE has one record per level, the class effects by trait, then the factors. Integers: 2 (class) or 3
// (factor), code, number of records, level, trait or factor, and for a class its number in the trait; a
// factor's record has 13, with the codes of sire and dam in places 8 and 9.
// PEDFILEk has the pairs (sire, dam) of up to 100000 levels in each record.
//
// The directory is made when it does not exist. Files of the same names are replaced; those that names.json
// of an earlier preparation lists and this one does not write are removed; all others stay. The new files get
// their names when all of them are written: where one can't be, the old ones stay as they were. The model
// must be complete.
directory_result write_work_directory(const model_description& d, const prepared_model& p,
                                      const std::filesystem::path& directory, const std::string& listing);

// The time of preparation in the MODINF of the directory: day, month, year, hour, minute, second; none: no
// such file. A chain that continues from its saved state knows its model by the bytes of MODINF.
std::optional<std::array<std::int32_t, 6>> stamp_of_directory(const std::filesystem::path& directory);

// Files in the directory that ZEPH would act on though this preparation did not make them: STOP ends the
// run, oldsol and r_parm, or r_state, continue an old chain, mixz_prob and mixz_last of a mixture are not
// written over, ytopredict asks for predictions. A line each, in the words of the run that is prepared: an
// exact one refuses oldsol and r_parm, one that is to continue from its r_state takes mixz_prob and
// mixz_last.
std::vector<std::string> disturbing_files(const std::filesystem::path& directory, bool exact,
                                          bool from_state = false);

} // namespace zeph::prepare
