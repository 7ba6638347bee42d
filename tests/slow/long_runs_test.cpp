// Twenty thousand rounds: the program's memory and handles stay, its listing stays
// short, and the residuals that the fast body carries along stay those of the solutions.
#include "faults/child_program.h"
#include "gibbs/scan/gibscan.h"
#include "gibbs/scan/residual_body.h"
#include "gibbs/scan/scan_groups.h"
#include "slow/simulated_kinds.h"

#include <chrono>
#include <thread>

namespace {

using namespace zeph_test;

constexpr int rounds = 20000;

void note_long_run(const std::string& model, const std::string& quantity, double value) {
  const char* file = std::getenv("ZEPH_FIGURES");
  if (file == nullptr) return;
  char row[200];
  std::snprintf(row, sizeof row, "| long run | %s | %s | %.3g |\n", model.c_str(), quantity.c_str(), value);
  std::ofstream(file, std::ios::app) << row;
}

// Two Gaussian traits, one missing in a fifth of the records, weights, two residual groups.
simulated_set gaussian_set() {
  kind_simulator s(11);
  const series u = s.effects(groups_of_set, 1.0);
  std::string data = "g,k,h,w,y,x\n";
  int n = 0;
  for_each_record([&](int g, int k) {
    ++n;
    const double e = s.normal(), effect = u[static_cast<std::size_t>(g)];
    data += std::to_string(g) + (k == 0 ? ",a," : ",b,") + (n % 3 == 0 ? "1," : "2,") +
            number_text(0.5 + s.uniform()) + "," + number_text(10.0 + k + effect + 2.0 * e) + "," +
            (n % 5 == 0 ? "NA" : number_text(20.0 - effect + e + s.normal())) + "\n";
  });
  return {
      "[trait.y]\nformula = \"1 + k + (1 | g)\"\nweight = \"w\"\n[trait.x]\nformula = \"1 + k + (1 | g)\"\n"
      "[residual]\nstart = [[4, 1], [1, 2]]\ngroups = \"h\"\n[factor.g]\nstart = [[1, -0.5], [-0.5, 1]]\n",
      data};
}

// The ordered trait of four categories and a binary one on the same records.
simulated_set ordered_and_binary_set() {
  const simulated_set ordered = ordered_set(12);
  kind_simulator s(13);
  std::istringstream lines(ordered.data);
  std::string line, data = "g,k,y,b\n";
  std::getline(lines, line);
  for (int n = 0; std::getline(lines, line); ++n) data += line + (s.normal() + 0.2 > 0.0 ? ",1\n" : ",0\n");
  return {"[trait.y]\nkind = \"ordered\"\ncategories = [\"none\", \"some\", \"more\", \"much\"]\n"
          "formula = \"1 + k + (1 | g)\"\n[trait.b]\nkind = \"binary\"\nformula = \"1 + k + (1 | g)\"\n"
          "[residual]\nstart = [[0.5, 0], [0, 1]]\n[factor.g]\nstart = [[0.1, 0], [0, 0.1]]\n",
          data};
}

struct long_model {
  std::string name;
  simulated_set (*set)();
};

void PrintTo(const long_model& m, std::ostream* out) { *out << m.name; }

class a_long_run : public testing::TestWithParam<long_model> {
protected:
  // The work directory of the model, for this many rounds.
  void prepare() {
    const simulated_set set = GetParam().set();
    place.write("data.csv", set.data);
    place.write("model.toml", "[data]\nfile = \"data.csv\"\n" + set.toml +
                                  "[keep]\nsolutions = true\nresiduals = true\n[run]\nanalysis = \"gibbs\"\n"
                                  "sampler = \"classic\"\nburnin = 100\nrounds = " +
                                  std::to_string(rounds) + "\ninterval = 100\nseeds = [5, 6]\n");
    const child_end end = run_child({program("zeph-prepare"), "model.toml", "--into", "work"}, place.path());
    ASSERT_EQ(end.code, 0) << end.all();
  }
  scratch_directory place;
};

// ---- memory and handles, of the program as it runs

struct process_size {
  long round = 0, resident_kB = 0, handles = 0;
};

// The round in the file status; 0 before the first.
long round_in(const std::string& status) {
  const std::string start = "Current round is";
  return status.starts_with(start) ? std::atol(status.c_str() + start.size()) : 0;
}

process_size size_of(pid_t id, const std::string& work) {
  process_size now;
  const std::string process = "/proc/" + std::to_string(id) + "/";
  std::ifstream table(process + "status");
  for (std::string line; std::getline(table, line);)
    if (line.starts_with("VmRSS:")) now.resident_kB = std::atol(line.c_str() + 6);
  std::error_code ended;
  for (std::filesystem::directory_iterator it(process + "fd", ended), end; !ended && it != end;
       it.increment(ended))
    ++now.handles;
  now.round = round_in(bytes_of(work + "status"));
  return now;
}

TEST_P(a_long_run, keeps_its_memory_its_handles_and_a_short_listing) {
  prepare();
  const std::string work = place / "work/";
  const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  const started_child child = start_child({program("ZEPH")}, work, {}, place / "listing", nowhere);
  ::close(nowhere);
  process_size first, last;
  for (int i = 0; i < 100000; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const process_size now = size_of(child.id, work);
    if (now.resident_kB == 0) break; // it has ended
    if (now.round < 1000 || now.round > rounds - 100) continue;
    if (first.round == 0) first = now;
    last.round = now.round;
    last.resident_kB = std::max(last.resident_kB, now.resident_kB);
    last.handles = std::max(last.handles, now.handles - 1); // status may be open at the moment
  }
  ASSERT_EQ(child.wait(), 0) << place.read("listing");
  EXPECT_LT(first.round, rounds / 4);
  EXPECT_GT(last.round, rounds / 4 * 3);
  EXPECT_LE(last.resident_kB - first.resident_kB, 256);
  EXPECT_LE(last.handles, first.handles);
  const std::string listing = place.read("listing");
  EXPECT_LT(std::count(listing.begin(), listing.end(), '\n'), 300);
  note_long_run(GetParam().name, "growth of memory, kB",
                static_cast<double>(last.resident_kB - first.resident_kB));
  note_long_run(GetParam().name, "growth of handles",
                static_cast<double>(std::max(last.handles - first.handles, 0L)));
  note_long_run(GetParam().name, "lines of the listing",
                static_cast<double>(std::count(listing.begin(), listing.end(), '\n')));
}

// ---- residuals

// The largest difference of E and y - Z b, b without the change that E still lacks, over
// the largest |y|.
double drift_of(const zeph::run& r, bool lacks_change) {
  const zeph::design_store& d = r.design;
  const zeph::residual_form& form = r.work.fast;
  double largest = 0.0, scale = 1.0;
  for (std::int32_t rec = 1; rec <= d.nobs; ++rec)
    for (std::int32_t t = 1; t <= r.model.nt; ++t) {
      long double e = static_cast<long double>(d.Y_M(t, rec));
      scale = std::max(scale, std::fabs(static_cast<double>(e)));
      for (std::int32_t i = 1; i <= d.M_M(rec); ++i) {
        if (d.XD2_M(i, rec) != t) continue;
        double b = r.sampler.sol(d.XD1_M(i, rec));
        if (lacks_change && d.XD3_M(i, rec) == form.pending)
          b -= form.change(d.XD1_M(i, rec) - r.layout.group(form.pending).base);
        e -= static_cast<long double>(d.ZD_M(i, rec)) * static_cast<long double>(b);
      }
      largest = std::max(largest, std::fabs(static_cast<double>(e) - form.E(rec, t)));
    }
  return largest / scale;
}

// The fast body, its residuals held against fresh ones whenever a group was entered.
struct checked_body {
  const zeph::run& r;
  double drift = 0.0;
  zeph::residual_body body = {};

