// scripts/packages.txt against what the sources, the tests and the scripts use: R packages, packages and
// libraries that CMake looks for, headers, compilers, and programs that scripts call. What is used without a
// row in the tables below is a failure too: the row is found by `dpkg -S FILE` on Debian 12.
#include "scripts/shell_words.h"
#include "support/places.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using namespace zeph_test;

// name -> Debian package; "": part of every Debian (essential, or apt).
using provisions = std::map<std::string, std::string>;

const provisions cmake_names = {
    {"fmt", "libfmt-dev"},
    {"LAPACK", "liblapack-dev"},
    {"GTest", "libgtest-dev"},
    {"OpenSSL", "libssl-dev"},
    {"Boost", "libboost-graph-dev"},
    {"benchmark", "libbenchmark-dev"},
    {"spqr", "libsuitesparse-dev"},
    {"cholmod", "libsuitesparse-dev"},
    {"suitesparseconfig", "libsuitesparse-dev"},
    {"csv", "libcsv-dev"},
    {"SuiteSparseQR.hpp", "libsuitesparse-dev"},
    {"Rscript", "r-base-core"},
};

// By the first part of the name, up to '/'.
const provisions headers = {
    {"fmt", "libfmt-dev"},
    {"toml++", "libtomlplusplus-dev"},
    {"tao", "tao-pegtl-dev"},
    {"CLI", "libcli11-dev"},
    {"csv.h", "libcsv-dev"},
    {"nlohmann", "nlohmann-json3-dev"},
    {"boost", "libboost-graph-dev"},
    {"openssl", "libssl-dev"},
    {"gtest", "libgtest-dev"},
    {"benchmark", "libbenchmark-dev"},
    {"SuiteSparseQR.hpp", "libsuitesparse-dev"},
    {"cholmod.h", "libsuitesparse-dev"},
};

const provisions tools = {
    // bash itself
    {"break", ""},
    {".", ""},
    {"[", ""},
    {"[[", ""},
    {"cd", ""},
    {"command", ""},
    {"continue", ""},
    {"echo", ""},
    {"exec", ""},
    {"exit", ""},
    {"export", ""},
    {"declare", ""},
    {"kill", ""},
    {"local", ""},
    {"mapfile", ""},
    {"printf", ""},
    {"pwd", ""},
    {"read", ""},
    {"return", ""},
    {"set", ""},
    {"shift", ""},
    {"test", ""},
    {"trap", ""},
    {"true", ""},
    {"ulimit", ""},
    {"unset", ""},
    {"wait", ""},
    // coreutils, findutils, grep, sed, mawk, tar, hostname, dpkg, util-linux, mount, apt
    {"cat", ""},
    {"chmod", ""},
    {"chown", ""},
    {"cp", ""},
    {"cut", ""},
    {"date", ""},
    {"dirname", ""},
    {"du", ""},
    {"env", ""},
    {"basename", ""},
    {"head", ""},
    {"id", ""},
    {"ln", ""},
    {"ls", ""},
    {"mkdir", ""},
    {"mktemp", ""},
    {"mv", ""},
    {"nice", ""},
    {"nproc", ""},
    {"readlink", ""},
    {"realpath", ""},
    {"getconf", ""},
    {"rm", ""},
    {"seq", ""},
    {"sleep", ""},
    {"sort", ""},
    {"tail", ""},
    {"tee", ""},
    {"touch", ""},
    {"tr", ""},
    {"uniq", ""},
    {"wc", ""},
    {"chroot", ""},
    {"find", ""},
    {"xargs", ""},
    {"grep", ""},
    {"sed", ""},
    {"awk", ""},
    {"tar", ""},
    {"hostname", ""},
    {"dpkg", ""},
    {"dpkg-query", ""},
    {"unshare", ""},
    {"mount", ""},
    {"umount", ""},
    {"apt-get", ""},
    {"apt-config", ""},
    {"bash", ""},
    {"sh", ""},
    {"cmp", ""},
    {"diff", ""},
    {"stat", ""},
    {"uname", ""},
    // packages
    {"cmake", "cmake"},
    {"ctest", "cmake"},
    {"git", "git"},
    {"time", "time"},
    {"g++", "g++"},
    {"c++", "g++"},
    {"clang-14", "clang-14"},
    {"clang++-14", "clang-14"},
    {"clang-format-14", "clang-format-14"},
    {"clang-tidy-14", "clang-tidy-14"},
    {"ninja", "ninja-build"},
    {"Rscript", "r-base-core"},
    {"R", "r-base-core"},
    {"python3", "python3"},
    {"pyflakes3", "pyflakes3"},
    {"shellcheck", "shellcheck"},
    {"valgrind", "valgrind"},
    {"callgrind_annotate", "valgrind"},
    {"mmdebstrap", "mmdebstrap"},
    {"pandoc", "pandoc"},
    {"chromium-headless-shell", "chromium-headless-shell"},
};

