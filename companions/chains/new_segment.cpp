#include "chains/new_segment.h"

#include "chains/directive_text.h"
#include "chains/processes.h"
#include "chains/segment_state.h"

#include <cstdlib>
#include <fmt/format.h>
#include <unistd.h>

namespace zeph::chains {
namespace {

std::string directives_of(const fs::path& work, const study& s, const segment_record& r) {
  directive_text d;
  std::string fault;
  if (!take_apart(text_of(work / s.directive), d, fault)) return {};
  d.seeds = r.seeds;
  d.nburn = r.burnin;
  d.nround = r.rounds;
  d.isamp = r.interval;
  return put_together(d);
}

// Fills the directory `part`, which will become `place`.
void fill(const fs::path& part, const fs::path& place, const fs::path& work, const study& s,
          const segment_record& r, pid_t runner, std::string& fault) {
  const fs::path to_work = fs::relative(fs::canonical(work), fs::canonical(place.parent_path()) / "seg");
  for (const input_record& i : s.inputs)
    if (i.file != s.directive) fs::create_symlink(to_work / i.file, part / i.file);
  if (r.segment > 1) {
    const fs::path before = fmt::format("../seg{}", r.segment - 1);
    fs::create_symlink(before / "lastsol", part / "oldsol");
    fs::create_symlink(before / "gparlast", part / "r_parm");
  }
  if (!write_directives(part, work, s, r, fault)) return;
  if (!write_segment(part, r, fault) || !write_process(part, record_of_process(runner, slurm_job())))
    fault = fmt::format("can't write in {}", part.string());
}

// Takes a segment away that never began: nothing in it was computed.
bool clear_place(const fs::path& place, std::string& fault) {
  std::error_code none;
  if (!fs::exists(fs::symlink_status(place, none))) return true;
  segment_state old;
  if (look_at_segment(place, old, fault) && old.phase == segment_phase::not_begun) {
    fs::remove_all(place, none);
    return true;
  }
  fault = fmt::format("{} exists and is not used again", place.string());
  return false;
}

} // namespace

fs::path work_of(const fs::path& runs, const study& s) { return (runs / s.work).lexically_normal(); }

std::string slurm_job() {
  const auto value = [](const char* name) -> std::string {
    const char* text = std::getenv(name);
    return text == nullptr ? "" : text;
  };
  const std::string array = value("SLURM_ARRAY_JOB_ID");
  return array.empty() ? value("SLURM_JOB_ID") : array + "_" + value("SLURM_ARRAY_TASK_ID");
}

bool write_directives(const fs::path& directory, const fs::path& work, const study& s,
                      const segment_record& r, std::string& fault) {
  const std::string directives = directives_of(work, s, r);
  if (directives.empty())
    fault = fmt::format("can't read {}", (work / s.directive).string());
  else if (!replace_file(directory / s.directive, directives))
    fault = fmt::format("can't write in {}", directory.string());
  return fault.empty();
}

bool make_segment(const fs::path& runs, const study& s, const segment_record& r, pid_t runner,
                  std::string& fault) {
  const fs::path place = segment_directory(runs, r.chain, r.segment);
  const fs::path part = fmt::format("{}.{}.part", place.string(), ::getpid());
  fault.clear();
  if (!clear_place(place, fault)) return false;
  try {
    fs::create_directories(part);
    fill(part, place, work_of(runs, s), s, r, runner, fault);
    if (fault.empty()) fs::rename(part, place);
  } catch (const fs::filesystem_error& e) {
    fault = fmt::format("can't make {}: {}", place.string(), e.code().message());
  }
  std::error_code ignored;
  if (!fault.empty()) fs::remove_all(part, ignored);
  return fault.empty();
}

} // namespace zeph::chains
