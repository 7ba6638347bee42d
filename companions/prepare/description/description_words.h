// The words of the description for relationships, kinds of traits and analyses.
#pragma once

#include "prepare/description/description_records.h"

#include <string>
#include <vector>

namespace zeph::prepare {

// By the number of relationship_kind.
inline const std::vector<std::string> kinds = {"identity",  "pedigree",    "inverse",   "relationship",
                                               "genotypes", "single_step", "dominance", "correlation"};

// Of the kinds of traits, in the order of kind_rows.
std::vector<std::string> words_of_kinds();

// Of the analyses that a description can ask for, in the order of analysis_words.
std::vector<std::string> words_of_analyses();

// For messages and listings: "pedigree", "gaussian", "gibbs".
std::string word_of(relationship_kind kind);
std::string word_of(trait_kind kind);
std::string word_of(analysis_type analysis);

} // namespace zeph::prepare
