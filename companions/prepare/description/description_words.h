// The words of the description for relationships, kinds of traits and analyses.
#pragma once

#include "prepare/description/description_records.h"

#include <array>
#include <string>
#include <vector>

namespace zeph::prepare {

// By the number of relationship_kind.
inline const std::vector<std::string> kinds = {"identity",  "pedigree",    "inverse",   "relationship",
                                               "genotypes", "single_step", "dominance", "correlation"};

// Beside trait_kind_codes.
inline const std::vector<std::string> trait_kinds = {"gaussian",  "censored", "ordered", "binary",
                                                     "indicator", "sequence", "cured"};
inline constexpr std::array trait_kind_codes = {
    trait_kind::gaussian,  trait_kind::censored, trait_kind::ordered, trait_kind::binary,
    trait_kind::indicator, trait_kind::sequence, trait_kind::cured};

// Beside analysis_codes.
inline const std::vector<std::string> analyses = {"solve", "sums", "predict", "gibbs", "models", "jump"};
inline constexpr std::array analysis_codes = {analysis_type::solve,   analysis_type::sums,
                                              analysis_type::predict, analysis_type::gibbs,
                                              analysis_type::models,  analysis_type::jump};

// For messages and listings: "pedigree", "gaussian", "gibbs".
std::string word_of(relationship_kind kind);
std::string word_of(trait_kind kind);
std::string word_of(analysis_type analysis);

} // namespace zeph::prepare
