#include "chains/processes.h"

#include "chains/study_records.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <sstream>
#include <unistd.h>

namespace zeph::chains {
namespace {

// Field 22 of /proc/PID/stat, the start of the process; 0 when there is no such process or it has ended (a
// zombie).
std::int64_t begin_of(pid_t pid) {
  const std::string stat = text_of(fmt::format("/proc/{}/stat", pid));
  const std::size_t name_end = stat.rfind(')');
  if (name_end == std::string::npos) return 0;
  std::istringstream fields(stat.substr(name_end + 1));
  std::string field;
  std::int64_t begun = 0;
  for (int i = 3; i <= 22 && fields >> field; ++i) {
    if (i == 3 && (field == "Z" || field == "X")) return 0;
    if (i == 22) begun = std::strtoll(field.c_str(), nullptr, 10);
  }
  return begun;
}

// The program on one thread; its exit code in a file that appears whole.
constexpr const char* shell_text = "\"$0\" >> listing.txt 2>&1 < /dev/null\n"
                                   "echo $? > exit.part && mv exit.part exit\n";

[[noreturn]] void become_program(const fs::path& directory, const fs::path& program) {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  setpgid(0, 0); // an interrupt from the terminal goes to zeph-chains alone
  setenv("OMP_NUM_THREADS", "1", 1);
  setenv("OPENBLAS_NUM_THREADS", "1", 1);
  const bool ready =
      chdir(directory.c_str()) == 0 && write_process(directory, record_of_process(getpid(), ""));
  if (ready) execl("/bin/sh", "/bin/sh", "-c", shell_text, program.c_str(), static_cast<char*>(nullptr));
  _exit(127);
}

} // namespace

std::string host_name() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "unknown";
}

process_record record_of_process(pid_t pid, const std::string& job) {
  return {host_name(), pid, begin_of(pid), job};
}

bool write_process(const fs::path& directory, const process_record& p) {
  return replace_file(directory / process_name, fmt::format("host {}\npid {}\nbegun {}\njob {}\n", p.host,
                                                            p.pid, p.begun, p.job.empty() ? "-" : p.job));
}

bool read_process(const fs::path& directory, process_record& p) {
  std::istringstream in(text_of(directory / process_name));
  std::array<std::string, 4> key;
  if (!(in >> key[0] >> p.host >> key[1] >> p.pid >> key[2] >> p.begun >> key[3] >> p.job)) return false;
  if (p.job == "-") p.job.clear();
  return key == std::array<std::string, 4>{"host", "pid", "begun", "job"};
}

process_life life_of(const process_record& p) {
  if (p.host != host_name()) return process_life::elsewhere;
  const std::int64_t begun = begin_of(p.pid);
  return begun != 0 && begun == p.begun ? process_life::alive : process_life::gone;
}

pid_t process_in(const fs::path& directory, const std::string& name) {
  std::error_code fault;
  const fs::path place = fs::canonical(directory, fault);
  if (fault) return 0;
  for (const auto& entry : fs::directory_iterator("/proc", fault)) {
    const std::string number = entry.path().filename();
    if (number.find_first_not_of("0123456789") != std::string::npos) continue;
    if (fs::read_symlink(entry.path() / "cwd", fault) != place) continue;
    const auto pid = static_cast<pid_t>(std::strtol(number.c_str(), nullptr, 10));
    if (text_of(entry.path() / "comm") == name + "\n" && begin_of(pid) != 0) return pid;
  }
  return 0;
}

pid_t start_program(const fs::path& directory, const fs::path& program, std::string& fault) {
  const pid_t pid = fork();
  if (pid == 0) become_program(fs::absolute(directory), program);
  if (pid < 0) fault = fmt::format("can't start {}: {}", program.string(), std::strerror(errno));
  return pid;
}

fs::path find_beside(const std::string& name) {
  std::error_code ignored;
  const fs::path own = fs::read_symlink("/proc/self/exe", ignored);
  std::vector<fs::path> places = {own.parent_path()};
  const char* path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) places.emplace_back(folder);
  for (const fs::path& place : places)
    if (access((place / name).c_str(), X_OK) == 0 && fs::is_regular_file(place / name, ignored))
      return fs::absolute(place / name);
  return {};
}

} // namespace zeph::chains
