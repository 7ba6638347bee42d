// The checker itself, on trees with a known fault.
#include "include_check/folder_order.h"

#include <gtest/gtest.h>

namespace {

using namespace zeph_test;
using texts = std::vector<std::string>;

// Two programs over a common floor: left has two wings and a main, right one folder.
const std::vector<folder_order> ORDERS = {{"floor", "left/low", "left/high", "left"}, {"floor", "right"}};

TEST(faulty_includes, finds_nothing_where_all_arrows_go_down) {
  EXPECT_EQ(faulty_includes({{"floor/a.h", {}},
                             {"left/low/b.cpp", {"left/low/b.h", "floor/a.h"}},
                             {"left/high/c.cpp", {"left/high/c.h", "left/low/b.h"}},
                             {"left/main.cpp", {"left/high/c.h", "floor/a.h"}},
                             {"right/d.cpp", {"right/d.h", "floor/a.h"}}},
                            ORDERS),
            texts{});
}

TEST(faulty_includes, names_an_arrow_that_goes_up) {
  EXPECT_EQ(faulty_includes({{"left/low/b.cpp", {"left/low/b.h", "left/high/c.h"}}}, ORDERS),
            texts{"left/low/b.cpp includes left/high/c.h"});
  EXPECT_EQ(faulty_includes({{"floor/a.cpp", {"floor/a.h", "right/d.h"}}}, ORDERS),
            texts{"floor/a.cpp includes right/d.h"});
}

TEST(faulty_includes, names_an_arrow_between_programs) {
  EXPECT_EQ(faulty_includes({{"right/d.cpp", {"left/low/b.h"}}}, ORDERS),
            texts{"right/d.cpp includes left/low/b.h"});
}

TEST(faulty_includes, names_files_and_includes_of_unknown_folders) {
  EXPECT_EQ(faulty_includes({{"attic/e.h", {}}}, ORDERS),
            texts{"attic/e.h belongs to no folder of the order"});
  EXPECT_EQ(faulty_includes({{"left/low/b.cpp", {"b.h"}}}, ORDERS), texts{"left/low/b.cpp includes b.h"});
  EXPECT_EQ(faulty_includes({{"floor/a.cpp", {"floors/a.h"}}}, ORDERS),
            texts{"floor/a.cpp includes floors/a.h"});
}

TEST(folder_of, takes_the_longest_folder) {
  EXPECT_EQ(folder_of("left/high/c.h", ORDERS), "left/high");
  EXPECT_EQ(folder_of("left/main.cpp", ORDERS), "left");
  EXPECT_EQ(folder_of("leftover/c.h", ORDERS), "");
}

TEST(unit_cycles, finds_nothing_where_units_have_an_order) {
  EXPECT_EQ(unit_cycles({{"a.cpp", {"a.h", "b.h", "c.h"}}, {"b.h", {"c.h"}}, {"c.h", {}}}), texts{});
}

// No header of the two includes the other: the circle runs through a source.
TEST(unit_cycles, follows_sources_as_well_as_headers) {
  EXPECT_EQ(unit_cycles({{"a.cpp", {"a.h", "b.h"}}, {"a.h", {}}, {"b.h", {"a.h"}}}), texts{"a -> b -> a"});
}

TEST(unit_cycles, finds_a_circle_of_three) {
  EXPECT_EQ(unit_cycles({{"a.h", {"b.h"}}, {"b.h", {"c.h"}}, {"c.cpp", {"c.h", "a.h"}}}),
            texts{"a -> b -> c -> a"});
}

TEST(headers_not_first, names_the_source) {
  EXPECT_EQ(headers_not_first({{"a.h", {}}, {"a.cpp", {"b.h", "a.h"}}, {"b.h", {}}, {"b.cpp", {"b.h"}}}),
            texts{"a.cpp doesn't include a.h first"});
}

} // namespace
