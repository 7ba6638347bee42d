// The loop of zeph-watch.
#pragma once

#include "chains/screen_lines.h"
#include "watch/watched_chain.h"

#include <vector>

namespace zeph::watch {

// Looks once a second until no chain runs, none is in a queue and none begins, or a signal or the key q
// ends it. On a terminal the lines stay in place, and the key s asks whether to stop the chains; y
// creates STOP. Elsewhere a line per chain appears at once, each minute, and at the end.
void watch_chains(std::vector<watched_chain>& all, chains::screen_lines& screen);

// Creates STOP where a chain runs, and in the studies. Returns the number of running chains asked.
int stop_running(const std::vector<watched_chain>& all);

} // namespace zeph::watch
