// Missing codes of [data] in columns of numbers, where they count by value: -999 is -999.0 too.
#pragma once

#include "prepare/tables/csv_columns.h"

#include <string>
#include <string_view>
#include <vector>

namespace zeph::prepare {

// The missing codes that are numbers, written with a point or with the decimal sign of the file.
std::vector<double> missing_numbers(const csv_layout& layout);

// True for a cell that is missing as a text (is_missing) or has the value of one of the codes.
bool is_missing_number(const csv_columns& table, std::size_t c, std::size_t r);

// For a cell that is no number but means "no value" in other programs: the key of the description that says
// so. Empty for any other cell.
std::string missing_hint(const csv_columns& table, std::string_view cell);

// Warning for each text of a class column that is no missing code and hardly a class ("." "-" "NA"), with its
// number of records: it is a level like any other.
void warn_of_missing_levels(const csv_columns& table, std::size_t c, message_log& log);

} // namespace zeph::prepare