  void enter_group(zeph::scan_records& s, const zeph::directives& asked, const zeph::round_state& state,
                   zeph::scan_stage stage, std::int32_t g) {
    body.enter_group(s, asked, state, stage, g);
    drift = std::max(drift, drift_of(r, true));
  }
  void solve_group(zeph::scan_records& s, const zeph::directives& asked, zeph::round_state& state,
                   zeph::chain_counts& counts, zeph::scan_stage stage, std::int32_t g,
                   zeph::solver_sums& sums) const {
    body.solve_group(s, asked, state, counts, stage, g, sums);
  }
  void sum_factor(zeph::scan_records& s, const zeph::directives& asked, std::int32_t g) const {
    body.sum_factor(s, asked, g);
  }
  void take_factor(zeph::scan_records& s, const zeph::round_state& state, std::int32_t g) const {
    body.take_factor(s, state, g);
  }
  void restrict_group(zeph::scan_records& s, std::int32_t g) const { body.restrict_group(s, g); }
  void leave_group(zeph::scan_records& s, std::int32_t g) const { body.leave_group(s, g); }
};

TEST_P(a_long_run, keeps_residuals_that_are_those_of_its_solutions) {
  prepare();
  std::ofstream listing("/dev/null");
  zeph::run r(listing, place / "work/");
  zeph::start_run(r);
  zeph::scan_records records = zeph::records_of(r);
  double within = 0.0, between = 0.0;
  for (r.state.iround = 1; r.state.iround <= rounds; ++r.state.iround) {
    zeph::GIBSCAN(records, r.asked, r.state, r.counts, r.files);
    if (r.state.iround % 1000 != 0) continue;
    ASSERT_EQ(r.work.body, zeph::scan_body::fast);
    if (r.work.fast.valid_round == r.state.iround + 1) between = std::max(between, drift_of(r, false));
    checked_body body{r};
    zeph::solver_sums sums;
    body.body.begin_round(records, r.asked, r.state, zeph::scan_stage::all);
    zeph::scan_groups(body, records, r.asked, r.state, r.counts, zeph::scan_stage::all, sums);
    within = std::max(within, body.drift);
  }
  EXPECT_LT(within, 1e-9);
  EXPECT_LT(between, 1e-9);
  EXPECT_GT(within, 0.0);
  note_long_run(GetParam().name, "drift of residuals within a round", within);
  note_long_run(GetParam().name, "drift of residuals between rounds", between);
}

INSTANTIATE_TEST_SUITE_P(of, a_long_run,
                         testing::Values(long_model{"gaussian", gaussian_set},
                                         long_model{"ordered_and_binary", ordered_and_binary_set},
                                         long_model{"mixture", [] { return mixture_set(14); }}),
                         [](const auto& info) { return info.param.name; });

} // namespace
