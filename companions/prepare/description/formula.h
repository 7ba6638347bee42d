// The formula of a trait: its grammar, and the plain records that it becomes.
//
//   formula = term { "+" term }
//   term    = "1" | "0" | effect | random | "shift(" trait ")"
//   effect  = atom { ":" atom }                     class x class, class x covariable
//   atom    = name | "leg(" name "," order ")" | "poly(" name "," order ")"
//   random  = "(" left "|" [ factor "|" ] levels { "+" levels } ")"
//   factor  = levels = name { ":" name }            a column, or a combination of class columns
//   left    = ( "1" | "0" | effect ) { "+" ( "1" | "0" | effect ) }     1 is implied, "0 +" removes it
//   name    = letter, "_" or "." , then letters, digits, "_" and "."; or any text in back quotes
//
// Blanks, tabs and line ends may appear between all parts. A letter is also any character outside ASCII. The
// words leg, poly and shift are names where no "(" follows. Several columns after the last bar put one
// level each into the same row of the factor (two mates of one animal). A factor that is not stated has the
// name of its levels ("herd:year").
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zeph::prepare {

// A stretch of the formula text: bytes begin .. end-1, 0-based.
struct stretch {
  std::size_t begin = 0;
  std::size_t end = 0;
};

constexpr int largest_order = 12; // of leg and poly

enum class atom_kind { column, leg, poly };

// A column, or a set of curves in a covariable. leg(x, n): the Legendre polynomials 1 to n of x, normalised
// on -1..1. poly(x, n): the powers 1 to n.
struct atom {
  atom_kind kind = atom_kind::column;
  std::string name; // as in the formula, without back quotes
  int order = 0;    // n of leg and poly, 1..largest_order; else 0
  stretch at;       // the whole atom
  stretch name_at;  // its name alone, without back quotes
};

// The atoms of one effect, in the order of the formula.
struct effect {
  std::vector<atom> atoms; // at least one
  int covariable = -1;     // index of the atom that is a covariable, leg or poly; -1: a pure class effect.
                           // Set by the reader of the description, which knows the covariables.
  stretch at;
};

struct named_part {
  std::string name; // a column, without back quotes
  stretch at;
};

// What numbers the levels of a random term: a column, or a combination of class columns, each of which has
// a name of its own in the data.
struct named_column {
  std::string name; // the parts joined by ":"
  stretch at;
  std::vector<named_part> parts; // one or more
};

// ( left | factor | columns ). With leg or poly on the left the implied 1 is their polynomial of degree 0.
struct random_term {
  bool constant = true;              // the 1 of the left side; false after "0 +"
  std::vector<effect> left;          // effects of the left side beside the 1
  std::string factor;                // of the middle, or the name of the column when there is no middle
  bool factor_stated = false;        // there was a middle
  stretch factor_at;                 // where `factor` was taken from
  std::vector<named_column> columns; // one or more
  stretch at;                        // with both brackets
};

struct shift_term {
  std::string trait;
  stretch trait_at;
  stretch at;
};

struct formula {
  bool mean = true; // a separate mean is in the model: implied, "0" removes it
  std::vector<effect> fixed;
  std::vector<random_term> random;
  std::vector<shift_term> shifts;
};

struct formula_fault {
  std::size_t at = 0; // byte of the formula text
  std::string text;   // "expected '|' and the name of a factor"
  std::string hint;   // may be empty
};

// Reads a formula. Returns true when `faults` got nothing new; then `out` holds the terms in the order of
// the text. A fault of the grammar ends the reading, so there is one of them at most; all faults of meaning
// that the text alone shows are reported: an order outside 1..largest_order, a term twice, "1" and "0"
// together, an empty random term, a column twice after the bar or in a combination. Any text at all may be
// given.
bool parse_formula(std::string_view text, formula& out, std::vector<formula_fault>& faults);

// The effect as the user reads it: atoms joined by ":", `leg(dim,4)` without blanks.
std::string effect_text(const effect& e);
std::string atom_text(const atom& a);

// "shift(infected)".
std::string shift_text(const shift_term& s);

} // namespace zeph::prepare
