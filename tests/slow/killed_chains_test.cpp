// Chains that are killed 200 times in all and continued from their saved state.
#include "runs/broken_chains.h"

namespace {

using namespace zeph_test;

class killed_chain : public testing::TestWithParam<chain_kind> {};

TEST_P(killed_chain, ends_with_the_bytes_of_the_unbroken_one) {
  kill_and_continue(GetParam(), GetParam().type == "5" ? "5 150 3" : "20 300 3", 20, 20261122);
}

INSTANTIATE_TEST_SUITE_P(
    of, killed_chain,
    testing::Values(chain_kind{"missing", "three3_t3", "3"},
                    chain_kind{"weights_groups_and_all_files", "herd", "4"},
                    chain_kind{"censored", "cens2_t3", "2"}, chain_kind{"ordered", "cat3_t3", "3"},
                    chain_kind{"mixture", "mix2_t3", "3"}, chain_kind{"cure", "cure_t3", "3"},
                    chain_kind{"deviations", "tdptd_t3", "3"}, chain_kind{"all_kinds", "all_kinds", "3"},
                    chain_kind{"models", "jumpI3_t6", "5"}, chain_kind{"jump", "jumpI3_t6", "6"}),
    [](const auto& info) { return info.param.name; });

} // namespace
