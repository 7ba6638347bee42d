// Signals as something to wait for, instead of handlers.
#pragma once

#include <csignal>

namespace zeph::chains {

struct signal_wait {
  int fd = -1; // readable while a signal is pending
  sigset_t before{};
};

// From now on SIGINT, SIGTERM and SIGHUP, and with `children` SIGCHLD, are kept for take_signal. SIGHUP stays
// ignored where it is (nohup).
signal_wait keep_signals(bool children);

// The next signal kept, 0 when there is none. Does not wait.
int take_signal(const signal_wait& wait);

// Drops what was kept; signals act as before.
void release_signals(signal_wait& wait);

} // namespace zeph::chains
