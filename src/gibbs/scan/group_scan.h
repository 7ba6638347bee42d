// The levels of one group: relationship links, the solver step, restrictions.
#pragma once

#include "gibbs/moves/move_store.h"
#include "gibbs/scan/mixture_distance.h"
#include "input/design_store.h"
#include "input/equation_layout.h"
#include "input/relationships.h"
#include "input/run_records.h"
#include "input/sampler_store.h"
#include "numerics/matrix_draws.h"
#include "numerics/random_sources.h"

namespace zeph {

struct scan_records;

// Sums of a round that the solver's convergence is judged by.
struct solver_sums {
  double omega = 0; // relaxation factor
  double ssd = 0;   // sum of squared changes of the solutions
  double ssq = 0;   // sum of squared solutions before the change
};

// Work of one level: block C of its n equations, right-hand sides b.
struct level_work {
  std::int32_t nmax = 0;               // largest n
  vec<double> bordered;                // packed, order nmax + 1: (C, b, 0), swept
  vec<logical> swept;                  // nmax + 1: its rows
  vec<double> swept_block;             // packed: C^-1 as it was swept, for the diagnostic print
  vec<double> link_sums;               // nmax: sum of relationship element times solution
  vec<double> C;                       // nmax^2, column-major, leading dimension n: C, then its factor L
  vec<double> mean, z, w;              // nmax + 1: C^-1 b, standard normals, L'^-1 z
  vec<double> x;                       // nmax + 1: one draw
  matrix_draw_work draw;               // of multivariate draws
  vec<double> entered;                 // of the group in hand, when its levels meet: solutions at its entry
  std::vector<std::int32_t> distances; // equations of mixture distances in group 1, 1-based
};

// Room for the largest level of the groups.
void allocate_level_work(const model_records& m, const equation_layout& layout, level_work& work,
                         reporting& report);

inline constexpr double relaxation = static_cast<double>(0.4F); // from round 101 on
// Over-relaxed draws of a random factor's levels: u -> m + a (u - m) + (1 - a^2)^1/2 w, w ~ N(0, C^-1),
// leaves N(m, C^-1) as it is. S. L. Adler, Physical Review D 23 (1981) 2901-2904.
inline constexpr double draw_relaxation = -0.7;              // a
inline constexpr double relaxed_noise = 0.71414284285428498; // (1 - a^2)^1/2
inline constexpr double sweep_tolerance = 1e-12;
inline constexpr double dependency_pivot = 1e-18;
inline constexpr std::int32_t largest_listing = 1000; // lines of diagnostic print

// Takes the links of level l of factor k out of its right-hand sides:
//   RHS(l) -= GIF sum over c of a(l,c) sol(c),  c the related levels other than l,
// with sol as it is now; p traits of the factor are in the model.
void subtract_links(const model_records& model, const relationship_store& relations, sampler_store& sampler,
                    level_work& work, std::int32_t k, std::int32_t l, std::int32_t p);

// Solves level l of group g for given right-hand sides by sweeping the bordered
// block and moves its solutions, with over-relaxation omega. A pivot at or below
// dependency_pivot is reported on the listing with the whole block and counted in
// state.ist; beyond largest_listing lines the run stops with code 16.
void solve_level(const equation_layout& layout, sampler_store& sampler, level_work& work, reporting& report,
                 round_state& state, scan_stage stage, std::int32_t g, std::int32_t l, solver_sums& sums);

// The same draw in either stage of a scan in two: the bordered block is swept as
// by solve_level, with its prints; sol = C^-1 RHS + U' z, U the upper factor of
// C^-1. A mixture distance below 1e-12 is drawn again; counts.nlabel grows by one when
// that happens among the sources, otherwise the listing reports it.
void sample_level_swept(const equation_layout& layout, sampler_store& sampler, level_work& work,
                        marsaglia_source& marsaglia, reporting& report, round_state& state,
                        chain_counts& counts, scan_stage stage, std::int32_t g, std::int32_t l);

// Draws level l of group g from its conditional distribution: mean C^-1 RHS,
// covariance C^-1, C = L L' the diagonal block. The n standard normals z come in
// the order of the equations; sol = C^-1 RHS + L'^-1 z. A block that can't be
// factored or solved is reported with its group, and the run stops with code 27. The
// plain regressions of group 1 are drawn again, with new normals, while a mixture
// distance among them is below 1e-12; counts.nlabel grows by one when that happens. There
// is no limit; but where it can be shown after 1,000,000 draws, or as many more, that
// none will ever do, or where the file STOP is there then, the run stops with code 16.
// relaxed: over-relaxed, from the level's present solutions.
void sample_level(const equation_layout& layout, sampler_store& sampler, level_work& work, reporting& report,
                  chain_counts& counts, ranmar_draws& draws, std::int32_t g, std::int32_t l,
                  bool relaxed = false);

// "Group: " g, the routine's words, info; ends the run with code 27.
[[noreturn]] void stop_at_block(reporting& report, std::int32_t g, std::string_view routine, int info);

// Sets the restricted equations to zero.
void restrict_solutions(sampler_store& s);

// True where the levels of a group are drawn over-relaxed: random factors of runs with moves.
inline bool draws_relaxed(const move_store& moves, const equation_group& group) {
  return moves.on && group.kind == group_kind::random_factor &&
         moves.factors[static_cast<std::size_t>(group.number - 1)].relaxed;
}

void say_group_start(reporting& report, std::int32_t g);

// The levels of group g in order: links, then the step that the analysis type
// asks for (a draw when solutions are sampled, else the solver), unless the group is not to be
// updated.
void scan_levels(scan_records& r, const directives& asked, round_state& state, chain_counts& counts,
                 scan_stage stage, std::int32_t g, solver_sums& sums);

} // namespace zeph
