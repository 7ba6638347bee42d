#include "chains/signal_wait.h"

#include <initializer_list>
#include <sys/signalfd.h>
#include <unistd.h>

namespace zeph::chains {

namespace {

bool ignored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

signal_wait keep_signals(bool children) {
  signal_wait wait;
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM}) sigaddset(&set, signal);
  if (!ignored(SIGHUP)) sigaddset(&set, SIGHUP);
  if (children) sigaddset(&set, SIGCHLD);
  sigprocmask(SIG_BLOCK, &set, &wait.before);
  wait.fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  return wait;
}

int take_signal(const signal_wait& wait) {
  signalfd_siginfo info{};
  if (read(wait.fd, &info, sizeof info) != static_cast<ssize_t>(sizeof info)) return 0;
  return static_cast<int>(info.ssi_signo);
}

void release_signals(signal_wait& wait) {
  while (take_signal(wait) != 0) {}
  close(wait.fd);
  sigprocmask(SIG_SETMASK, &wait.before, nullptr);
}

} // namespace zeph::chains
