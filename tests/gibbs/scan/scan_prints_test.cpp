#include "gibbs/scan/scan_prints.h"

#include "gibbs/scan_case.h"

namespace {

using namespace zeph_test;

// A class effect of two levels and a factor of three levels of order 2.
struct printed_equations : scan_case {
  static described_model described(std::int32_t levels) {
    described_model d;
    d.traits.resize(2);
    d.traits[0].effects = {{1, 2}};
    d.factors = {{"I", levels, 2, {{1, 2, 1}, {2, 2, 2}}}};
    d.integers = 5, d.reals = 2;
    return d;
  }
  explicit printed_equations(std::int32_t levels = 3) : scan_case(described(levels)) {
    start(1);
    for (std::int32_t e = 1; e <= layout.neq; ++e) s.RHS(e) = e + 0.5, s.sol(e) = -e;
    layout.DI_of(1)(1, 1) = 4.0;
    layout.DI_of(1)(1, 2) = 5.0;
    for (std::int32_t l = 1; l <= levels; ++l)
      for (std::int32_t p = 1; p <= 3; ++p) layout.DI_of(2)(p, l) = 10.0 * l + p;
  }
  std::string print(std::int64_t round) {
    f.state.iround = round;
    print_equations(records().layout, records().sampler, records().report, f.state);
    return said();
  }
};

std::string tens(std::int32_t l, std::int32_t p) { return R8(std::to_string(10 * l + p) + ".0"); }

const std::string first_blocks = "First diagonal block in each group\nGroup" + I(1) + "\n" + I(1) + I(1) +
                                 R8("4.0") + "\nGroup" + I(2) + "\n" + I(1) + I(1) + tens(1, 1) + "\n" +
                                 I(2) + I(1) + tens(1, 2) + "\n" + I(2) + I(2) + tens(1, 3) + "\n";

TEST(print_equations, shows_right_hand_sides_solutions_and_blocks) {
  printed_equations c;
  std::string expected = "Current rhs and sol (max. 50), round=" + I(2) + "\n";
  for (std::int32_t e = 1; e <= 8; ++e)
    expected += I(e) + R8(std::to_string(e) + ".5") + R8("-" + std::to_string(e) + ".0") + "\n";
  expected += "Current diagonal blocks\n" + I(1) + I(1) + R8("4.0") + "\n" + I(1) + I(2) + R8("5.0") + "\n";
  for (std::int32_t l = 1; l <= 3; ++l) expected += I(2) + I(l) + tens(l, 1) + tens(l, 2) + tens(l, 3) + "\n";
  EXPECT_EQ(c.print(2), expected);
  EXPECT_EQ(c.print(1).substr(0, first_blocks.size()), first_blocks);
}

TEST(print_equations, shows_the_first_blocks_before_and_after_in_round_1) {
  printed_equations c;
  const std::string later = c.print(2), first = c.print(1);
  std::string middle = later;
  middle.replace(middle.find(I(2)), 12, I(1)); // the round
  EXPECT_EQ(first, first_blocks + middle + first_blocks);
}

TEST(print_equations, shows_50_equations_and_50_levels_at_most) {
  printed_equations c(60); // 122 equations
  const std::string text = c.print(2);
  EXPECT_NE(text.find(I(50) + R8("50.5") + R8("-50.0") + "\nCurrent diagonal blocks\n"), std::string::npos);
  const std::string last = I(2) + I(50) + tens(50, 1) + tens(50, 2) + tens(50, 3) + "\n";
  EXPECT_EQ(text.substr(text.size() - last.size()), last);
}

TEST(print_equations, shows_the_leading_block_of_a_smaller_model) {
  printed_equations c;
  c.layout.NGR(2, 2) = 1;
  const std::string text = c.print(2), end = I(2) + I(3) + tens(3, 1) + "\n";
  EXPECT_EQ(text.substr(text.size() - end.size()), end);
}

TEST(print_equations, passes_the_first_block_of_a_factor_without_levels) {
  printed_equations c(0);
  EXPECT_EQ(c.print(1).substr(0, 60), first_blocks.substr(0, 60));
}

} // namespace