// Packages of scripts/packages_slurm.txt: installed by scripts/test_slurm alone, since they bring daemons.
const provisions slurm_tools = {{"slurmctld", "slurm-wlm"}, {"slurmd", "slurm-wlm"}, {"squeue", "slurm-wlm"},
                                {"sinfo", "slurm-wlm"},     {"sbatch", "slurm-wlm"}, {"scancel", "slurm-wlm"},
                                {"scontrol", "slurm-wlm"},  {"munged", "munge"}};

std::set<std::string> lines_of(const std::string& path) {
  std::set<std::string> out;
  std::istringstream in(bytes_of(source_folder() + "/" + path));
  for (std::string line; std::getline(in, line);)
    if (!line.empty()) out.insert(line);
  return out;
}

const std::set<std::string>& listed() {
  static const std::set<std::string> all = lines_of("scripts/packages.txt");
  return all;
}

struct source_file {
  std::string name, text;
};

std::vector<source_file> files_where(const std::vector<std::string>& folders,
                                     const std::function<bool(const fs::path&)>& wanted) {
  std::vector<source_file> out;
  for (const std::string& folder : folders)
    for (const auto& entry : fs::recursive_directory_iterator(source_folder() + "/" + folder))
      if (entry.is_regular_file() && wanted(entry.path()))
        out.push_back(
            {fs::relative(entry.path(), source_folder()).string(), bytes_of(entry.path().string())});
  std::sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  return out;
}

std::set<std::string> matches(const std::string& text, const std::string& pattern, int group = 1) {
  const std::regex form(pattern);
  std::set<std::string> out;
  for (std::sregex_iterator m(text.begin(), text.end(), form), end; m != end; ++m)
    out.insert((*m)[static_cast<std::size_t>(group)].str());
  return out;
}

void expect_listed(const std::string& name, const provisions& table, const std::string& where) {
  const auto row = table.find(name);
  if (row == table.end()) {
    ADD_FAILURE() << where << " uses " << name << ": which package has it? (dpkg -S)";
    return;
  }
  EXPECT_TRUE(row->second.empty() || listed().count(row->second) == 1)
      << where << " uses " << name << " of " << row->second << ", which scripts/packages.txt does not list";
}

const std::set<std::string> r_base = {"base",    "stats", "utils",    "tools",   "grDevices", "graphics",
                                      "methods", "grid",  "parallel", "splines", "compiler"};

// Names of packages in lists of needed ones: needed <- c("posterior", ..).
std::set<std::string> needed_lists(const std::string& text) {
  std::set<std::string> out;
  for (const std::string& list : matches(text, "needed[a-z_]* <- c\\(([^)]*)\\)"))
    out.merge(matches(list, "\"([A-Za-z0-9.]+)\""));
  return out;
}

std::string without_comments(const std::string& text) {
  return std::regex_replace(text, std::regex("(^|\n)[ \t]*#[^\n]*"), "$1");
}

