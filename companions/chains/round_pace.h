// Rounds per second over the last minute, and the time that is left.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

namespace zeph::chains {

struct round_pace {
  struct look {
    double time; // seconds of any clock that only goes forward
    std::int64_t round;
  };
  std::deque<look> looks; // of the last minute, in order, and the one before it
};

// A look at the round; a round below the last one starts from scratch.
void note_round(round_pace& pace, double time, std::int64_t round);

// 0 when it isn't known yet: before two looks, or when nothing moved.
double rounds_per_second(const round_pace& pace);

// "4:05", "1:02:03", "3 d 4 h"; negative seconds give "".
std::string time_text(double seconds);

// "212/s", "0.35/s", "12.4/min"; empty for 0.
std::string pace_text(double per_second);

double steady_seconds(); // of the machine's steady clock

} // namespace zeph::chains
