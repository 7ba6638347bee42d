// Chains that are killed, those of the plain sampler 200 times in all and the exact ones 200 times, and
// continued from their saved state.
#include "runs/broken_chains.h"

namespace {

using namespace zeph_test;

class killed_chain : public testing::TestWithParam<chain_kind> {};

TEST_P(killed_chain, ends_with_the_bytes_of_the_unbroken_one) {
  kill_and_continue(GetParam(), GetParam().type == "5" ? "60 100 3" : "150 200 3", 20, 20261122);
}

INSTANTIATE_TEST_SUITE_P(
    of, killed_chain,
    testing::Values(chain_kind{"missing", "three3_t3", "3"},
                    chain_kind{"weights_groups_and_all_files", "herd", "4"},
                    chain_kind{"censored", "cens2_t3", "2"}, chain_kind{"ordered", "cat3_t3", "3"},
                    chain_kind{"mixture", "mix2_t3", "3"}, chain_kind{"cure", "cure_t3", "3"},
                    chain_kind{"deviations", "tdptd_t3", "3"}, chain_kind{"all_kinds", "all_kinds", "3"},
                    chain_kind{"models", "jumpI3_t6", "5"}, chain_kind{"jump", "jumpI3_t6", "6"},
                    chain_kind{"exact_missing", "three3_t3", "3", "exact"},
                    chain_kind{"exact_meeting_levels", "tb_maternal", "2", "exact"},
                    chain_kind{"exact_censored", "cens2_t3", "3", "exact"},
                    chain_kind{"exact_ordered", "cat3_t3", "3", "exact"},
                    chain_kind{"exact_cure", "cure_t3", "3", "exact"},
                    chain_kind{"exact_all_kinds_2", "all_kinds", "2", "exact"},
                    chain_kind{"exact_all_kinds_3", "all_kinds", "3", "exact"},
                    chain_kind{"exact_density", "all_kinds", "4", "exact\ndensity 16"},
                    chain_kind{"exact_models", "jumpI3_t6", "5", "exact"},
                    chain_kind{"exact_jump", "jumpI3_t6", "6", "exact\nmodel_prior 1 1 2 3"}),
    [](const auto& info) { return info.param.name; });

} // namespace