TEST(packages, hold_every_R_package_that_is_loaded) {
  const auto files = files_where({"companions", "tests", "bench", "scripts"}, [](const fs::path& path) {
    return path.extension() == ".R" || path.extension() == ".Rmd";
  });
  ASSERT_GT(files.size(), 30U);
  std::set<std::string> found;
  for (const source_file& file : files) {
    const std::string text = without_comments(file.text);
    std::set<std::string> names = matches(text, "\\b([A-Za-z][A-Za-z0-9.]+):::?[A-Za-z]");
    names.merge(matches(text, "(?:library|require)\\(\"?([A-Za-z][A-Za-z0-9.]+)\"?[,)]"));
    names.merge(matches(text, "requireNamespace\\(\"([A-Za-z0-9.]+)\""));
    names.merge(needed_lists(text));
    for (const std::string& name : names) {
      if (r_base.count(name) == 1) continue;
      std::string package = "r-cran-" + name;
      std::transform(package.begin(), package.end(), package.begin(),
                     [](unsigned char c) { return std::tolower(c); });
      EXPECT_EQ(listed().count(package), 1U) << file.name << " loads " << name << ": " << package;
    }
    found.merge(names);
  }
  for (const char* name : {"png", "ncdf4", "htmltools", "ggplot2", "testthat"})
    EXPECT_EQ(found.count(name), 1U) << name;
}

TEST(packages, hold_every_program_that_R_code_starts) {
  for (const source_file& file :
       files_where({"companions", "tests"}, [](const fs::path& path) { return path.extension() == ".R"; })) {
    std::set<std::string> names = matches(file.text, "system2\\(\"(?:/usr/bin/|/bin/)?([^\"]+)\"");
    for (const std::string& list : matches(file.text, "Sys[.]which\\(([^\\n]*)\\)"))
      for (const std::string& name : matches(list, "\"([^\"]+)\"")) names.insert(name);
    for (const std::string& name : names) expect_listed(name, tools, file.name);
  }
}

TEST(packages, hold_all_that_cmake_looks_for) {
  std::set<std::string> found;
  auto files = files_where({"src", "companions", "tests", "bench"},
                           [](const fs::path& path) { return path.filename() == "CMakeLists.txt"; });
  files.push_back({"CMakeLists.txt", bytes_of(source_folder() + "/CMakeLists.txt")});
  for (const source_file& file : files) {
    const std::string text = without_comments(file.text);
    std::set<std::string> names = matches(text, "find_package\\(([A-Za-z0-9]+)");
    names.merge(matches(text, "find_(?:library|path|program|file)\\([A-Z_]+ ([^ )]+)"));
    for (const std::string& name : names) expect_listed(name, cmake_names, file.name);
    found.merge(names);
  }
  EXPECT_GT(found.size(), 10U);
  const std::string presets = bytes_of(source_folder() + "/CMakePresets.json");
  EXPECT_NE(presets.find("\"Ninja\""), std::string::npos);
  EXPECT_EQ(listed().count("ninja-build"), 1U);
  for (const std::string& name : matches(presets, "\"CMAKE_C(?:XX)?_COMPILER\": \"([^\"]+)\""))
    expect_listed(name, tools, "CMakePresets.json");
}

// A header with a folder or an ending in its name is neither the language's nor, in sys/ and the like, the
// system's.
TEST(packages, hold_every_header_of_others) {
  const std::set<std::string> system = {
      "sys",      "sched.h",  "dlfcn.h",   "fcntl.h",   "grp.h",    "poll.h",   "signal.h",
      "unistd.h", "dirent.h", "termios.h", "pthread.h", "stdlib.h", "stdio.h",  "string.h",
      "errno.h",  "time.h",   "stddef.h",  "stdarg.h",  "stdint.h", "malloc.h", "linux",
      "spawn.h",  "pwd.h",    "pty.h",     "netdb.h",   "limits.h"};
  std::set<std::string> found;
  for (const source_file& file :
       files_where({"src", "companions", "tests", "bench"}, [](const fs::path& path) {
         return path.extension() == ".cpp" || path.extension() == ".h" || path.extension() == ".c";
       }))
    for (const std::string& name : matches(file.text, "#include <([^>]+)>")) {
      const std::string first = name.substr(0, name.find('/'));
      if (name.find_first_of("/.") == std::string::npos || system.count(first) == 1) continue;
      if (found.insert(name).second) expect_listed(first, headers, file.name);
    }
  EXPECT_GT(found.size(), 8U);
}

bool is_shell(const fs::path& path) {
  const std::string first = bytes_of(path.string()).substr(0, 20);
  return path.extension() == ".sh" || first.starts_with("#!/usr/bin/env bash") ||
         first.starts_with("#!/bin/sh") || first.starts_with("# shellcheck shell=");
}

