#include "prepare/model/short_names.h"

#include <gtest/gtest.h>

namespace {

using zeph::prepare::short_names;
using names = std::vector<std::string>;

TEST(short_names, keep_what_fits_and_cut_the_rest) {
  EXPECT_EQ(short_names({"bwt", "weaning_weight"}), (names{"bwt", "weaning_"}));
}

TEST(short_names, equal_beginnings_end_in_numbers) {
  EXPECT_EQ(short_names({"tarsus_left", "tarsus_length", "tarsus_l3"}),
            (names{"tarsus_l", "tarsus_2", "tarsus_3"}));
}

TEST(short_names, number_that_is_taken_is_passed_over) {
  EXPECT_EQ(short_names({"tarsus_2", "tarsus_left", "tarsus_length"}),
            (names{"tarsus_2", "tarsus_l", "tarsus_3"}));
}

TEST(short_names, character_outside_ascii_is_one_underscore) {
  EXPECT_EQ(short_names({"gr\xC3\xB6\xC3\x9F"
                         "e"}),
            (names{"gr__e"}));
}

TEST(short_names, padded_text_has_the_width) { EXPECT_EQ(zeph::prepare::padded("ab", 4), "ab  "); }

} // namespace
