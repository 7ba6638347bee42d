// The directive file as text: what its first three lines hold, and the same file with other seeds and
// rounds.
#pragma once

#include "chains/seeds.h"

#include <cstdint>
#include <string>

namespace zeph::chains {

struct directive_text {
  std::int32_t analysis_type = 0, test_level = 0;
  seed_pair seeds;
  std::int32_t nburn = 0, nround = 0, isamp = 0;
  std::string head; // the lines of the first read, as written
  std::string tail; // all lines after the third read, as written
};

// Takes the text apart. Each read begins on a fresh line, takes as many lines as it needs, n*v means n
// times v. False with `fault` ("line 2 should hold the seeds A and B") when a read finds no such integers.
bool take_apart(const std::string& text, directive_text& d, std::string& fault);

// head, a line of seeds, a line of rounds, tail.
std::string put_together(const directive_text& d);

} // namespace zeph::chains
