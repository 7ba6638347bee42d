// Which traits are present in which records, and which records are used.
#pragma once

#include "prepare/records/data_columns.h"
#include "prepare/records/record_sequences.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zeph::prepare {

// Why a trait that was observed is made missing in some records.
struct removal {
  int trait = 0;                   // 0-based
  std::string column;              // the column without a value
  std::string why;                 // "age is missing"
  std::vector<std::int64_t> lines; // of the data file
};

// A trait is present in a record when its observation, its weight, the classes and covariables of its fixed
// part and the covariables of its random regressions all are, and so is the class whose solutions are a
// covariable of it: the files have no missing code for them, and a class or covariable without value would
// leave the effect out of the record silently. A record is used when it has a present trait and, with
// residual groups, a group. The level of a random factor may be missing: the effect is then left out of the
// record.
// An indicator is present where its own columns are, and its mixed traits are so only together with it; alone
// it does not make a record used. A trait of kind cured is present in the last record of each sequence alone;
// where its columns have no value there, the sequence is dropped.
struct record_selection {
  std::vector<std::vector<std::uint8_t>> present; // [trait][record of the file]; 0 in records not used
  std::vector<std::uint8_t> use;                  // [record of the file]
  std::vector<std::uint32_t>
      records; // the used records of the file, from 0, ascending; with sequences the records
               // of a subject are together, in its order
  record_sequences sequences;
  std::vector<removal> removals;
  std::int64_t n_without_trait = 0; // dropped: no trait present
  std::int64_t n_without_group = 0; // dropped: no residual group

  [[nodiscard]] std::size_t n_used() const { return records.size(); }
};

// Warns of every removal and of dropped records, with counts; an error when a trait has no record at all,
// when a weight is below zero, when no used record is in a category, and those of make_sequences. A weight of
// 0 makes the trait missing.
record_selection select_records(const model_description& d, const data_columns& data, message_log& log);

// "1 record", "14 records".
std::string records_in_words(std::int64_t n);

} // namespace zeph::prepare
