// Chains of latent traits from their descriptions, and how they are held against
// reference means.
#pragma once

#include "runs/chain_samples.h"
#include "support/places.h"

#include <string>
#include <vector>

namespace zeph_test {

// What a chain left: samples of the solutions by name and of the matrices.
struct latent_chain {
  std::map<std::string, series> solution;
  matrix_samples matrix; // empty with fixed matrices
};

// A posterior mean of a solution, or of the difference of two.
struct reference_mean {
  std::string name, solution, less; // less: empty, or what is taken away
  double mean = 0.0;
  double error = 0.0; // Monte Carlo error of the reference; 0: exact
};

inline latent_chain chain_in(const std::string& work, bool matrices) {
  return {named_samples_in(work), matrices ? matrix_samples_in(work) : matrix_samples{}};
}

// The chain of an example of the folder examples/, with another number of rounds.
inline latent_chain chain_of_example(const std::string& name, int rounds) {
  using namespace zeph::prepare;
  message_log log;
  model_description d = read_description(source_folder() + "/examples/" + name + "/model.toml", log);
  d.run.rounds.value = rounds;
  const prepared_model p = assemble_model(d, {}, log);
  const scratch_directory place;
  const std::string work = place / "work/";
  if (!p.complete || !write_work_directory(d, p, work, "").ok) throw std::runtime_error(full_text(log));
  const whole_run run = run_in(work);
  if (run.exit_code != 0) throw std::runtime_error(run.listing);
  return chain_in(work, d.run.analysis.value == analysis_type::gibbs);
}

// |mean - reference| < 5 standard errors of both.
inline void hold(const latent_chain& chain, const reference_mean& r) {
  const auto at = chain.solution.find(r.solution);
  ASSERT_NE(at, chain.solution.end()) << r.solution;
  series x = at->second;
  if (!r.less.empty()) {
    const auto less = chain.solution.find(r.less);
    ASSERT_NE(less, chain.solution.end()) << r.less;
    for (std::size_t i = 0; i < x.size(); ++i) x[i] -= less->second[i];
  }
  const estimate e = estimate_of(x);
  const double error = std::sqrt(e.error() * e.error() + r.error * r.error);
  EXPECT_GT(e.ess, 200.0) << r.name;
  EXPECT_NEAR(e.mean, r.mean, 5.0 * error) << r.name << ", " << e.ess << " effective samples";
  note_figure(r.name, r.mean, e.mean, error, e.ess);
}

} // namespace zeph_test
