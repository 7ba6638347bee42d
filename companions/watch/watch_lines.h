// One line for a watched chain.
#pragma once

#include "watch/watched_chain.h"

#include <string>
#include <vector>

namespace zeph::watch {

// "chain 1  sampling  round 3400 of 11000  212/s  0:36 left  pi[infected] 0.132  model 2 1 2  no sign of life
// for 6 min"
std::string line_of(const watched_chain& c);

// Lines of all chains; where several studies are watched, each begins with its directory.
std::vector<std::string> lines_of(const std::vector<watched_chain>& all);

} // namespace zeph::watch
