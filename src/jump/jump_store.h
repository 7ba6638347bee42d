// State of the moves between models, and the records that they work on.
//
// A model says how many rows of each random factor are active, counted from the
// first: entry k of a model vector for factor k, the last entry for the residual,
// which never moves. round_state::ntr is the model in force. A move changes one
// factor's entry by one; the small and the large model of a move are its two
// ends, whatever the direction.
#pragma once

#include "formats/text_file.h"
#include "gibbs/scan/scan_records.h"
#include "input/run_records.h"
#include "jump/dimension_conversion.h"
#include "samples/sample_files.h"

#include <cstdint>
#include <vector>

namespace zeph {

// Work of the moves of the exact sampler, by level of the factor.
struct exact_move_work {
  std::int64_t levels = 0;
  vec<double> p, h;                  // information and right-hand side of the new row
  vec<double> a, t, v;               // its mean given the other rows, deviation from it, solution v = a + t
  vec<double> e;                     // nt: residuals of a record
  std::vector<std::int32_t> entries; // of a record, those of the new row
  double terms[3] = {0, 0, 0}; // of the log ratio small to large: moves, prior weights, data and solutions
};

struct jump_store {
  // the move of the round
  std::vector<std::int32_t> new_model, small_model, large_model; // nramat+1
  std::int32_t jump_k = 0;                                       // factor
  std::int32_t jump_dir = 0;                                     // +1 or -1
  bool jump_down = false;                                        // to a smaller model
  double p_up = 0, p_down = 0; // move probabilities at the factor's present dimension
  std::int32_t imax = 0;       // larger of the factor's two dimensions
  mat<double> cov_new;         // leading imax x imax: the factor's matrix in the large model
  mat<double> prop_scale;      // leading imax x imax: scale of the proposal of its last row
  vec<double> conv_vec;        // imax: 1, the last one conv_coef
  vec<double> prop_z;          // per level: the standard normal of its new solution
  vec<double> conv_sol;        // the factor's part of the other model's `sol`, n_rc places a level
  double jacobian = 0;         // log Jacobian of the conversion of the solutions
  double log_ratio = 0;        // log acceptance ratio: small to large from model_move, then of the move
  double log_u = 0;            // log of the uniform
  double log_alpha = 0;        // min(0, log_ratio)
  bool accepted = false;

  // of the whole run
  vec<double> log_det_A;               // nramat: log determinant of each factor's relationship matrix
  std::vector<std::int32_t> settled;   // levels of the pedigree factor, parents before progeny
  bool blocks_stay = false;            // data blocks can't change in the run: coefficients and groups stay
  bool blocks_made = false;            // CDI holds them for the full order of each factor
  mat<double> saved_sscp;              // work of model_move
  conversion_work conversion;          // work of dimension_conversion
  text_writer zeinfo;                  // open once its first row has been written
  std::vector<std::string> diagnostic; // rows of zeinfo that model_move leaves for the round
  exact_move_work exact;               // of the exact sampler
};

// What the moves read and change.
struct jump_records {
  scan_records scan;
  model_records& model; // the same as scan.model: moves write the effect codes
  const directives& asked;
  round_state& state;
  chain_counts& counts;
  jump_store& jump;
};

} // namespace zeph
