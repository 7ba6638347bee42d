#include "watch/watch_lines.h"

#include <algorithm>
#include <fmt/format.h>

namespace zeph::watch {
namespace {

using namespace zeph::chains;

constexpr double quiet_seconds = 60; // without a change of `status`

std::string quiet_text(double seconds) {
  if (seconds < 7200) return fmt::format("no sign of life for {:.0f} min", seconds / 60);
  return fmt::format("no sign of life for {:.0f} h", seconds / 3600);
}

std::string mixture_text(const watched_chain& c) {
  std::string text;
  const bool named = c.mixed.size() == c.look.mixture.size();
  for (std::size_t t = 0; t < c.look.mixture.size(); ++t) {
    if (named && c.mixed[t].empty()) continue;
    text += fmt::format("  pi[{}] {:.3f}", named ? c.mixed[t] : std::to_string(t + 1), c.look.mixture[t]);
  }
  return text;
}

} // namespace

std::string line_of(const watched_chain& c) {
  const chain_look& look = c.look;
  std::string line = fmt::format("{}  {}", c.name, look.state);
  if (look.round > 0) line += fmt::format("  round {}", look.round);
  if (look.round > 0 && look.of > 0) line += fmt::format(" of {}", look.of);
  if (const double pace = rounds_per_second(c.pace); look.now == life::running && pace > 0) {
    line += "  " + pace_text(pace);
    if (look.of > look.round)
      line += "  " + time_text(static_cast<double>(look.of - look.round) / pace) + " left";
  }
  line += mixture_text(c);
  if (!look.model.empty()) {
    line += "  model";
    for (const int d : look.model) line += fmt::format(" {}", d);
  }
  if (look.now == life::running && look.age >= quiet_seconds) line += "  " + quiet_text(look.age);
  if (!look.trouble.empty()) line += "  " + look.trouble;
  return line;
}

std::vector<std::string> lines_of(const std::vector<watched_chain>& all) {
  const bool several =
      std::ranges::any_of(all, [&](const watched_chain& c) { return c.runs != all.front().runs; });
  std::vector<std::string> lines;
  for (const watched_chain& c : all)
    lines.push_back(several && c.chain > 0 ? c.runs.string() + "  " + line_of(c) : line_of(c));
  return lines;
}

} // namespace zeph::watch
