#include "chains/state_files.h"

#include "formats/byte_file.h"
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

// The head of a saved state, and its blocks, one after another: i4 length of the name, the name, i4 bytes of
// an element, i8 number of elements, the elements (docs/files.md).
constexpr std::string_view state_head = "ZEPH state 1";

class block_walk {
public:
  bool open(const fs::path& path) {
    std::string head(state_head.size(), ' ');
    return file_.open(path.string()) && take(head.data(), std::ssize(head)) && head == state_head;
  }
  // The next block; false at the end of the file, or where none begins.
  bool next(std::string& name) {
    std::int32_t n = 0, size = 0;
    std::int64_t count = 0;
    at_ += left_;
    if (!file_.move_to(at_) || !take(&n, 4) || n < 1 || n > longest_name) return false;
    name.resize(static_cast<std::size_t>(n));
    if (!take(name.data(), n) || !take(&size, 4) || !take(&count, 8)) return false;
    if (size < 1 || count < 0 || count > file_.size() / size) return false;
    left_ = size * count;
    return true;
  }
  // Its only element.
  template <class T> bool number(T& x) {
    if (left_ != sizeof(T) || !take(&x, left_)) return false;
    left_ = 0;
    return true;
  }

private:
  bool take(void* x, std::int64_t n) {
    at_ += n;
    return file_.read(static_cast<char*>(x), n) == n;
  }
  static constexpr std::int32_t longest_name = 256;
  byte_source file_;
  std::int64_t at_ = 0, left_ = 0; // bytes taken; of the block, not yet
};

bool read_place(const fs::path& path, saved_place& place) {
  block_walk blocks;
  if (!blocks.open(path)) return false;
  for (std::string name; blocks.next(name);) {
    if (name == "analysis type" && !blocks.number(place.analysis)) return false;
    if (name == "round") return blocks.number(place.round);
  }
  return false;
}

} // namespace

saved_place find_saved_state(const fs::path& directory) {
  saved_place place;
  std::error_code ignored;
  for (const char* name : {saved_state_name, given_state_name}) {
    if (!fs::exists(directory / name, ignored)) continue;
    place.there = true;
    place.known = read_place(directory / name, place);
    return place;
  }
  return place;
}

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