// The command alone: a program is called by its own name or that of the system's folders.
std::string plain_command(const std::string& word) {
  for (const char* folder : {"/usr/bin/", "/bin/", "/usr/sbin/"})
    if (word.starts_with(folder)) return word.substr(std::string(folder).size());
  return word.find('/') == std::string::npos ? word : std::string();
}

TEST(packages, hold_every_tool_that_a_script_calls) {
  const auto scripts = files_where({"scripts", ".ci", "bench", "companions", "tests/slurm"}, is_shell);
  ASSERT_GT(scripts.size(), 10U);
  std::set<std::string> functions, found;
  for (const source_file& file : scripts) functions.merge(words_of_script(file.text).functions);
  for (const source_file& file : scripts) {
    const bool slurm = file.name.find("slurm") != std::string::npos;
    const shell_words words = words_of_script(file.text);
    for (const std::string& word : words.called) {
      const std::string name = plain_command(word);
      if (name.empty() || functions.count(name) == 1 || name.starts_with("zeph-") || name == "ZEPH") continue;
      if (slurm && slurm_tools.count(name) == 1) continue;
      expect_listed(name, tools, file.name);
      found.insert(name);
    }
    // arguments: nice cmake, xargs clang-tidy-14
    for (const std::string& word : words.named)
      if (tools.count(plain_command(word)) == 1) expect_listed(plain_command(word), tools, file.name);
  }
  for (const char* name : {"cmake", "ctest", "clang-format-14", "valgrind"})
    EXPECT_EQ(found.count(name), 1U) << name;
}

TEST(packages, hold_the_interpreter_of_every_script_and_its_modules) {
  const std::set<std::string> library = {"argparse",  "collections", "math",       "os",  "pathlib",
                                         "re",        "shutil",      "subprocess", "sys", "tempfile",
                                         "textwrap",  "xml",         "json",       "csv", "itertools",
                                         "functools", "datetime",    "hashlib"};
  int n = 0;
  for (const source_file& file : files_where({"scripts", ".ci", "bench", "tests"}, [](const fs::path& path) {
         return bytes_of(path.string()).starts_with("#!/usr/bin/env python3") || path.extension() == ".py";
       })) {
    expect_listed("python3", tools, file.name);
    for (const std::string& line : matches(file.text, "(?:^|\n)import ([^\n]+)"))
      for (const std::string& name : matches(line, "([A-Za-z0-9_]+)(?:[.][A-Za-z.]+)?(?: as [a-z]+)?"))
        if (name != "as") {
          EXPECT_EQ(library.count(name), 1U) << file.name << " imports " << name;
        }
    ++n;
  }
  EXPECT_GT(n, 0);
}

TEST(packages, of_the_cluster_are_listed_apart) {
  EXPECT_EQ(lines_of("scripts/packages_slurm.txt"), (std::set<std::string>{"munge", "slurm-wlm"}));
}

// The reader of scripts: what is a command and what is not.
TEST(words_of_script, are_commands_where_a_command_may_begin) {
  const shell_words words =
      words_of_script("#!/bin/sh\n# git is not called\nfirst a 'second b' \"$(third \"c d\") fourth\"\n"
                      "name=value fifth | sixth && ! seventh || { eighth; }\n"
                      "if [ -n \"$x\" ]; then ninth > out 2>&1; fi\n"
                      "list=(tenth\n named)\nown() { eleventh; }\ncat << 'EOF'\ntwelfth\nEOF\n"
                      "thirteenth <<< fourteenth $((1 + (2))) ${x:-y} &\n"
                      "case $x in\n  a | b) fifteenth ;;\n  *) sixteenth a; seventeenth ;;\nesac\nfor ((i = "
                      "0; i < 2; ++i)); do eighteenth; done\n");
  EXPECT_EQ(words.called, (std::set<std::string>{"first", "third", "fifth", "sixth", "seventh", "eighth", "[",
                                                 "ninth", "eleventh", "cat", "thirteenth", "fifteenth",
                                                 "sixteenth", "seventeenth", "eighteenth"}));
  EXPECT_EQ(words.functions, (std::set<std::string>{"own"}));
  EXPECT_EQ(words.named.count("fourteenth"), 1U);
  EXPECT_EQ(words.named.count("tenth"), 1U);
  EXPECT_EQ(words.named.count("twelfth"), 0U);
}

} // namespace
