#include "chains/layout.h"

#include <string>

namespace zeph::chains {

fs::path chain_directory(const fs::path& runs, int chain) { return runs / ("chain" + std::to_string(chain)); }

fs::path segment_directory(const fs::path& runs, int chain, int segment) {
  return chain_directory(runs, chain) / ("seg" + std::to_string(segment));
}

int last_segment(const fs::path& runs, int chain) {
  std::error_code ignored;
  int segment = 0;
  while (fs::is_directory(segment_directory(runs, chain, segment + 1), ignored)) ++segment;
  return segment;
}

bool is_study(const fs::path& directory) {
  std::error_code ignored;
  return fs::is_regular_file(directory / chains_name, ignored);
}

} // namespace zeph::chains
