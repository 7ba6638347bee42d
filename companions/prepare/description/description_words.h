// The words of the description for relationships, kinds of traits and analyses.
#pragma once

#include "prepare/description/description_records.h"

#include <array>
#include <string>
#include <vector>

namespace zeph::prepare {

// By the number of relationship_kind.
inline const std::vector<std::string> KINDS = {"identity",  "pedigree",    "inverse",   "relationship",
                                               "genotypes", "single_step", "dominance", "correlation"};

// Beside TRAIT_KIND_CODES.
inline const std::vector<std::string> TRAIT_KINDS = {"gaussian",  "censored", "ordered", "binary",
                                                     "indicator", "sequence", "cured"};
inline constexpr std::array TRAIT_KIND_CODES = {
    trait_kind::gaussian,  trait_kind::censored, trait_kind::ordered, trait_kind::binary,
    trait_kind::indicator, trait_kind::sequence, trait_kind::cured};

// Of the analyses that a description can ask for, in the order of analysis_words.
std::vector<std::string> words_of_analyses();

// For messages and listings: "pedigree", "gaussian", "gibbs".
std::string word_of(relationship_kind kind);
std::string word_of(trait_kind kind);
std::string word_of(analysis_type analysis);

} // namespace zeph::prepare
