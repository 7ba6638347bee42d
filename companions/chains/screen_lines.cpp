#include "chains/screen_lines.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace zeph::chains {
namespace {

constexpr std::size_t usual_width = 80;

std::size_t width_of(const screen_lines& screen) {
  winsize size{};
  if (ioctl(fileno(screen.out), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return usual_width;
}

} // namespace

screen_lines screen_on(std::FILE* out) { return {out, isatty(fileno(out)) == 1, 0}; }

void show_in_place(screen_lines& screen, const std::vector<std::string>& lines) {
  if (!screen.terminal) return;
  const std::size_t width = width_of(screen);
  std::string text;
  if (screen.shown > 0) text += fmt::format("\033[{}A", screen.shown);
  text += "\r\033[J";
  for (const std::string& line : lines) text += line.substr(0, width - 1) + "\n";
  fmt::print(screen.out, "{}", text);
  std::fflush(screen.out);
  screen.shown = static_cast<int>(lines.size());
}

void show_line(screen_lines& screen, const std::string& line) {
  if (screen.shown > 0) fmt::print(screen.out, "\033[{}A\r\033[J", screen.shown);
  screen.shown = 0;
  fmt::print(screen.out, "{}\n", line);
  std::fflush(screen.out);
}

} // namespace zeph::chains
