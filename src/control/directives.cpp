#include "control/directives.h"

#include "control/restrictions.h"
#include "formats/column_format.h"
#include "input/relationships.h"
#include "input/structures.h"
#include "listing/listing_rows.h"
#include "listing/stops.h"
#include "listing/work_files.h"

#include <array>
#include <chrono>
#include <fmt/format.h>
#include <random>
#include <vector>

namespace zeph {
namespace {

constexpr int end_of_file = -1;
constexpr std::int32_t most_covariates = 1000000; // of one class-effect solution
constexpr std::string_view line_error = "ERROR  - reading input line for zeph from the directive file";
constexpr std::string_view clock_seed_label = "Starting value A for RNG set based on system time .";

std::string without_blanks(const std::string& text) {
  const std::size_t last = text.find_last_not_of(' ');
  return last == std::string::npos ? std::string() : text.substr(0, last + 1);
}

bool begins_with_two_integers(const std::string& path) {
  free_reader lines;
  if (!lines.open(path)) return false;
  std::int32_t first = 0, second = 0;
  lines.begin_read();
  return lines.integer(first) == 0 && lines.integer(second) == 0;
}

bool readable(const std::string& path) { return free_reader().open(path); }

// Reads the values in one read; the first code that is not 0 ends it.
int read_integers(free_reader& lines, std::initializer_list<std::int32_t*> values) {
  int code = 0;
  lines.begin_read();
  for (std::int32_t* value : values)
    if (code == 0) code = lines.integer(*value);
  if (code == 0) lines.end_read();
  return code;
}

int read_list(free_reader& lines, std::vector<std::int32_t>& list, std::int32_t n) {
  for (std::int32_t i = 0; i < n; ++i) {
    std::int32_t value = 0;
    if (const int code = lines.integer(value); code != 0) return code;
    list.push_back(value);
  }
  return 0;
}

int read_real(free_reader& lines, double& value) {
  lines.begin_read();
  const int code = lines.real(value);
  if (code == 0) lines.end_read();
  return code;
}

[[noreturn]] void fail_numbered_line(reporting& report, int number) {
  say(report, fmt::format("ERROR  - reading {}. input line for zeph from the directive file", number));
  QVA_LOG(report);
}

[[noreturn]] void fail_line(reporting& report) {
  say(report, line_error);
  QVA_LOG(report);
}

// From analysis type 4 on phantom parent groups are not served.
void refuse_phantom_groups(const model_records& m, const directives& asked, reporting& report) {
  if (takes_parent_groups(asked.analysis_type)) return;
  for (std::int32_t k = 1; k <= m.nramat; ++k) {
    if (!is_pedigree(m.RMAT(k)) || m.RMAT(k).r36 % 10 != 6) continue;
    say(report);
    say(report);
    say(report, "IN MODELS WITH PHANTOM PARENT GROUPS");
    say(report, "IS NOT IMPLEMENTED IN ZEPH FOR ANALYSE TYPE > 3");
    say(report);
    say(report, "Program terminates");
    stop_run(report, exit_diagnosed);
  }
}

// A seed of three or four digits from a generator started by the clock.
std::int32_t clock_seed(std::int32_t seed, std::minstd_rand& simple) {
  // kept: any seed above 10000 is divided down to four digits
  while (seed <= 999) seed = static_cast<std::int32_t>(simple() & 0x7fffffff);
  while (seed > 10000) seed /= 10;
  return seed;
}

void set_seeds(directives& asked, combined_source& combined, reporting& report) {
  if (asked.seed_a != 0 && asked.seed_b != 0) {
    say_count(report, "Starting value A for RNG ..........................", asked.seed_a);
    ranlib_start(combined, asked.seed_a);
    say_count(report, "Starting value B for RNG ..........................", asked.seed_b);
    return;
  }
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  std::minstd_rand simple(static_cast<std::minstd_rand::result_type>(
      std::chrono::duration_cast<std::chrono::microseconds>(now).count() % 2147483646 + 1));
  if (asked.seed_a == 0) {
    say_count(report, "Specified starting value A for RNG ................", 0);
    asked.seed_a = clock_seed(asked.seed_a, simple);
    say_count(report, clock_seed_label, asked.seed_a);
    ranlib_start(combined, asked.seed_a);
  }
  if (asked.seed_b == 0) {
    say_count(report, "Specified starting value B for RNG ................", 0);
    asked.seed_b = clock_seed(asked.seed_b, simple);
    say_count(report, clock_seed_label, asked.seed_b); // kept: B has the label of A
  }
  say(report);
  say_label(report, "It is the set starting values that must be used    ");
  say_label(report, "in a restart of the chain                          ");
  say(report);
}

void echo_rounds(directives& asked, reporting& report) {
  if (asked.nburn != 0 && asked.restart) {
    say_count(report, "DF for proposal distribution ......................",
              asked.prodf); // kept: not yet read
    say_count(report, "No of Burn-in rounds specified ....................", asked.nburn);
    say_label(report, "But this is a restart of the chain ................");
    asked.nburn = 0;
    say_count(report, "No of Burn-in rounds set to .......................", asked.nburn);
  } else {
    say_count(report, "No of Burn-in rounds ..............................", asked.nburn);
  }
  say_count(report, "No of sampling rounds .............................", asked.nround);
  say_count(report, "Sampling interval .................................", asked.isamp);
}

// The number of the type of analysis, as given, in `number`.
void read_first_lines(const model_records& m, directives& asked, std::int32_t& number,
                      random_sources& sources, free_reader& lines, reporting& report) {
  if (read_integers(lines, {&number, &asked.test_level}) != 0) fail_numbered_line(report, 1);
  asked.analysis_type = analysis_of(number);
  say_count(report, "Kode for type of analysis .........................", number);
  say_count(report, "Level of test information printed .................", asked.test_level);
  refuse_phantom_groups(m, asked, report);
  if (read_integers(lines, {&asked.seed_a, &asked.seed_b}) != 0) fail_numbered_line(report, 2);
  // the combined source is started by its seeds here, the Marsaglia source once the data are loaded
  set_seeds(asked, sources.combined, report);
  if (read_integers(lines, {&asked.nburn, &asked.nround, &asked.isamp}) != 0) fail_numbered_line(report, 3);
  echo_rounds(asked, report);
}

// Data degrees of freedom: levels of the factor; in a pedigree those that are
// no phantom group, in a reduced animal model those of its reduced inverse.
void set_data_df(const model_records& m, directives& asked, reporting& report) {
  for (std::int32_t k = 1; k <= m.nramat; ++k) {
    asked.DDF(k) = m.NRALEV(k);
    if (!is_pedigree(m.RMAT(k))) continue;
    if (m.RMAT(k).L_RAM) asked.DDF(k) = count_ram_diagonals(k, m.NRALEV(k), report);
    asked.DDF(k) -= m.RMAT(k).n_phg;
  }
  asked.DDF(m.nramat + 1) = m.nobs();
}

void echo_df(const directives& asked, std::int32_t k, std::int32_t dimension, reporting& report) {
  if (asked.PDF(k) > dimension + 1) {
    say(report, column_line().X(30).I(k, 3).I(asked.PDF(k), 11).I(asked.DDF(k), 11).str());
    return;
  }
  say(report, column_line().X(30).I(k, 3).X(9).A("Flat", 4).I(asked.DDF(k), 9).str());
  if (asked.PDF(k) == 0) return;
  const std::string indent(42, ' ');
  say(report, indent + "WARNING WARNING WARNING WARNING WARNING");
  say(report, indent + "Prior df = " + format_I(asked.PDF(k), 2) + " <= dim + 1 -> Flat prior assumed");
}

void read_df(const model_records& m, directives& asked, free_reader& lines, reporting& report) {
  allocate(report, asked.PDF, "PDF", "ZEPH", m.nramat + 1);
  allocate(report, asked.DDF, "DDF", "ZEPH", m.nramat + 1);
  set_data_df(m, asked, report);
  if (samples_matrices(asked.analysis_type)) {
    say(report);
    say(report, "   Degrees of freedom        ");
    say(report, column_line().A("Effect     Prior     Data     ", 60).str()); // above its columns
  }
  for (std::int32_t k = 1; k <= m.nramat + 1; ++k) {
    std::int32_t number = 0;
    if (read_integers(lines, {&number, &asked.PDF(k)}) != 0) {
      say(report, line_error);
      say(report, "         line should contain random factor no. and prior degrees of freedom");
      say(report, free_row().text("         for random factor no.").i(k).str());
      QVA_LOG(report);
    }
    if (number != k) {
      say(report, free_row().text("Missing prior df for ").i(k).i(number).str());
      zeph_terminates(report);
    }
    if (asked.PDF(k) > largest_prior_df)
      illegal_input(report, directive_file_name(m, report), "PDF", {k}, std::to_string(asked.PDF(k)),
                    fmt::format("at most {}", largest_prior_df));
    if (samples_matrices(asked.analysis_type)) echo_df(asked, k, m.RMAT(k).n_rc, report);
  }
}

void read_proposal_real(free_reader& lines, double& value, std::string_view echo, std::string_view wanted,
                        reporting& report) {
  if (read_real(lines, value) != 0) {
    say(report, line_error);
    say(report, wanted);
    QVA_LOG(report);
  }
  say_real(report, echo, value);
}

// Values that a file without these lines leaves: the shape of the proposal is
// then defined for every dimension.
void set_proposal_defaults(directives& asked) {
  asked.prodf = 10;
  asked.prop_var = 1.0;
  asked.conv_coef = 1.0;
}

void read_proposal_values(directives& asked, std::int32_t analysis_number, free_reader& lines,
                          reporting& report) {
  const int code = read_integers(lines, {&asked.prodf});
  if (code == end_of_file) {
    set_proposal_defaults(asked);
    return;
  }
  if (code != 0) {
    say(report, line_error);
    say(report, free_row().text("iostat = ").i(code).text(" prodf : ").i(asked.prodf).str());
    say(report, "         line should contain DF for proposal distribution");
    QVA_LOG(report);
  }
  say_count(report, "DF for proposal distribution ......................", asked.prodf);
  read_proposal_real(lines, asked.prop_var, "Variance of proposal distribution .................",
                     "         line should contain Variance of proposal distribution", report);
  read_proposal_real(lines, asked.conv_coef, "Conversion coefficient for co-variances ...........",
                     "         line should contain Conversion coefficient for co-variances", report);
  if (analysis_number >= 0 && takes_proposal_values(asked.analysis_type)) return;
  say(report);
  say(report, free_row().text("ERROR - Illegal value for type of analysis: ").i(analysis_number).str());
  say(report, "        Legal value are: 0, 1, 2 and 3");
  QVA_LOG(report);
}

// Censored traits: false when the file ended.
bool read_censored(const model_records& m, directives& asked, free_reader& lines, reporting& report) {
  int code = read_integers(lines, {&asked.ncens});
  if (code == end_of_file) return false;
  if (code != 0) fail_line(report);
  say(report);
  say_count(report, "No of Right cencored traits .......................", asked.ncens);
  if (asked.ncens <= 0) return true;
  if (asked.ncens > m.nt)
    illegal_input(report, directive_file_name(m, report), "ncens", {}, std::to_string(asked.ncens),
                  "at most the number of traits");
  std::vector<std::int32_t> traits;
  lines.begin_read();
  code = read_list(lines, traits, asked.ncens);
  if (code == end_of_file) return false;
  if (code != 0) fail_line(report);
  lines.end_read();
  asked.cens_trait = std::move(traits);
  for (std::size_t i = 0; i < asked.cens_trait.size(); ++i)
    say(report, column_line().X(30).I(static_cast<std::int64_t>(i) + 1, 3).I(asked.cens_trait[i], 11).str());
  return true;
}

// One class-effect solution used as covariate: 0, or the code of its first read.
int read_fetocv(const model_records& m, free_reader& lines, fetocv_entry& entry, reporting& report) {
  if (const int code = read_integers(lines, {&entry.trait, &entry.effect, &entry.ncv}); code != 0)
    return code;
  if (entry.ncv > most_covariates)
    illegal_input(report, directive_file_name(m, report), "ncv", {}, std::to_string(entry.ncv),
                  "at most 1000000");
  lines.begin_read();
  if (read_list(lines, entry.CVNO, entry.ncv) != 0 || read_list(lines, entry.ACVNO, entry.ncv) != 0)
    fail_line(report);
  lines.end_read();
  return 0;
}

// Class-effect solutions used as covariates: false when the file ended.
bool read_covariates(const model_records& m, directives& asked, free_reader& lines, reporting& report) {
  int code = read_integers(lines, {&asked.nfeto});
  if (code == end_of_file) return false;
  if (code != 0) fail_line(report);
  say(report);
  say_count(report, "No of Class-effect solutions used as covariates ...", asked.nfeto);
  for (std::int32_t i = 1; i <= asked.nfeto; ++i) {
    fetocv_entry entry;
    code = read_fetocv(m, lines, entry, report);
    if (code == end_of_file) {
      // kept out of the second form of the scan, which needs the whole list
      asked.nfeto = 0;
      asked.FETOCV.clear();
      return false;
    }
    if (code != 0) fail_line(report);
    asked.FETOCV.push_back(std::move(entry));
  }
  if (asked.nfeto > 0 && read_integers(lines, {&asked.stdef}) != 0) fail_line(report);
  return true;
}

} // namespace

std::string directive_path(const reporting& report, const std::string& name) {
  return !name.empty() && name.front() == '/' ? name : path_of(report, name);
}

std::string directive_file_name(const model_records& m, const reporting& report) {
  std::vector<std::string> candidates;
  for (const std::string& text : m.mi_text)
    if (std::string name = without_blanks(text); !name.empty()) candidates.push_back(std::move(name));
  // MODINF holds several texts: the file is the first whose first line is two integers, else the first that
  // opens
  if (candidates.empty()) return "DUMMY";
  if (candidates.size() == 1) return candidates.front();
  for (const std::string& name : candidates)
    if (begins_with_two_integers(directive_path(report, name))) return name;
  for (const std::string& name : candidates)
    if (readable(directive_path(report, name))) return name;
  for (const std::string& name : candidates)
    if (name == "DUMMY") return name;
  return candidates.front();
}

void open_directives(const model_records& m, free_reader& lines, reporting& report) {
  const std::string name = directive_file_name(m, report);
  if (name == "DUMMY") {
    say(report);
    say(report, "ERROR - File with additional input to ZEPH not found");
    zeph_terminates(report);
  }
  if (!lines.open(directive_path(report, name))) fail_numbered_line(report, 1);
}

void read_directives(const model_records& m, directives& asked, random_sources& sources, free_reader& lines,
                     reporting& report) {
  std::int32_t number = 0;
  read_first_lines(m, asked, number, sources, lines, report);
  read_df(m, asked, lines, report);
  read_proposal_values(asked, number, lines, report);
}

bool read_covariate_directives(const model_records& m, directives& asked, free_reader& lines,
                               reporting& report) {
  return read_censored(m, asked, lines, report) && read_covariates(m, asked, lines, report);
}

void read_restriction_directive(const model_records& m, directives& asked, sampler_store& s,
                                free_reader& lines, reporting& report) {
  const int code = read_integers(lines, {&asked.irest_flag});
  if (code == end_of_file) return;
  if (code != 0) fail_line(report);
  if (asked.irest_flag != 0) impose_restrictions(m, asked, s, report);
}

} // namespace zeph
