#include "control/state_inputs.h"

#include "control/sampler_file.h"
#include "formats/text_file.h"
#include "input/relationships.h"
#include "listing/work_files.h"

#include <algorithm>
#include <charconv>

namespace zeph {
namespace {

constexpr std::string_view sampler_blanks = " \t\r", directive_blanks = " \t\r,";

std::vector<std::string> tokens_of(std::string_view line, std::string_view blanks) {
  std::vector<std::string> tokens;
  for (std::size_t at = line.find_first_not_of(blanks); at != std::string_view::npos;) {
    const std::size_t end = std::min(line.find_first_of(blanks, at), line.size());
    tokens.emplace_back(line.substr(at, end - at));
    at = line.find_first_not_of(blanks, end);
  }
  return tokens;
}

// The next line of text; false after the last one.
bool next_line(std::string_view& text, std::string_view& line) {
  if (text.empty()) return false;
  const std::size_t end = std::min(text.find('\n'), text.size());
  line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return true;
}

// n*v as up to `most` values v, anything else as itself.
void add_values(const std::string& token, std::size_t most, std::vector<std::string>& values) {
  const std::size_t star = token.find('*');
  std::size_t n = 1;
  std::string value = token;
  if (star != std::string::npos) {
    std::from_chars(token.data(), token.data() + star, n);
    value = token.substr(star + 1);
  }
  while (n-- > 0 && values.size() < most) values.push_back(value);
}

// The values of one read: as many lines as it takes.
std::vector<std::string> values_of_read(std::string_view& text, std::size_t n) {
  std::vector<std::string> values;
  std::string_view line;
  while (values.size() < n && next_line(text, line))
    for (const std::string& token : tokens_of(line, directive_blanks)) add_values(token, n, values);
  return values;
}

void add_line(const std::vector<std::string>& tokens, std::string& out) {
  if (tokens.empty()) return;
  for (const std::string& token : tokens) out.append(token).push_back(' ');
  out.back() = '\n';
}

std::string text_of_file(const std::string& path) {
  std::string text;
  byte_reader file;
  if (!file.open(path)) return text;
  for (int byte = file.get(); byte >= 0; byte = file.get()) text.push_back(static_cast<char>(byte));
  return text;
}

input_print print_of(const reporting& report, const std::string& name) {
  file_print print;
  if (!print_of_file(path_of(report, name), print)) print.sha256 = std::string(sha256::length, '0');
  return {name, print.sha256};
}

} // namespace

std::string plain_words(std::string_view text) {
  std::string out;
  for (std::string_view line; next_line(text, line);) {
    const std::vector<std::string> tokens = tokens_of(line.substr(0, line.find('#')), sampler_blanks);
    if (tokens.empty() || tokens.front() == "state") continue;
    add_line(tokens, out);
  }
  return out;
}

std::string plain_directives(std::string_view text) {
  std::string out;
  for (const std::size_t n : {2U, 2U, 3U}) {
    std::vector<std::string> values = values_of_read(text, n);
    if (n == 3 && values.size() > 1) values.erase(values.begin() + 1); // burn-in, rounds, interval
    add_line(values, out);
  }
  for (std::string_view line; next_line(text, line);) add_line(tokens_of(line, directive_blanks), out);
  return out;
}

std::vector<input_print> prints_of_inputs(const model_records& m, const reporting& report,
                                          const std::string& directives) {
  std::vector<input_print> prints;
  for (const char* name : {"MODINF", "RCDATA_I", "RCDATA_R"}) prints.push_back(print_of(report, name));
  for (const std::string& name : relationship_files(m)) prints.push_back(print_of(report, name));
  prints.push_back(
      {std::string(sampler_file), sha256_of(plain_words(text_of_file(path_of(report, sampler_file))))});
  prints.push_back({"directive file", sha256_of(plain_directives(text_of_file(directives)))});
  return prints;
}

} // namespace zeph
