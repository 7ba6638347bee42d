// zeph-prepare: a model description, CSV data and a pedigree become a work directory of ZEPH.
// Exit codes: 0 done; 1 a fault in the description or the data, nothing is written; 2 command line or files.
#include "formats/byte_file.h"
#include "prepare/description/description_messages.h"
#include "prepare/description/model_description.h"
#include "prepare/messages/messages.h"
#include "prepare/model/model_assembly.h"
#include "prepare/output/summary.h"
#include "prepare/output/work_directory.h"
#include "prepare/tables/readable_file.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <new>
#include <string>

#ifndef ZEPH_VERSION
#define ZEPH_VERSION "0.1.0"
#endif

namespace {

constexpr const char* help_end = R"TEXT(
The description holds the tables
  [data]           the CSV file of the records
  [factor.NAME]    a random factor: its relationship, start value and prior
  [trait.NAME]     formula = "1 + sex + (1 | animal)", and kind =
                     "gaussian"             numbers; the default
                     "censored"             limits = { code = .., upper = .. }, { event = .. }
                                            or { upper = .. }
                     "ordered", "binary"    categories = ["low", .., "high"]
                     "indicator"            of a mixture: shift(NAME) in the formula of the mixed trait
                     "sequence", "cured"    a cure model: subject = .., position = ..; of = "sequence trait"
  [covariable.NAME], [residual], [keep], [run]
and is described in full in docs/prepare.md. The folder examples holds one of each kind.)TEXT";

namespace fs = std::filesystem;
using namespace zeph::prepare;

constexpr int exit_done = 0, exit_faults = 1, exit_files = 2;
constexpr const char* no_memory =
    "zeph-prepare: out of memory; use fewer levels or records, or a machine with more\n";

struct command {
  std::string model;
  std::string into; // empty: a directory named after the description
  bool check = false;
  bool prune = false;
  bool all = false;
};

std::array<std::int32_t, 6> stamp_now() {
  const std::time_t now = std::time(nullptr);
  std::tm t{};
  localtime_r(&now, &t);
  return {t.tm_mday, t.tm_mon + 1, t.tm_year + 1900, t.tm_hour, t.tm_min, t.tm_sec};
}

fs::path directory_of(const command& c) {
  return c.into.empty() ? fs::path(c.model).stem() : fs::path(c.into);
}

// Repeated faults beyond ten are in prepare.txt once it is written; before that only --all shows them.
std::string messages_of(const command& c, const message_log& log) {
  if (c.all) return full_text(log);
  return screen_text(log, c.check || exit_code(log) != 0 ? "--all" : "prepare.txt");
}

int faults(const command& c, const message_log& log) {
  fmt::print(stderr, "{}", messages_of(c, log));
  const int n = count_of(log, severity::error);
  fmt::print(stderr, "nothing was written: {} error{}\n", n, n == 1 ? "" : "s");
  return exit_faults;
}

bool continues_from_state(const run_section& run) { return run.continue_chain.value && run.saves_state(); }

void refuse_missing_state(const model_description& d, const fs::path& directory, message_log& log) {
  message& m = error_at(
      d, log, d.run.continue_chain.at,
      fmt::format("the chain continues from its saved state, and {} is missing: mv statelast r_state",
                  (directory / "r_state").string()));
  if (!d.run.state_every.given) m.hint = "without a saved state: state_every = false";
}

void tell_directory(const model_description& d, bool exact, const fs::path& directory,
                    const directory_result& written) {
  fmt::print("Written to {}: {} files\n", directory.string(), written.files.size());
  for (const std::string& name : written.removed)
    fmt::print("  {} of an earlier preparation was removed\n", name);
  for (const std::string& line : disturbing_files(directory, exact, continues_from_state(d.run)))
    fmt::print("  beware: {}\n", line);
  if (d.run.continue_chain.value && !d.run.saves_state())
    fmt::print("To continue the chain of that directory: cp lastsol oldsol; cp gparlast r_parm\n");
  fmt::print("Run: cd {} && ZEPH\n", directory.string());
  if (samples_solutions(d.run.analysis.value))
    fmt::print("Several chains: zeph-chains run {} --chains 4\n", directory.string());
}

