#include "chains/round_pace.h"

#include <chrono>
#include <cmath>
#include <fmt/format.h>

namespace zeph::chains {

constexpr double window = 60;

void note_round(round_pace& pace, double time, std::int64_t round) {
  if (!pace.looks.empty() && round < pace.looks.back().round) pace.looks.clear();
  pace.looks.push_back({time, round});
  while (pace.looks.size() > 2 && pace.looks[1].time <= time - window) pace.looks.pop_front();
}

double rounds_per_second(const round_pace& pace) {
  if (pace.looks.size() < 2) return 0;
  const round_pace::look &first = pace.looks.front(), &last = pace.looks.back();
  if (last.time <= first.time) return 0;
  return static_cast<double>(last.round - first.round) / (last.time - first.time);
}

std::string time_text(double seconds) {
  if (seconds < 0 || !std::isfinite(seconds)) return {};
  const auto s = static_cast<std::int64_t>(std::llround(seconds));
  if (s >= 2 * 86400) return fmt::format("{} d {} h", s / 86400, s % 86400 / 3600);
  if (s >= 3600) return fmt::format("{}:{:02}:{:02}", s / 3600, s % 3600 / 60, s % 60);
  return fmt::format("{}:{:02}", s / 60, s % 60);
}

std::string pace_text(double per_second) {
  if (per_second <= 0) return {};
  if (per_second >= 10) return fmt::format("{:.0f}/s", per_second);
  if (per_second >= 1) return fmt::format("{:.1f}/s", per_second);
  return fmt::format("{:.1f}/min", per_second * 60);
}

double steady_seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

} // namespace zeph::chains
