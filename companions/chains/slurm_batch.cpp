#include "chains/slurm_batch.h"

#include "chains/processes.h"
#include "shared/indexing.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zeph::chains {
namespace {

constexpr int seconds_before_limit = 120;

// A word of the shell.
std::string shell_word(const std::string& text) {
  std::string out = "'";
  for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

constexpr const char* batch_body = R"sh(
export OMP_NUM_THREADS=1 OPENBLAS_NUM_THREADS=1
segment=
trap '[ -z "$segment" ] || : > "$segment/STOP"; asked=yes' USR1 TERM
asked=

while [ -z "$asked" ]; do
  segment=$("$zeph_chains" advance "$runs" --chain "$SLURM_ARRAY_TASK_ID" --process $$) || exit $?
  [ -n "$segment" ] || exit 0 # nothing left, or a stop was asked for
  [ -z "$asked" ] || : > "$segment/STOP"
  (
    trap '' USR1 TERM # ZEPH ends by STOP
    cd "$segment" || exit 1
    "$zeph" >> listing.txt 2>&1 < /dev/null
    echo $? > exit.part && mv exit.part exit
  ) &
  child=$!
  while kill -0 $child 2> /dev/null; do wait $child; done # a signal ends a wait
  [ -f "$segment/exit" ] || exit 137
  code=$(cat "$segment/exit")
  [ "$code" = 0 ] || exit "$code"
  [ ! -e "$segment/STOP" ] || exit 0 # the next array, or `zeph-chains continue`, continues
done
)sh";

// Runs a program with these words; its standard output (and error, when asked for) goes to `output`. Returns
// its exit code, -1 when it can't be run.
int run_words(const std::vector<std::string>& words, bool with_errors, std::string& output) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return -1;
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(ends[1], 1);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(with_errors ? ends[1] : nowhere, 2);
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  close(ends[1]);
  std::array<char, 4096> piece{};
  for (ssize_t n = 0; (n = read(ends[0], piece.data(), piece.size())) > 0;)
    output.append(piece.data(), from0(n));
  close(ends[0]);
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status) == 127 ? -1 : WEXITSTATUS(status);
}

bool is_ours(const std::string& word) {
  const std::string name = word.substr(0, word.find('='));
  if (name == "--array" || name == "--wrap" || name == "--parsable" || name == "--dependency") return true;
  return word.starts_with("-a") || word.starts_with("-d"); // short forms of array and dependency
}

fs::path free_batch_file(const fs::path& folder) {
  int number = 1;
  while (fs::exists(folder / fmt::format("start{}.sh", number))) ++number;
  return folder / fmt::format("start{}.sh", number);
}

// "4242" or "4242;cluster" of sbatch --parsable.
std::string job_id_in(const std::string& said) {
  const std::size_t begin = said.find_first_of("0123456789");
  if (begin == std::string::npos) return {};
  const std::size_t end = said.find_first_not_of("0123456789", begin);
  return said.substr(begin, end == std::string::npos ? end : end - begin);
}

} // namespace

std::string batch_text(const fs::path& runs, const study& s, const fs::path& zeph_chains, bool requeue) {
  std::string name = fs::absolute(runs).lexically_normal().filename();
  if (name.empty()) name = "zeph";
  std::erase_if(name,
                [](unsigned char c) { return std::isalnum(c) == 0 && c != '.' && c != '-' && c != '_'; });
  const std::string output = (fs::absolute(runs) / slurm_name / "%A_%a.txt").lexically_normal();
  std::string text = "#!/bin/sh\n";
  text += fmt::format("#SBATCH --job-name={}\n#SBATCH --array=1-{}\n#SBATCH --ntasks=1\n"
                      "#SBATCH --cpus-per-task=1\n#SBATCH --signal=B:USR1@{}\n#SBATCH --{}requeue\n"
                      "#SBATCH --open-mode=append\n#SBATCH --output=\"{}\"\n\n",
                      name, s.chains.size(), seconds_before_limit, requeue ? "" : "no-", output);
  text += fmt::format("zeph_chains={}\nzeph={}\nruns={}\n", shell_word(zeph_chains), shell_word(s.program),
                      shell_word(fs::absolute(runs).lexically_normal()));
  return text + batch_body;
}

bool split_options(const std::string& options, std::vector<std::string>& words, std::string& fault) {
  words.clear();
  bool in_word = false;
  char quotation = 0;
  std::string word;
  for (std::size_t i = 0; i < options.size(); ++i) {
    const char c = options[i];
    if (quotation == 0 && (c == ' ' || c == '\t' || c == '\n')) {
      if (in_word) words.push_back(std::move(word));
      word.clear();
      in_word = false;
      continue;
    }
    in_word = true;
    if (quotation == 0 && (c == '\'' || c == '"'))
      quotation = c;
    else if (c == quotation)
      quotation = 0;
    else if (c == '\\' && quotation != '\'' && i + 1 < options.size())
      word += options[++i];
    else
      word += c;
  }
  if (in_word) words.push_back(std::move(word));
  if (quotation != 0) {
    fault = "--slurm: a quotation is not closed";
    return false;
  }
  const auto ours = std::ranges::find_if(words, is_ours);
  if (ours != words.end()) fault = fmt::format("--slurm: zeph-chains sets {} itself", *ours);
  return ours == words.end();
}

bool submit_array(const fs::path& runs, const study& s, const std::string& options, int segments,
                  bool requeue, std::vector<std::string>& job_ids, std::string& fault) {
  std::vector<std::string> given;
  if (!split_options(options, given, fault)) return false;
  const fs::path own = fs::read_symlink("/proc/self/exe");
  std::error_code ignored;
  fs::create_directories(runs / slurm_name, ignored);
  const fs::path batch = free_batch_file(runs / slurm_name);
  if (!replace_file(batch, batch_text(runs, s, own, requeue))) {
    fault = fmt::format("can't write {}", batch.string());
    return false;
  }
  for (int segment = 1; segment <= segments; ++segment) {
    std::vector<std::string> words = {"sbatch", "--parsable"};
    if (!job_ids.empty()) {
      words.push_back("--dependency=aftercorr:" + job_ids.back());
      words.emplace_back("--kill-on-invalid-dep=yes");
    }
    words.insert(words.end(), given.begin(), given.end());
    words.push_back(batch.string());
    std::string said;
    const int code = run_words(words, true, said);
    const std::string id = job_id_in(said);
    if (code == 0 && !id.empty()) {
      job_ids.push_back(id);
      continue;
    }
    while (!said.empty() && said.back() == '\n') said.pop_back();
    fault = code < 0 ? "can't run sbatch: is Slurm installed here?"
                     : fmt::format("sbatch ended with exit code {}: {}", code, said);
    return false;
  }
  return true;
}

bool jobs_in_queue(const std::vector<std::string>& job_ids, std::vector<std::string>& held) {
  held.clear();
  for (const std::string& id : job_ids) {
    std::string said;
    const int code = run_words({"squeue", "--noheader", "--format=%i", "--jobs=" + id}, true, said);
    if (code == 0 && !said.empty()) held.push_back(id);
    if (code != 0 && said.find("Invalid job id") == std::string::npos)
      return false; // a job forgotten long ago
  }
  return true;
}

void cancel_waiting(const std::vector<std::string>& job_ids) {
  std::string said;
  if (!job_ids.empty()) {
    std::vector<std::string> words = {"scancel", "--state=PENDING"};
    words.insert(words.end(), job_ids.begin(), job_ids.end());
    run_words(words, false, said);
  }
}

} // namespace zeph::chains
