#include "watch/watch_loop.h"

#include "chains/local_runs.h"
#include "chains/signal_wait.h"
#include "watch/watch_lines.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <fmt/format.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace zeph::watch {
namespace {

using namespace zeph::chains;

constexpr double look_interval = 1, line_interval = 60; // seconds
constexpr int looks_at_rest = 3;                        // a chain may be between two segments

// Keys one by one and unseen, as long as it lives.
class key_input {
public:
  key_input() {
    if (isatty(0) == 0 || tcgetattr(0, &before_) != 0) return;
    termios keys = before_;
    keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    active_ = tcsetattr(0, TCSANOW, &keys) == 0;
  }
  ~key_input() {
    if (active_) tcsetattr(0, TCSANOW, &before_);
  }
  key_input(const key_input&) = delete;
  key_input& operator=(const key_input&) = delete;
  bool active() const { return active_; }

private:
  termios before_{};
  bool active_ = false;
};

struct watch_state {
  std::vector<watched_chain>& all;
  screen_lines& screen;
  bool asking = false, leave = false;
  std::string said; // below the chains
  double shown = -line_interval;
};

std::string clock_text() {
  const std::time_t now = std::time(nullptr);
  std::tm t{};
  localtime_r(&now, &t);
  return fmt::format("{:02}:{:02}:{:02}  ", t.tm_hour, t.tm_min, t.tm_sec);
}

void take_key(watch_state& w, char key) {
  if (w.asking) {
    w.asking = false;
    if (key == 'y' || key == 'Y') {
      const int n = stop_running(w.all);
      w.said =
          fmt::format("{} chain{} asked to stop; each ends at its next sample round", n, n == 1 ? "" : "s");
    } else {
      w.said = "not stopped";
    }
  } else if (key == 's') {
    w.asking = true;
  } else if (key == 'q') {
    w.leave = true;
  }
}

void show(watch_state& w, bool last) {
  std::vector<std::string> lines = lines_of(w.all);
  if (w.screen.terminal && !last) {
    if (!w.said.empty()) lines.push_back(w.said);
    lines.emplace_back(w.asking ? "Stop the chains at their next sample round? y/n"
                                : "s: stop the chains   q: leave");
    return show_in_place(w.screen, lines);
  }
  const double now = steady_seconds();
  if (!last && now - w.shown < line_interval) return;
  w.shown = now;
  for (const std::string& line : lines) show_line(w.screen, (w.screen.terminal ? "" : clock_text()) + line);
}

// Nothing runs, and nothing is in a queue.
bool at_rest(const std::vector<watched_chain>& all) {
  return std::ranges::all_of(all, [](const watched_chain& c) {
    return c.look.now == life::ended || (c.look.now == life::waits && !c.queued && c.chain > 0);
  });
}

bool all_ended(const std::vector<watched_chain>& all) {
  return std::ranges::all_of(
      all, [](const watched_chain& c) { return c.look.now == life::ended && c.look.state != "waits"; });
}

// Waits for keys or a signal until the next look is due.
void wait_for_user(watch_state& w, bool keys, const signal_wait& signals, double until) {
  while (!w.leave) {
    const int ms = static_cast<int>((until - steady_seconds()) * 1000);
    if (ms <= 0) return;
    std::array<pollfd, 2> p = {pollfd{signals.fd, POLLIN, 0}, pollfd{keys ? 0 : -1, POLLIN, 0}};
    if (poll(p.data(), p.size(), ms) <= 0) return;
    if (p[0].revents != 0) w.leave = true;
    char key = 0;
    if (p[1].revents == 0) continue;
    if (read(0, &key, 1) == 1)
      take_key(w, key);
    else
      w.leave = true; // the terminal is gone
    show(w, false);
  }
}

} // namespace

int stop_running(const std::vector<watched_chain>& all) {
  int asked = 0;
  for (const watched_chain& c : all) {
    if (c.chain > 0) ask_to_stop(c.runs);
    if (c.look.now == life::running && ask_to_stop(c.directory)) ++asked;
  }
  return asked;
}

void watch_chains(std::vector<watched_chain>& all, screen_lines& screen) {
  signal_wait signals = keep_signals(false);
  {
    const key_input keys;
    watch_state w{all, screen, false, false, {}};
    int rests = 0;
    while (!w.leave) {
      const double now = steady_seconds();
      for (watched_chain& c : all) look_again(c, now);
      rests = at_rest(all) ? rests + 1 : 0;
      if (rests == looks_at_rest || (rests > 0 && all_ended(all))) break;
      show(w, false);
      wait_for_user(w, keys.active() && screen.terminal, signals, now + look_interval);
    }
    show(w, true);
  }
  release_signals(signals);
}

} // namespace zeph::watch
