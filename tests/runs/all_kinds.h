// A description with all kinds of traits, and its made-up records.
#pragma once

#include <cstdint>
#include <string>

namespace zeph_test {

// Seven kinds of traits in one chain: 1 gaussian with a shift, 2 its indicator, 3 censored, 4 ordered, 5
// binary, 6 sequence, 7 cured.
inline constexpr const char* ALL_KINDS = R"toml([data]
file = "data.csv"
[factor.sire]
[covariable.age]
[trait.scs]
formula = "age + shift(infected) + (1 | sire)"
[trait.infected]
kind = "indicator"
formula = "1"
[trait.days]
kind = "censored"
limits = { event = "seen" }
formula = "age + (1 | sire)"
[trait.ease]
kind = "ordered"
formula = "1 + (1 | sire)"
[trait.fertile]
kind = "binary"
formula = "1"
[trait.ill]
kind = "sequence"
subject = "cow"
formula = "1"
[trait.able]
kind = "cured"
of = "ill"
formula = "1"
[keep]
solutions = true
[run]
analysis = "gibbs"
burnin = 100
rounds = 2000
interval = 10
seeds = [11, 12]
)toml";

// 60 cows of three records each; numbers without a pattern, but for two levels of scs.
inline std::string records_of_all_kinds() {
  std::string data = "cow,sire,age,scs,days,seen,ease,fertile,ill\n";
  std::uint32_t state = 77; // linear congruential generator
  const auto next = [&state](std::uint32_t n) {
    return ((state = state * 1664525U + 1013904223U) >> 16) % n;
  };
  for (int r = 0; r < 180; ++r) {
    const std::uint32_t high = next(3) == 0 ? 500 : 0;
    data += std::to_string(r / 3) + "," + std::to_string(r / 3 % 10) + "," + std::to_string(next(9)) + ",";
    data += next(10) == 0 ? "NA" : std::to_string(0.01 * static_cast<double>(high + next(200)));
    data += "," + std::to_string(50 + next(60)) + "," + std::to_string(next(4) > 0 ? 1 : 0) + "," +
            std::to_string(1 + next(4)) + "," + std::to_string(next(2)) + ",";
    data += r / 3 % 3 == 0 && r % 3 == 2 ? "1\n" : "0\n";
  }
  return data;
}

} // namespace zeph_test
