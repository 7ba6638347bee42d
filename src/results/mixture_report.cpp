#include "results/mixture_report.h"

#include "formats/column_format.h"
#include "formats/free_format.h"
#include "formats/sequential_file.h"
#include "formats/text_file.h"
#include "formats/whole_file.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

constexpr double never_left = 1e-12; // |sum of tau - n| of a record that was in component 1 throughout

double deviation(double sum, double squares, double n) {
  // s.d. = ((ss - s^2/n) / (n-1))^1/2, 0 where rounding leaves less
  const double d = (squares - sum * sum / n) / (n - 1.0);
  return d < 0.0 ? 0.0 : std::sqrt(d); // NaN stays NaN
}

// The last round that was run, and the rounds since counting began.
std::int64_t last_round(const directives& asked, const round_state& state, const chain_counts& counts) {
  return std::min(state.iround, counts.P_ROUND + asked.nround);
}

float share(std::int32_t count, const directives& asked, const chain_counts& counts, std::int64_t round) {
  const std::int64_t rounds = round - counts.P_ROUND;
  if (rounds <= 0) return 0.0F;
  // share = count times interval over rounds, in 32 bits: the sample rounds among them
  return static_cast<float>(count) * static_cast<float>(std::max(asked.isamp, 1)) /
         static_cast<float>(rounds);
}

std::string membership_row(const model_records& m, const design_store& design, const mixture_store& mixtures,
                           const directives& asked, const chain_counts& counts, std::int32_t icode,
                           std::int64_t round, std::int32_t i, std::int32_t identification) {
  free_row row;
  row.i(identification);
  for (std::int32_t t = 1; t <= m.nt; ++t) row.r4(share(mixtures.MIXZ_COUNT(t, i), asked, counts, round));
  if (icode == 2) {
    for (std::int32_t t = 1; t <= m.nt; ++t) row.i(mixtures.MIXZ_LAST(t, i));
    for (std::int32_t t = 1; t <= m.nt; ++t) row.r4(design.Y_M(t, i));
  }
  return row.str();
}

// A row of taupostmean: mean and standard deviation of tau of record i over n
// samples, trait after trait of kind 5.
std::string tau_row(const model_records& m, const mixture_store& mixtures, std::int32_t i, double n) {
  free_row row;
  for (std::int32_t t = 1; t <= m.nt; ++t) {
    if (m.MODEL(t).TRAIT_TYPE != trait_mixture) continue;
    const tau_sums& sums = mixtures.TAU_STAT[static_cast<std::size_t>(t - 1)];
    const double s = sums.SUM(i);
    if (std::fabs(s - n) <= never_left)
      row.r8(1.0).r8(0.0);
    else
      row.r8(s / n).r8(deviation(s, sums.SS(i), n));
  }
  return row.str();
}

} // namespace

void report_mixing_proportions(const model_records& m, const mixture_store& mixtures, const directives& asked,
                               const chain_counts& counts, reporting& report) {
  if (!mixtures.flag || solves(asked.analysis_type)) return;
  say(report);
  say(report, "  Posterior mean and standard error of for mixing proportion");
  const double n = counts.nsamples;
  for (std::int32_t t = 1; t <= m.nt; ++t) {
    if (!m.MODEL(t).L_MIX_TRAIT && m.MODEL(t).TRAIT_TYPE != trait_cured) continue;
    const double s = mixtures.mix_pi_sum(t);
    const double sd = n > 1 ? deviation(s, mixtures.mix_pi_ss(t), n) : 0.0;
    say(report, column_line().X(7).F(s / n, 16, 7).F(sd, 16, 7).str());
  }
}

void write_taupostmean(const model_records& m, const mixture_store& mixtures, const chain_counts& counts,
                       std::int32_t nobs, reporting& report) {
  if (!mixtures.flag) return;
  constexpr std::string_view name = "taupostmean";
  whole_file whole(path_of(report, name));
  text_writer file;
  if (!file.open(whole.path())) write_fault(report, name, "open");
  bool written = true;
  for (std::int32_t i = 1; i <= nobs && written; ++i)
    written = file.line(tau_row(m, mixtures, i, counts.nsamples));
  if (!written || !file.close() || !whole.publish()) write_fault(report, name, "write");
}

int WR_MIXZ(const model_records& m, const design_store& design, mixture_store& mixtures,
            const directives& asked, const chain_counts& counts, std::int32_t icode, std::int64_t round,
            reporting& report) {
  if (icode != 1 && icode != 2) {
    say(report);
    say(report, free_row().text("WR-MIXZ called with icode= ").i(icode).str());
    say(report);
    say(report, "Legal values for icode is 1 or 2");
    return 1;
  }
  const std::string name = icode == 1 ? "mixz_prob" : "mixz_last";
  if (!mixtures.membership_made[icode - 1] && file_exists(report, name)) return 1;
  mixtures.membership_made[icode - 1] = true;
  whole_file whole(path_of(report, name));
  text_writer file;
  sequential_reader identifications;
  identifications.open(path_of(report, "RCDATA_I"));
  if (!file.open(whole.path())) return 1;
  bool written =
      icode != 1 || file.line(free_row().i(design.nobs).i(round).i(asked.nburn).i(asked.isamp).str());
  for (std::int32_t i = 1; i <= design.nobs && written; ++i) {
    const int code = identifications.next();
    if (code != 0) {
      say(report);
      say(report, free_row().text("ERROR  reading 1st record from RCDATA. Error code= ").i(code).str());
      say(report);
      return 1;
    }
    std::int32_t identification = 0;
    identifications.take(identification);
    written = file.line(membership_row(m, design, mixtures, asked, counts, icode, round, i, identification));
  }
  if (!written || !file.close()) return 1;
  return whole.publish() ? 0 : 1;
}

std::int32_t write_memberships(const model_records& m, const design_store& design, mixture_store& mixtures,
                               const directives& asked, const round_state& state, const chain_counts& counts,
                               reporting& report) {
  if (!mixtures.flag) return 0;
  const std::int64_t round = last_round(asked, state, counts);
  std::int32_t failed = 0;
  for (const std::int32_t icode : {1, 2})
    if (WR_MIXZ(m, design, mixtures, asked, counts, icode, round, report) != 0 && failed == 0) failed = icode;
  return failed;
}

void stop_memberships(std::int32_t icode, reporting& report) {
  say(report);
  if (icode == 1) {
    say(report, "ERROR in subroutine WR_MIXZ");
    say(report);
    say(report, "Program terminates");
  } else {
    say(report, "ERROR in subroutine WR_MIXZ storing last mixture variable for the last round");
    say(report);
  }
  stop_run(report, exit_diagnosed);
}

} // namespace zeph
