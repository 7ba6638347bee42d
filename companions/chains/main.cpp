// zeph-chains: several chains of one work directory, here or on a cluster.
// Exit codes: 0 done; 1 refused, or a chain failed; 2 command line; 3 chains stopped before their last round.
#include "chains/commands.h"
#include "chains/seeds.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>

#ifndef ZEPH_VERSION
#define ZEPH_VERSION "0.1.0"
#endif

namespace {

using namespace zeph::chains;

struct command_line {
  run_options run;
  continue_options go_on;
  std::string work, into, runs;
  int chain = 0, process = 0;
};

void add_run(CLI::App& app, command_line& c) {
  CLI::App* run = app.add_subcommand("run", "run chains of a work directory, each with its own seeds");
  run->add_option("work", c.work, "the work directory")->required();
  run->add_option("--chains", c.run.chains, "number of chains, default 4")->check(CLI::Range(1, largest_a));
  run->add_option("--jobs", c.run.jobs, "processes at a time; default: the processors here")
      ->check(CLI::Range(1, 4096));
  run->add_option("--into", c.into, "directory of the study; default: WORK.runs beside WORK");
  CLI::Option* slurm =
      run->add_option("--slurm", c.run.sbatch, "submit to Slurm, with these options of sbatch");
  run->add_option("--segments", c.run.segments,
                  "arrays, one after another, in case the time limit ends a chain")
      ->check(CLI::Range(1, 1000))
      ->needs(slurm);
}

void add_continue(CLI::App& app, command_line& c) {
  CLI::App* go_on = app.add_subcommand("continue", "continue the chains of a study");
  go_on->add_option("runs", c.runs, "directory of the study")->required();
  go_on
      ->add_option("--rounds", c.go_on.rounds,
                   "further sampling rounds for each chain; default: what is left")
      ->check(CLI::Range(1, 99999999));
  go_on->add_option("--jobs", c.go_on.jobs, "processes at a time; default: the processors here")
      ->check(CLI::Range(1, 4096));
  CLI::Option* here = go_on->add_flag("--here", c.go_on.here, "continue here what was begun with Slurm");
  go_on->add_option("--slurm", c.go_on.sbatch, "submit to Slurm, with these options of sbatch")
      ->excludes(here);
  go_on->add_option("--segments", c.go_on.segments, "arrays, one after another")
      ->check(CLI::Range(1, 1000))
      ->excludes(here);
}

void add_others(CLI::App& app, command_line& c) {
  app.add_subcommand("status", "show the state of each chain")
      ->add_option("runs", c.runs, "directory of the study")
      ->required();
  app.add_subcommand("stop", "end all chains at their next sample round")
      ->add_option("runs", c.runs, "directory of the study")
      ->required();
  CLI::App* advance = app.add_subcommand(
      "advance", "used by batch files: make the next segment of a chain, or take up its last one");
  advance->add_option("runs", c.runs, "directory of the study")->required();
  advance->add_option("--chain", c.chain, "its number")->required();
  advance->add_option("--process", c.process, "the process that will run it")->required();
}

int run(CLI::App& app, command_line& c) {
  c.run.work = c.work;
  c.run.into = c.into;
  c.go_on.runs = c.runs;
  if (const CLI::App* sub = app.get_subcommand("run"); sub->parsed()) {
    c.run.slurm = sub->count("--slurm") > 0;
    return run_chains(c.run);
  }
  if (const CLI::App* sub = app.get_subcommand("continue"); sub->parsed()) {
    c.go_on.slurm = sub->count("--slurm") > 0;
    return continue_chains(c.go_on);
  }
  if (app.got_subcommand("status")) return tell_status(c.runs);
  if (app.got_subcommand("stop")) return stop_chains(c.runs);
  return advance_chain(c.runs, c.chain, c.process);
}

// Takes the command line and does what it asks; the exit code.
int do_command(int argc, char** argv) {
  command_line c;
  CLI::App app{"Runs several chains of a work directory of ZEPH, here or on a cluster.", "zeph-chains"};
  app.set_version_flag("--version", "zeph-chains " ZEPH_VERSION);
  app.require_subcommand(1);
  app.failure_message([](const CLI::App*, const CLI::Error& e) {
    return fmt::format("zeph-chains: {}; see --help\n", e.what());
  });
  add_run(app, c);
  add_continue(app, c);
  add_others(app, c);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? exit_done : exit_command;
  }
  return run(app, c);
}

} // namespace

int main(int argc, char** argv) {
  try {
    return do_command(argc, argv);
  } catch (const std::exception& e) {
    fmt::print(stderr, "zeph-chains: {}\n", e.what());
    return exit_fault;
  }
}
