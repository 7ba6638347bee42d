// The words of a shell script: which it calls, and which it names outside quotation marks.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

namespace zeph_test {

struct shell_words {
  std::set<std::string> called;    // words where a command may begin, keywords and assignments left out
  std::set<std::string> named;     // every plain word, called or an argument
  std::set<std::string> functions; // defined in the script
};

// Reads a script of bash or sh. Comments, texts of here-documents and single quotation marks are passed
// over; $(..) is read inside double ones too.
shell_words words_of_script(std::string_view text);

} // namespace zeph_test
