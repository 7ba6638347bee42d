#include "prepare/parts/unlisted_parents.h"

#include "prepare/messages/messages.h"
#include "prepare/tables/missing_words.h"
#include "shared/indexing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace zeph::prepare {

namespace {

std::size_t at(std::int32_t animal) { return from1(animal); }

// What the identifications of the animals with a line of their own are like.
struct listed_numbers {
  double largest = -std::numeric_limits<double>::infinity();
  bool negative = false;
};

listed_numbers numbers_of_listed(const pedigree& ped) {
  listed_numbers out;
  for (std::size_t a = 0; a < ped.identification.size(); ++a) {
    double value = 0.0;
    if (ped.line[a] == 0 || !number_in(ped.identification[a], '.', value)) continue;
    out.largest = std::max(out.largest, value);
    out.negative = out.negative || value < 0.0;
  }
  return out;
}

// 9, 99, 999, ..
bool all_nines(double value) {
  if (value < 9.0 || value > 1e15 || value != std::floor(value)) return false;
  while (value >= 9.0 && std::fmod(value, 10.0) == 9.0) value = std::floor(value / 10.0);
  return value == 0.0;
}

bool looks_unknown(const std::string& code, const unlisted_parent& p, const listed_numbers& listed) {
  if (is_word_for_nothing(code)) return true;
  double value = 0.0;
  if (!number_in(code, '.', value)) return false;
  if (value == 0.0) return true;
  if (value < 0.0) return !listed.negative;
  return all_nines(value) && (value > listed.largest || (p.n_as_sire > 0 && p.n_as_dam > 0));
}

// "the sire of 4 animals and the dam of 1"
std::string parts_in_words(const unlisted_parent& p) {
  const auto animals = [](std::int64_t n) { return fmt::format("{} animal{}", n, n == 1 ? "" : "s"); };
  if (p.n_as_dam == 0) return "the sire of " + animals(p.n_as_sire);
  if (p.n_as_sire == 0) return "the dam of " + animals(p.n_as_dam);
  return fmt::format("the sire of {} and the dam of {}", animals(p.n_as_sire), p.n_as_dam);
}

std::string ways_out(const std::string& code, const pedigree_request& request) {
  return fmt::format("\nadd it to [factor.{0}] pedigree = {{ unknown = [\"{1}\"] }}, beside file = \"{2}\";\n"
                     "if it is an animal, add it to founders = [\"{1}\"] there",
                     request.factor, code,
                     request.file_as_written.empty() ? request.file : request.file_as_written);
}

std::int64_t animals_with_parents(const pedigree& ped) {
  std::int64_t n = 0;
  for (std::size_t a = 0; a < ped.sire.size(); ++a) n += ped.sire[a] > 0 || ped.dam[a] > 0 ? 1 : 0;
  return n;
}

// True after an error.
bool refuse_code(const pedigree& ped, const pedigree_request& request, const listed_numbers& listed,
                 const unlisted_parent& p, message_log& log) {
  const std::string& code = ped.identification[at(p.animal)];
  const bool looks = looks_unknown(code, p, listed);
  const bool both = !request.selfing && p.n_as_sire > 0 && p.n_as_dam > 0;
  if (!looks && !both) return false;
  const char* reason = looks ? ", has no line of its own and looks like a code of an unknown parent:"
                             : ", and has no line of its own: a code of an unknown parent?";
  add_error(
      log, {ped.file, static_cast<int>(p.first_line), 0},
      fmt::format("\"{}\" is {}{}{}", shown(code), parts_in_words(p), reason, ways_out(shown(code), request)),
      "unknown " + ped.file);
  return true;
}

void warn_of_many_progeny(const pedigree& ped, const pedigree_request& request, std::int64_t n_progeny,
                          const unlisted_parent& p, message_log& log) {
  if (p.n_progeny < 2 || 4 * p.n_progeny <= n_progeny) return;
  const std::string code = shown(ped.identification[at(p.animal)]);
  add_warning(
      log, {ped.file, 0, 0},
      fmt::format(
          "\"{}\" has no line of its own and is a parent of {} of the {} animals with a known parent; "
          "is it a code of an unknown parent?{}",
          code, p.n_progeny, n_progeny, ways_out(code, request)));
}

} // namespace

std::vector<unlisted_parent> unlisted_parents(const pedigree& ped) {
  std::vector<unlisted_parent> all(ped.identification.size());
  const auto count = [&](std::int32_t parent, std::int64_t unlisted_parent::*part, std::int64_t line) {
    if (parent <= 0) return;
    unlisted_parent& p = all[at(parent)];
    ++(p.*part);
    if (p.first_line == 0 || line < p.first_line) p.first_line = line;
  };
  for (std::size_t a = 0; a < all.size(); ++a) {
    count(ped.sire[a], &unlisted_parent::n_as_sire, ped.line[a]);
    count(ped.dam[a], &unlisted_parent::n_as_dam, ped.line[a]);
    if (ped.sire[a] > 0) ++all[at(ped.sire[a])].n_progeny;
    if (ped.dam[a] > 0 && ped.dam[a] != ped.sire[a]) ++all[at(ped.dam[a])].n_progeny;
  }
  std::vector<unlisted_parent> out;
  for (std::size_t a = 0; a < all.size(); ++a) {
    all[a].animal = static_cast<std::int32_t>(a) + 1;
    if (ped.line[a] == 0) out.push_back(all[a]);
  }
  std::ranges::stable_sort(out, std::ranges::greater{}, &unlisted_parent::n_progeny);
  return out;
}

void check_unlisted_parents(const pedigree& ped, const pedigree_request& request, message_log& log) {
  const std::vector<unlisted_parent> all = unlisted_parents(ped);
  if (all.empty()) return;
  const listed_numbers listed = numbers_of_listed(ped);
  const std::int64_t n_progeny = animals_with_parents(ped);
  std::vector<const unlisted_parent*> added;
  for (const unlisted_parent& p : all) {
    const bool is_stated =
        std::ranges::find(request.founders, ped.identification[at(p.animal)]) != request.founders.end();
    if (!is_stated && refuse_code(ped, request, listed, p, log)) continue;
    added.push_back(&p);
    if (!is_stated) warn_of_many_progeny(ped, request, n_progeny, p, log);
  }
  if (added.empty()) return;
  add_note(log, {ped.file, 0, 0},
           added.size() == 1
               ? "1 parent has no line of its own; added as a founder"
               : fmt::format("{} parents have no line of their own; added as founders", added.size()));
  for (const unlisted_parent* p : added)
    add_note(log, {ped.file, 0, 0},
             fmt::format("\"{}\" has {} progeny", shown(ped.identification[at(p->animal)]), p->n_progeny),
             "founder " + ped.file);
}

} // namespace zeph::prepare