int run(const command& c) {
  if (const std::string why = why_unreadable(c.model); !why.empty()) {
    fmt::print(stderr, "zeph-prepare: can't read {}: {}\n", c.model, why);
    return exit_files;
  }
  message_log log;
  const model_description d = read_description(c.model, log);
  if (exit_code(log) != 0) return faults(c, log);
  const fs::path directory = directory_of(c);
  const bool from_state = continues_from_state(d.run);
  // a saved state knows its model by the bytes of MODINF, the time of preparation among them
  const auto stamp = from_state ? stamp_of_directory(directory) : std::nullopt;
  const prepared_model p = assemble_model(d, {c.prune, stamp.value_or(stamp_now())}, log);
  if (from_state && !fs::exists(directory / "r_state")) refuse_missing_state(d, directory, log);
  if (exit_code(log) != 0) return faults(c, log);

  fmt::print(stderr, "{}", messages_of(c, log));
  const std::string summary = summary_text(d, p);
  fmt::print("{}", summary);
  if (c.check) {
    fmt::print("Checked only, nothing was written\n");
    return exit_done;
  }
  std::fflush(stdout);
  const directory_result written =
      write_work_directory(d, p, directory, full_text(log) + summary + detail_text(d, p));
  if (!written.ok) {
    fmt::print(stderr, "zeph-prepare: {}\n", written.fault);
    if (written.mixed)
      fmt::print(stderr, "{} is not complete: prepare it again before a run\n", directory.string());
    else
      fmt::print(stderr, "nothing was written to {}\n", directory.string());
    return exit_files;
  }
  try {
    tell_directory(d, p.exact, directory, written);
  } catch (const std::bad_alloc&) { // the directory is whole, only words about it are lost
    std::fputs("zeph-prepare: the work directory is written; out of memory for more words\n", stderr);
  }
  return exit_done;
}

// Output may still be buffered: flush it, so that a write error changes the exit code.
int screen_code(int code) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return code;
  fmt::print(stderr, "zeph-prepare: can't write standard output\n");
  return exit_files;
}

int run_command_line(int argc, char** argv) {
  command c;
  CLI::App app{"Makes a work directory for ZEPH from a model description, CSV data and a pedigree.",
               "zeph-prepare"};
  app.failure_message([](const CLI::App*, const CLI::Error& e) {
    return fmt::format("zeph-prepare: {}; see --help\n", e.what());
  });
  app.add_option("model", c.model, "description of the model (TOML)")->required();
  app.add_option("--into", c.into, "the work directory; default: named after the description, here");
  app.add_flag("--check", c.check, "read and check everything, write nothing");
  app.add_flag("--prune", c.prune, "leave animals with no connection to the data out of the pedigree");
  app.add_flag("--all", c.all, "show all messages, not only the first ten of each kind");
  app.footer(help_end);
  app.set_version_flag("--version", "zeph-prepare " ZEPH_VERSION);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? exit_done : exit_files;
  }
  return run(c);
}

// A destructor that allocates when memory has run out (the JSON library has such) ends here.
[[noreturn]] void end_without_storage() {
  std::fputs(no_memory, stderr);
  std::_Exit(exit_files);
}

} // namespace

int main(int argc, char** argv) {
  std::set_terminate(end_without_storage);
  zeph::let_size_limit_fail_writes();
  try {
    return screen_code(run_command_line(argc, argv));
  } catch (const std::bad_alloc&) {
    std::fputs(no_memory, stderr);
    return exit_files;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "zeph-prepare: %s\n", e.what());
    return exit_files;
  }
}
