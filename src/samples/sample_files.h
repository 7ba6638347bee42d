// The files that grow with the chain: one row or record of samples per sample
// round. Opened once before the chain, written inside the scan, described on
// the listing by the final reports, closed at the end of the run.
//
// FILE         FORM      CONTENT
// gib.samples  text      I8, 3I4, G15.6, I11: round, matrix, row, column, element,
//                        0 or the code of the residual group
// py           text      round, model vector (nramat+1 integers), -log p(y|theta)
// lpm          text      one row of fit statistics per reported model
// sol.samples  records   neq; then per sample (round, sol(1..neq) as real*8), or,
//                        for chosen equations, one (round, equation, sol) each
// res.samples  records   per sample and data record: round, position in the
//                        user's data, nt residuals as real*8
// mix_pi       text      round, mixing proportion of each trait, in free format
// threshold    text      round, number of the first ordered trait, k, threshold k; in
//                        free format, a row for each threshold of each trait
// scr31        records   kept: opened in every run, written by none of its parts
//
// All are flushed at the end of their sample, so that a run that is killed keeps
// whole samples. A file that can't be opened or written stops the run: write_fault, code 16.
#pragma once

#include "formats/column_format.h"
#include "formats/free_format.h"
#include "formats/sequential_file.h"
#include "formats/text_file.h"
#include "input/design_store.h"
#include "input/run_records.h"
#include "input/sampler_store.h"

namespace zeph {

struct sample_files {
  text_writer gib_samples, py, lpm, mix_pi, threshold;
  sequential_writer sol_samples, res_samples, scr31;
  sequential_writer state;      // lastsol, gparlast: allocated before the chain
  std::int32_t n_vector = 0;    // entries of the model vector in a row: nramat+1
  bool has_sol_samples = false; // opened in this run
  bool has_res_samples = false;
  free_row row;     // the rows of a round are made in these,
  column_line line; // so that a round allocates nothing
};

// Opens, in this order: gib.samples when matrices are sampled; py, lpm, sol.samples unless the run solves
// (sol.samples when n_sol_cv is not 0; its first record, neq, is written) and res.samples (when
// residuals are kept); scr31 in every case; mix_pi with a
// trait of type 5, 7 or 8; threshold with one of type 3. Existing files are emptied.
void open_sample_files(const model_records& m, const equation_layout& layout, const directives& asked,
                       sample_files& files, reporting& report);

// What the run knows of its files without opening them: the number of entries of the model vector,
// which of the optional files it has. open_sample_files begins with it.
void describe_files(const model_records& m, const directives& asked, sample_files& files);

// One row of py in free format: iround, the model vector, lik; flushed. Where
// py is closed (the reports of a model before have read it), it is emptied first.
void write_py(sample_files& files, const round_state& state, double lik, reporting& report);

// The (co)variances drawn in this round, from the packed columns of sscp: for
// each random factor, matrix k = 1..nramat, then each residual group g, matrix
// nramat+g, the lower triangle of the current order by rows.
void write_gib_samples(const model_records& m, const sampler_store& store, const round_state& state,
                       sample_files& files, reporting& report);

// The solutions of a sample round. n_sol_cv -1: all in one record. n > 0: a
// record for each chosen equation, which the listing shows too, under the label
// "iround,sol_cv%eq_no,sol)". 0: nothing. Equations of rows that the current
// model leaves out are written as 0.0.
void write_solution_samples(const model_records& m, const equation_layout& layout, const sampler_store& store,
                            const round_state& state, sample_files& files, reporting& report);

// The residuals ZEPH_RES of a sample round, a record for each data record in
// memory; nothing when residuals aren't kept.
void write_residual_samples(const model_records& m, const design_store& design, const round_state& state,
                            sample_files& files, reporting& report);

// One row of mix_pi: iround and the proportions of all traits, flushed. A failure
// ends the run with the words of the mixture's files.
void write_mix_pi(sample_files& files, const round_state& state, const vec<double>& proportions,
                  reporting& report);

// One row of `threshold`; flush_thresholds ends the rows of a sample round.
void write_threshold(sample_files& files, const round_state& state, std::int32_t trait, std::int32_t k,
                     double value, reporting& report);
void flush_thresholds(sample_files& files, reporting& report);

// Describes on the listing those of sol.samples (with l_sol_samples) and
// res.samples that were opened.
void describe_sample_files(const model_records& m, const sample_files& files, reporting& report);

// Hands all that is still buffered to the system and closes; a failure is a
// write_fault of the file. Without this call the destructor closes, unchecked.
void close_sample_files(sample_files& files, reporting& report);

} // namespace zeph
