#include "chains/resumed_segment.h"

#include "chains/new_segment.h"
#include "chains/slurm_batch.h"
#include "chains/state_files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

namespace zeph::chains {
namespace {

// The segment's listing, locked as long as this lives. Where the file system has no locks it is not.
class segment_lock {
public:
  explicit segment_lock(const fs::path& directory)
      : fd_(open((directory / listing_name).c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0644)) {
    if (fd_ >= 0) flock(fd_, LOCK_EX);
  }
  ~segment_lock() {
    if (fd_ >= 0) close(fd_);
  }
  segment_lock(const segment_lock&) = delete;
  segment_lock& operator=(const segment_lock&) = delete;

private:
  int fd_;
};

bool gone(const fs::path& path, std::string& fault) {
  std::error_code error;
  fs::remove(path, error);
  if (error) fault = fmt::format("can't remove {}: {}", path.string(), error.message());
  return !error;
}

bool give_state(const fs::path& place, std::string& fault) {
  std::error_code none, error;
  const fs::path saved = place / saved_state_name, given = place / given_state_name;
  if (fs::exists(saved, none)) fs::rename(saved, given, error);
  if (error) {
    fault = fmt::format("can't rename {} to {}: {}", saved.string(), given_state_name, error.message());
    return false;
  }
  return !fs::exists(given, none) || (gone(place / "oldsol", fault) && gone(place / "r_parm", fault));
}

} // namespace

bool resume_segment(const fs::path& runs, const study& s, const segment_record& r, pid_t runner,
                    std::string& fault) {
  const fs::path place = segment_directory(runs, r.chain, r.segment);
  const segment_lock lock(place);
  segment_state now; // another call may have been here before the lock was free
  fault.clear();
  if (!look_at_segment(place, now, fault)) return false;
  settle_by_queue(now);
  if (now.live()) {
    fault = fmt::format("segment {} {}", r.segment, now.text());
    return false;
  }
  if (!give_state(place, fault) || !write_directives(place, work_of(runs, s), s, r, fault) ||
      !write_segment(place, r, fault))
    return false;
  if (!write_process(place, record_of_process(runner, slurm_job()))) {
    fault = fmt::format("can't write in {}", place.string());
    return false;
  }
  return gone(place / exit_name, fault) && gone(place / "status", fault) && gone(place / stop_name, fault);
}

void settle_by_queue(segment_state& s) {
  if (s.phase != segment_phase::unknown || s.process.job.empty()) return;
  std::vector<std::string> held;
  if (s.process.job == slurm_job() || (jobs_in_queue({s.process.job}, held) && held.empty()))
    s.phase = segment_phase::killed;
}

} // namespace zeph::chains
