#include "results/result_files.h"

#include "formats/byte_file.h"
#include "formats/whole_file.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <algorithm>
#include <filesystem>
#include <vector>

namespace zeph {
namespace {

// Opens what writing the file would open, without changing it: the file beside it, or, where
// the name is a link or a device, what it leads to. Pipes, and links to nothing, are left alone.
bool can_be_written(const std::string& path) {
  namespace fs = std::filesystem;
  const whole_file whole(path); // removes the file beside it again
  byte_sink probe;
  if (whole.path() != path) return probe.open(whole.path(), open_mode::in_place) && probe.close();
  std::error_code none;
  const fs::file_type kind = fs::status(path, none).type();
  if (kind != fs::file_type::directory && kind != fs::file_type::regular) return true;
  return probe.open(path, open_mode::in_place) && probe.close();
}

// True when the run can take so many samples that the solutions are reported.
bool reports_solutions(const directives& asked) {
  if (solves(asked.analysis_type)) return true;
  const std::int32_t samples = asked.nround / std::max(asked.isamp, 1); // one more when a chain is continued
  return samples + (asked.restart ? 1 : 0) > 1;
}

} // namespace

void check_result_files(const model_records& m, const deviation_store& deviations,
                        const mixture_store& mixtures, const directives& asked, reporting& report) {
  std::vector<std::string_view> names;
  if (samples_matrices(asked.analysis_type)) names = {"gparout", "PAROUT", "gparlast"};
  if (samples_solutions(asked.analysis_type)) names.emplace_back("lastsol");
  if (asked.sampler.state) names.emplace_back("statelast");
  const bool solutions = reports_solutions(asked), memberships = solutions && mixtures.flag;
  if (solutions) names.insert(names.end(), {"gibsol", "solpostmean"});
  if (solutions && deviations.factor > 0)
    names.emplace_back(samples_solutions(asked.analysis_type) && m.model_kind == 2 ? "gib.td_ptd" : "TD_PTD");
  if (memberships) names.insert(names.end(), {"taupostmean", "mixz_prob", "mixz_last"});

  constexpr std::string_view written_once[] = {"mixz_prob", "mixz_last"};
  for (int i = 0; i < 2; ++i)
    if (memberships && !mixtures.membership_made[i] && file_exists(report, written_once[i]))
      illegal_input(report, written_once[i], "write", {}, "a file of a former run", "no file of this name");
  for (const std::string_view name : names)
    if (!can_be_written(path_of(report, name))) write_fault(report, name, "open");
}

} // namespace zeph
