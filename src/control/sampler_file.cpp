#include "control/sampler_file.h"

#include "formats/free_format.h"
#include "formats/text_file.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace zeph {
namespace {

constexpr std::string_view words_of_the_file = "exact, state, moves, model_prior or density";

// One line of the file: its word and the values after it.
struct sampler_line {
  std::int64_t number = 0;
  std::vector<std::string> tokens; // without the comment
  const std::string& word() const { return tokens.front(); }
  std::size_t values() const { return tokens.size() - 1; }
};

std::vector<std::string> tokens_of(std::string_view text) {
  std::vector<std::string> tokens;
  text = text.substr(0, text.find('#'));
  constexpr std::string_view blanks = " \t\r";
  for (std::size_t at = text.find_first_not_of(blanks); at != std::string_view::npos;) {
    const std::size_t end = std::min(text.find_first_of(blanks, at), text.size());
    tokens.emplace_back(text.substr(at, end - at));
    at = text.find_first_not_of(blanks, end);
  }
  return tokens;
}

// The whole text as one number; false where it is none.
template <class number> bool is_number(const std::string& text, number& x) {
  const char* end = text.data() + text.size();
  const auto [last, code] = std::from_chars(text.data(), end, x);
  return code == std::errc() && last == end;
}

std::int32_t integer_within(const sampler_line& line, std::size_t value, std::int32_t least,
                            std::int32_t most, std::string_view rule, reporting& report) {
  std::int32_t x = 0;
  if (!is_number(line.tokens[value], x) || x < least || x > most)
    illegal_input(report, sampler_file, line.word(), {static_cast<std::int64_t>(value)}, line.tokens[value],
                  rule);
  return x;
}

[[noreturn]] void wrong_count(const sampler_line& line, std::string_view rule, reporting& report) {
  illegal_input(report, sampler_file, line.word(), {}, std::to_string(line.values()) + " values", rule);
}

void take_state(const sampler_line& line, sampler_words& asked, reporting& report) {
  if (line.values() > 1) wrong_count(line, "at most one number, of minutes", report);
  asked.state = true;
  if (line.values() == 1)
    asked.state_minutes = integer_within(line, 1, 0, most_state_minutes, "0 to 1000000 minutes", report);
}

void take_density(const sampler_line& line, sampler_words& asked, reporting& report) {
  constexpr std::string_view rule = "16 to 4096 points";
  if (line.values() != 1) wrong_count(line, rule, report);
  asked.density_points = integer_within(line, 1, fewest_density_points, most_density_points, rule, report);
}

void take_row_prior(const model_records& m, const sampler_line& line, sampler_words& asked,
                    reporting& report) {
  if (line.values() == 0) wrong_count(line, "a random factor and a weight for each number of rows", report);
  row_weights row;
  row.factor = integer_within(line, 1, 1, m.nramat, "a random factor", report);
  for (const row_weights& other : asked.row_prior)
    if (other.factor == row.factor)
      illegal_input(report, sampler_file, line.word(), {row.factor}, "given twice", "once a factor");
  const std::int32_t q = m.RMAT(row.factor).n_rc;
  if (line.values() != static_cast<std::size_t>(q) + 1)
    illegal_input(report, sampler_file, line.word(), {row.factor},
                  std::to_string(line.values() - 1) + " weights",
                  "one for each of " + std::to_string(q) + " numbers of rows");
  for (std::int32_t i = 1; i <= q; ++i) {
    const std::string& text = line.tokens[static_cast<std::size_t>(i) + 1];
    double w = 0;
    if (!is_number(text, w) || !std::isfinite(w) || w <= 0)
      illegal_input(report, sampler_file, line.word(), {row.factor, i}, text, "a finite number above 0");
    row.weights.push_back(w);
  }
  asked.row_prior.push_back(std::move(row));
}

// Once a word, but for model_prior.
void refuse_twice(const sampler_line& line, std::vector<std::string>& seen, reporting& report) {
  if (line.word() == "model_prior") return;
  if (std::find(seen.begin(), seen.end(), line.word()) != seen.end())
    illegal_input(report, sampler_file, line.word(), {line.number}, "given twice", "once");
  seen.push_back(line.word());
}

void take_line(const model_records& m, const sampler_line& line, sampler_words& asked, reporting& report) {
  if (line.word() == "exact") {
    if (line.values() != 0) wrong_count(line, "no value", report);
    asked.exact = true;
  } else if (line.word() == "moves") {
    if (line.values() != 0) wrong_count(line, "no value", report);
    asked.moves = true;
  } else if (line.word() == "state") {
    take_state(line, asked, report);
  } else if (line.word() == "model_prior") {
    take_row_prior(m, line, asked, report);
  } else if (line.word() == "density") {
    take_density(line, asked, report);
  } else {
    illegal_input(report, sampler_file, "word", {line.number}, line.word(), words_of_the_file);
  }
}

// Words that have no sense without others.
void judge_words(const directives& asked, reporting& report) {
  const sampler_words& s = asked.sampler;
  if (s.density_points > 0 && !s.exact)
    illegal_input(report, sampler_file, "density", {}, std::to_string(s.density_points),
                  "only together with exact");
  if (s.state && !samples_solutions(asked.analysis_type))
    illegal_input(report, sampler_file, "state", {}, std::to_string(s.state_minutes),
                  "type of analysis 2 and above: a solver has no state to save");
  for (const row_weights& row : s.row_prior) {
    if (!s.exact)
      illegal_input(report, sampler_file, "model_prior", {row.factor}, "given", "only together with exact");
    if (!moves_between_models(asked.analysis_type))
      illegal_input(report, sampler_file, "model_prior", {row.factor}, "given",
                    "type of analysis 6 and above: chains that move between models");
  }
}

// The words again, as they are taken.
void repeat_words(const sampler_words& s, reporting& report) {
  if (!s.exact && !s.state && !s.moves) return;
  say(report);
  say(report, "Words of the file sampler");
  if (s.exact) say(report, "  exact");
  if (s.state) say(report, free_row().text("  state").i(s.state_minutes).str());
  if (s.moves) say(report, "  moves");
  for (const row_weights& row : s.row_prior) {
    free_row line;
    line.text("  model_prior").i(row.factor);
    for (const double w : row.weights) line.r8(w);
    say(report, line.str());
  }
  if (s.density_points > 0) say(report, free_row().text("  density").i(s.density_points).str());
}

} // namespace

void read_sampler_file(const model_records& m, directives& asked, reporting& report) {
  if (!file_exists(report, sampler_file)) return;
  byte_reader bytes;
  if (!bytes.open(path_of(report, sampler_file))) read_fault(report, sampler_file);
  std::vector<std::string> seen;
  sampler_line line;
  std::string text;
  for (int byte = bytes.get(); byte >= 0 || !text.empty(); byte = bytes.get()) {
    if (byte >= 0 && byte != '\n') {
      text.push_back(static_cast<char>(byte));
      continue;
    }
    ++line.number;
    line.tokens = tokens_of(text);
    text.clear();
    if (line.tokens.empty()) continue;
    refuse_twice(line, seen, report);
    take_line(m, line, asked.sampler, report);
  }
  if (bytes.failed()) read_fault(report, sampler_file);
  std::sort(asked.sampler.row_prior.begin(), asked.sampler.row_prior.end(),
            [](const row_weights& a, const row_weights& b) { return a.factor < b.factor; });
  judge_words(asked, report);
  repeat_words(asked.sampler, report);
}

} // namespace zeph
