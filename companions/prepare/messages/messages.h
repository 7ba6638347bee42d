// What zeph-prepare reports to its user: errors, warnings and notes, collected in one pass.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zeph::prepare {

enum class severity { error, warning, note };

// Where something is. An empty file: the message belongs to no file. line, column: 1-based, 0 is "none";
// the column counts characters (code points), not bytes.
struct source_place {
  std::string file;
  int line = 0;
  int column = 0;
};

struct message {
  severity level = severity::error;
  source_place at;
  std::string text; // may hold '\n': the lines after the first are printed 4 blanks to the right
  std::string kind; // messages of one not empty kind are a repeated fault: ten are shown, the rest counted
  std::string source_line; // the faulty line of the description, or empty
  std::string hint;        // printed after the caret, or, without a source line, on a line of its own
};

// All messages of a run, in the order in which they were found.
struct message_log {
  std::vector<message> entries;
};

constexpr int examples_shown = 10; // of one kind on the screen

// Add a message. The reference is good until the next one is added; it serves to set source_line and hint.
message& add_error(message_log& log, source_place at, std::string text, std::string kind = {});
message& add_warning(message_log& log, source_place at, std::string text, std::string kind = {});
message& add_note(message_log& log, source_place at, std::string text, std::string kind = {});

int count_of(const message_log& log, severity level);

// 1 when there is an error, else 0: warnings and notes do not stop.
int exit_code(const message_log& log);

// Puts the messages from entries[first] on in the order of line and column, those without a line last.
// Equal places keep their order.
void sort_by_place(message_log& log, std::size_t first);

// One message as text, each line ended by '\n':
//   file:line:column: error: text          parts that are 0 or empty are left out, with their colon
//      the source line                     3 blanks before it; a tab is shown as one blank
//             ^ hint                       the caret under the column of the place
std::string message_text(const message& m);

// For the screen: of each kind (same severity) ten, and after the last of them how many more there are;
// `listing` is the name of the file that has them all.
std::string screen_text(const message_log& log, std::string_view listing = "prepare.txt");

// For the listing: every message.
std::string full_text(const message_log& log);

// The known word that is nearest to `word` by the number of inserted, left out, changed and swapped
// neighbouring letters (Damerau 1964; optimal string alignment), upper and lower case being alike. None when
// the nearest is further than a third of the length of the longer of both (at least 1). Of equals the first.
std::optional<std::string> nearest_word(std::string_view word, std::span<const std::string> known);

// The hint `did you mean "..."?`, or an empty text.
std::string nearest_hint(std::string_view word, std::span<const std::string> known);

// The words with ", " between them; beyond `at_most` words the list ends in ", ... (n in all)".
std::string joined(std::span<const std::string> words, std::size_t at_most = 40);

// A text of the data as a message shows it, on one line: beyond `at_most` characters it is cut and ends in
// "..", control bytes are written as \x00.
std::string shown(std::string_view text, std::size_t at_most = 40);

// Number of characters (code points) of UTF-8 text; a byte that belongs to no character counts as one.
int characters(std::string_view text);

} // namespace zeph::prepare
