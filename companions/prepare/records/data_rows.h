// The data records as the two data files hold them, column by column.
#pragma once

#include "prepare/records/record_selection.h"

#include <cstdint>
#include <vector>

namespace zeph::prepare {

// Columns count from 1 in the model, and are here at index column - 1. Rows are the used records in their
// order.
struct data_rows {
  std::vector<std::vector<std::int32_t>>
      integers;                          // RCDATA_I; the last three: mask, pattern, position in the data
  std::vector<std::uint8_t> own;         // by column of them: 1: nothing else shares it
  std::vector<std::vector<float>> reals; // RCDATA_R; the observations first, in trait order
  std::size_t n_observations = 0;        // so many of them
};

// Values of the used records out of those per record of the file.
std::vector<std::int32_t> values_of_used(const record_selection& records,
                                         const std::vector<std::int32_t>& value);

// Adds a column of values per record of the file, taking the used records, and returns its number. A column
// equal to one that is there already is not added again; observations are not shared, since those of latent
// traits are rescaled when they are read. Not a number becomes 0.
std::int32_t add_integers(data_rows& rows, const record_selection& records,
                          const std::vector<std::int32_t>& value);
std::int32_t add_reals(data_rows& rows, const record_selection& records, const std::vector<double>& value);

// The same for the observations of trait t (0-based): always a column of its own, 0 where the trait is
// missing.
std::int32_t add_observations(data_rows& rows, const record_selection& records, std::size_t t,
                              const std::vector<double>& value);

// The same for a column that nothing else may share.
std::int32_t append_reals(data_rows& rows, const record_selection& records, const std::vector<double>& value);

// A column as it is, one value per used record, that nothing else shares.
std::int32_t append_integers(data_rows& rows, std::vector<std::int32_t> value);

} // namespace zeph::prepare
