#include "chains/state_files.h"

#include "formats/sequential_file.h"

#include <fmt/format.h>

namespace zeph::chains {
namespace {

constexpr const char* solutions_name = "lastsol";
constexpr const char* parameters_name = "gparlast";
constexpr std::int64_t bytes_of_solution = 12; // equation number and solution

// lastsol: neq, then a record for each equation.
std::string solutions_fault(const fs::path& path, std::int32_t neq) {
  sequential_reader file;
  if (!file.open(path.string())) return fmt::format("{} is missing", path.string());
  std::int32_t found = 0;
  if (file.next() != 0 || file.record_length() != 4) return fmt::format("{} is damaged", path.string());
  file.take(found);
  if (found != neq) return fmt::format("{} holds {} equations, the model has {}", path.string(), found, neq);
  std::int32_t n = 0;
  while (file.next() == 0 && file.record_length() == bytes_of_solution) ++n;
  if (n == neq && file.code() == sequential_reader::end_of_file && !file.broken()) return {};
  return fmt::format("{} ends after {} of {} solutions", path.string(), n, neq);
}

// gparlast: every record as long as the model says.
std::string parameters_fault(const fs::path& path, const work_model& m, seed_pair seeds) {
  sequential_reader file;
  if (!file.open(path.string())) return fmt::format("{} is missing", path.string());
  for (std::size_t r = 0; r < m.state.size(); ++r) {
    if (file.next() != 0) return fmt::format("{} ends before {}", path.string(), m.state_names[r]);
    if (file.record_length() != m.state[r])
      return fmt::format("{} holds {} bytes as {}, the model has {}", path.string(), file.record_length(),
                         m.state_names[r], m.state[r]);
    if (r != 1) continue;
    seed_pair found;
    file.take(found.A);
    file.take(found.B);
    if (found != seeds)
      return fmt::format("{} was left by a chain with seeds {} {}, this one has {} {}", path.string(),
                         found.A, found.B, seeds.A, seeds.B);
  }
  if (file.next() == 0 || file.broken()) return fmt::format("{} is longer than the model's", path.string());
  return {};
}

} // namespace

std::vector<std::string> state_faults(const fs::path& directory, const work_model& m, seed_pair seeds) {
  std::vector<std::string> lines;
  for (std::string line : {solutions_fault(directory / solutions_name, m.neq),
                           parameters_fault(directory / parameters_name, m, seeds)})
    if (!line.empty()) lines.push_back(std::move(line));
  return lines;
}

bool saved_round(const fs::path& directory, std::int64_t& round) {
  sequential_reader file;
  std::int32_t found = 0;
  if (!file.open((directory / parameters_name).string()) || file.next() != 0) return false;
  file.take(found);
  if (file.code() != 0) return false;
  round = found;
  return true;
}

} // namespace zeph::chains
