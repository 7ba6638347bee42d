// New (co)variance matrices of a round: sums of squares of the solutions, and
// inverse Wishart draws for the random factors and the residual groups. The door of this wing.
//
// Full conditional of a factor's matrix G with q levels, sum of squares S = U'A^-1 U
// and prior inverse Wishart (df0, (df0 - p - 1) G0): inverse Wishart with
// q + df0 degrees of freedom and S + (df0 - p - 1) G0; with a flat prior
// q - p - 1 and S. G0 is the start matrix, so that the prior mean is G0.
#pragma once

#include "gibbs/matrices/constrained_wishart.h"
#include "gibbs/matrices/residual_parts.h"
#include "input/relationships.h"
#include "input/run_records.h"
#include "input/sampler_store.h"
#include "numerics/random_sources.h"

namespace zeph {

struct residual_form;
struct scan_records;

struct covariance_work {
  constrained_work constrained; // of residual matrices with fixed variances
  residual_parts parts;         // of the exact sampler, when covariances are held at zero
  matrix_draw_work draw;
  vec<double> t; // largest order of a factor: sum of relationship element times solution
};

void allocate_covariance_work(const model_records& m, covariance_work& work, reporting& report);

// Inverse Wishart prior of the leading p rows of a factor's matrix: nu degrees of freedom, scale weight
// COV_MAT[1..p]; the uniform one as nu = -(p + 1), weight 0.
struct factor_prior {
  std::int64_t nu = 0;
  double weight = 0;
};

// Of factor k with p rows in the model. In the exact sampler the degrees of freedom belong to the whole
// factor, of which smaller models have the leading rows.
factor_prior prior_of_factor(const model_records& model, const directives& asked, std::int32_t k,
                             std::int32_t p);

// Adds to sscp(:,k) the sums of squares of each factor k over its relationship,
// rows 1..ntr(k), packed. A pedigree factor with a reduced animal model takes its
// second list. A structure without a sum is reported and stops with code 16.
void sscp_random(const model_records& model, const relationship_store& relations, sampler_store& sampler,
                 covariance_work& matrices, residual_form& fast, reporting& report, const round_state& state);
// The same for one factor and its rows 1..p.
void add_factor_squares(const model_records& model, const relationship_store& relations,
                        sampler_store& sampler, covariance_work& matrices, residual_form& fast,
                        reporting& report, std::int32_t k, std::int32_t p);

// Element (i,j) of the prior matrix of residual group h: of its own where its diagonal is positive.
double residual_prior(const model_records& m, std::int32_t h, std::int32_t i, std::int32_t j);

// Draws the matrices from the combined source: factors in order, then residual
// groups. sscp(:,k) becomes the new matrix, packed; GIF, RCOV, RCOVI follow where
// matopd says so; IDET_RVAR and LVDET are those of the new inverse. A prior is
// flat when its degrees of freedom are at most order + 1. Residual covariances
// that are held at zero are zero in the sums and in the new matrix, which is drawn
// again until it is positive definite.
void sample_covariances(scan_records& r, const directives& asked, const round_state& state);

} // namespace zeph
