// Text literals of the sources, for tests that hold a page of the documents against them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zeph_test {

struct text_literal {
  int line = 0;     // 1-based, where it begins
  std::string text; // escapes resolved; adjacent literals are one
  std::string call; // what is before it in its statement, without texts and comments
};

// All literals of a C++ source but character, raw (R"...") and #include ones.
std::vector<text_literal> cpp_literals(std::string_view source);

// Literals of an R source that are within the brackets of a call whose name ends in one of `calls`,
// "stop_report(" and so on; all of them when no call is named.
std::vector<text_literal> r_literals(std::string_view source, const std::vector<std::string>& calls);

// The fixed pieces of a text: it is cut at values ({}, {:.3g}, three dots or more) and at line ends; blanks
// and points at both ends of a piece are taken off and empty pieces left out. "{{" means "{".
std::vector<std::string> fixed_pieces(std::string_view text);

// Two words of two letters or more with a blank between them: a text that is meant for somebody.
bool is_prose(std::string_view piece);

} // namespace zeph_test
