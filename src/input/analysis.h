// What a run does: the first value of the directive lines, and the questions that the run asks of it.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace zeph {

// In rising order: each from `predict` on also does what the one before it does.
enum class analysis : std::int32_t {
  solve = 0,           // Gauss-Seidel solutions, the (co)variance matrices as given
  sums = 1,            // the same, with sums of squares of the residuals
  predict = 2,         // samples of the solutions, the matrices as given
  gibbs = 3,           // samples of solutions and matrices
  gibbs_no_groups = 4, // the same, without phantom parent groups
  models = 5,          // a chain for each model
  jump = 6             // one chain that moves between models
};

// The words that a description asks for an analysis by; one analysis has none.
struct analysis_word {
  analysis value;
  std::string_view word;
};
inline constexpr std::array<analysis_word, 6> analysis_words = {{{analysis::solve, "solve"},
                                                                 {analysis::sums, "sums"},
                                                                 {analysis::predict, "predict"},
                                                                 {analysis::gibbs, "gibbs"},
                                                                 {analysis::models, "models"},
                                                                 {analysis::jump, "jump"}}};

// The analysis that a number of the directive lines asks for: numbers below 0
// are the solver, those above 6 the moving chain.
constexpr analysis analysis_of(std::int32_t number) {
  constexpr auto last = static_cast<std::int32_t>(analysis::jump);
  return static_cast<analysis>(number < 0 ? 0 : number > last ? last : number);
}

// Values of missing traits are left out; the others draw them, and write `py` and `lpm`.
constexpr bool solves(analysis a) { return a == analysis::solve; }
// Solutions are drawn, not solved for.
constexpr bool samples_solutions(analysis a) { return a >= analysis::predict; }
// (Co)variance matrices are drawn, and the last state is saved.
constexpr bool samples_matrices(analysis a) { return a >= analysis::gibbs; }
constexpr bool takes_parent_groups(analysis a) { return a < analysis::gibbs_no_groups; }
// kept: directive lines that hold the values of the proposals are refused by those that use them.
constexpr bool takes_proposal_values(analysis a) { return a < analysis::gibbs_no_groups; }
// More than one model: in turn, or by moves.
constexpr bool has_several_models(analysis a) { return a >= analysis::models; }
constexpr bool moves_between_models(analysis a) { return a == analysis::jump; }

} // namespace zeph
