// Files beside those that ZEPH reads: they say which name, level or equation is what.
#pragma once

#include "prepare/model/equation_ranges.h"

#include <string>
#include <vector>

namespace zeph::prepare {

// A text file of the work directory.
struct side_file {
  std::string name;
  std::string text; // lines ended by '\n'
};

// names.json: the traits with their kind, categories (lowest first), indicator and partner; what is known of
// these kinds; factors with their rows, levels, structure and files, residual groups, the equations of every
// part of the model, short names beside long ones, the files of the directory, and a check sum of every input
// file (FNV-1a, 64 bits).
std::string names_json(const model_description& d, const prepared_model& p,
                       const std::vector<std::string>& files);

// codes_<factor>.csv: level, code, identification, F, records, in_pedigree, and with combinations of
// classes their parts, one column each; one file per factor.
std::vector<side_file> factor_code_files(const prepared_model& p);

// codes_fixed.csv: trait, effect, level, code, identification, records, equation (0: none), number of the
// effect in the trait (that names.json gives as nested_in of a nested regression).
side_file class_code_file(const model_description& d, const prepared_model& p);

// A cell of a CSV file, in quotes where it needs them.
std::string csv_cell(const std::string& text);

} // namespace zeph::prepare
