// Lines that are shown again and again: in place on a terminal, one after another elsewhere.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace zeph::chains {

struct screen_lines {
  std::FILE* out = nullptr;
  bool terminal = false;
  int shown = 0; // lines above the cursor, which are written over
};

screen_lines screen_on(std::FILE* out);

// Writes the lines over those shown before, each cut to the width of the terminal. On a terminal only.
void show_in_place(screen_lines& screen, const std::vector<std::string>& lines);

// Writes a line that stays; what is shown in place continues below it.
void show_line(screen_lines& screen, const std::string& line);

} // namespace zeph::chains
