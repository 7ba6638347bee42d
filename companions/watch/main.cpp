// zeph-watch: the state of running chains. Only reads, but for the file STOP that the user may ask for.
// Exit codes: 0 done; 1 a directory that holds no chains; 2 command line.
#include "watch/watch_loop.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <vector>

#ifndef ZEPH_VERSION
#define ZEPH_VERSION "0.1.0"
#endif

namespace {

constexpr int exit_done = 0, exit_fault = 1, exit_command = 2;

int run(const std::vector<std::string>& directories) {
  std::vector<zeph::watch::watched_chain> all;
  for (const std::string& directory : directories) {
    std::string fault;
    if (zeph::watch::chains_in(directory, all, fault)) continue;
    fmt::print(stderr, "zeph-watch: {}\n", fault);
    return exit_fault;
  }
  zeph::chains::screen_lines screen = zeph::chains::screen_on(stdout);
  zeph::watch::watch_chains(all, screen);
  return exit_done;
}

// Takes the command line and watches; the exit code.
int do_command(int argc, char** argv) {
  std::vector<std::string> directories;
  CLI::App app{"Shows the state of running chains of ZEPH.", "zeph-watch"};
  app.failure_message([](const CLI::App*, const CLI::Error& e) {
    return fmt::format("zeph-watch: {}; see --help\n", e.what());
  });
  app.add_option("directories", directories, "studies of zeph-chains, or directories in which ZEPH runs")
      ->required();
  app.set_version_flag("--version", "zeph-watch " ZEPH_VERSION);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? exit_done : exit_command;
  }
  return run(directories);
}

} // namespace

int main(int argc, char** argv) {
  try {
    return do_command(argc, argv);
  } catch (const std::exception& e) {
    fmt::print(stderr, "zeph-watch: {}\n", e.what());
    return exit_fault;
  }
}
