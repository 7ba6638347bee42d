#include "gibbs/moves/move_listing.h"

#include "formats/column_format.h"
#include "gibbs/moves/moves.h"
#include "input/model_records.h"
#include "listing/listing_rows.h"

#include <string>

namespace zeph {
namespace {

constexpr std::size_t label_width = 51;
constexpr int label_end = 60;

// A label and dots up to its width.
std::string dotted(std::string label) {
  if (label.size() < label_width) label += ' ';
  if (label.size() < label_width) label.append(label_width - label.size(), '.');
  return label;
}

void say_words(reporting& report, const std::string& label, std::string_view words) {
  say(report, column_line()
                  .X(1)
                  .T(1)
                  .A(dotted(label), label_end)
                  .X(1)
                  .A(words, static_cast<int>(words.size()))
                  .str());
}

std::string factor_label(std::int32_t k) { return "Random factor no" + format_I(k, 3); }
std::string pair_label(const pair_move& pair) {
  return "Random factors no" + format_I(pair.k, 3) + " and" + format_I(pair.other, 3);
}
std::string trait_label(std::int32_t t) { return "Trait no" + format_I(t, 3); }

std::string words_of(const factor_move& move) {
  const std::string draws =
      move.relaxed ? "relaxed draws" : "draws as without the word: levels meet in a record";
  if (!move.moves) return draws + "; no move: " + std::string(move.why);
  return move.relaxed ? draws + ", moves" : "moves; " + draws;
}

std::string words_of(const trait_move& move, bool binary) {
  if (!move.moves) return "no move: " + std::string(move.why);
  return binary ? "scale moves" : "thresholds and scale move";
}

// ---- shares at the end

constexpr double rare_share = 0.2;

void say_share(reporting& report, const std::string& label, const move_count& count) {
  column_line line;
  line.X(1).T(1).A(dotted("Accepted moves, " + label), label_end).X(1);
  for (const int when : {0, 1}) {
    if (count.tried[when] == 0)
      line.A("-", 8);
    else
      line.F(static_cast<double>(count.accepted[when]) / static_cast<double>(count.tried[when]), 8, 3);
  }
  say(report, line.str());
  if (count.tried[1] > 0 &&
      static_cast<double>(count.accepted[1]) < rare_share * static_cast<double>(count.tried[1]))
    say(report, "NOTE: this move rarely succeeds; the chain is right but gains little");
}

std::string in_a_sentence(std::string label) {
  label[0] = static_cast<char>(label[0] - 'A' + 'a');
  return label;
}

} // namespace

void say_no_moves(std::string_view reason, reporting& report) { say_words(report, "Moves that mix", reason); }

void say_moves(const model_records& model, const move_store& moves, reporting& report) {
  say_words(report, "Moves that mix", "on");
  std::int32_t k = 0;
  for (const factor_move& move : moves.factors) say_words(report, factor_label(++k), words_of(move));
  for (const pair_move& pair : moves.pairs) say_words(report, pair_label(pair), "levels exchange");
  for (const trait_move& move : moves.traits)
    say_words(report, trait_label(move.t), words_of(move, model.MODEL(move.t).TRAIT_TYPE == trait_liability));
}

void report_moves(const move_store& moves, reporting& report) {
  if (!moves.on) return;
  say(report);
  std::int32_t k = 0;
  for (const factor_move& move : moves.factors)
    if (++k; move.moves) say_share(report, in_a_sentence(factor_label(k)), move.count);
  for (const pair_move& pair : moves.pairs) {
    say_share(report, in_a_sentence(pair_label(pair)) + ", first", pair.count[0]);
    say_share(report, in_a_sentence(pair_label(pair)) + ", second", pair.count[1]);
  }
  for (const trait_move& move : moves.traits)
    if (move.moves) say_share(report, in_a_sentence(trait_label(move.t)), move.count);
}

} // namespace zeph
