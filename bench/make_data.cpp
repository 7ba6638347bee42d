// Seeded data of any size: a pedigree over generations, records of one or more
// traits with herd-year, sex and age effects, and the true breeding values.
//
// Writes into a directory: pedigree.csv (animal, sire, dam), data.csv (animal,
// herdyear, sex, age, litter when there are litters, y1..yn), truth.csv (animal,
// true breeding value of each trait) and model.toml, the description that fits
// them. With test days: one trait milk on days 5 to 305, breeding values and
// permanent environment as curves of three normalised Legendre coefficients. With
// periods: a disease by animal and period, which some of the animals can't get.
//
// Breeding values: founders N(0, G); others half the parents' sum plus a
// Mendelian deviate N(0, (1 - (F_s + F_d)/2) G / 2), inbreeding left out, since
// mates are drawn from different halves of a generation.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

struct sizes {
  std::int64_t animals = 6000, records = 5000;
  int traits = 2, generations = 5;
  std::int64_t herds = 40;
  std::uint64_t seed = 20;
  std::int64_t matings = 0, sires = 25; // pairs of a generation that have progeny; 0: every progeny its own
  bool age = true;                      // a covariable, and a mean
  int class_effects = 0;                // further ones of 50 levels each, for all traits
  int categories = 0;                   // of the last trait; 2: binary, 0: as it is
  std::int64_t litters = 0;             // levels of an identity factor of all traits; 0: none
  bool testdays = false;                // test-day records of one trait with curves in place of values
  bool animal_model = true;             // the model has a pedigree factor of the animals
  double missing = 0.0;                 // share of missing observations, traits 2 and up
  double censored = 0.0;                // share of records that end the last trait at a limit below its value
  bool maternal = false;                // direct and maternal effects of one pedigree factor on one trait
  bool mixture = false;                 // a third of the records of the only trait is shifted
  std::int64_t periods = 0;             // of each animal, in the data of a cure model; 0: another model
  int values() const { return maternal ? 2 : traits; } // of each animal
  std::string analysis = "solve", sampler;             // of the model description; sampler: none named
  std::int64_t rounds = 2000, burnin = 0, interval = 1;
  std::string into = ".";
};

constexpr double genetic_variance = 40.0, residual_variance = 60.0;
constexpr double litter_variance = 15.0;
constexpr double maternal_scale = 0.8; // of the second value of a dam
constexpr double mixture_shift = 40.0;
constexpr std::array<double, 3> curve_variances = {10.0, 3.0, 1.0}; // of the Legendre coefficients
constexpr double first_day = 5.0, last_day = 305.0;
constexpr double genetic_correlation = 0.5, residual_correlation = 0.2;

struct normal_source {
  std::mt19937_64 engine;
  std::normal_distribution<double> standard;
  explicit normal_source(std::uint64_t seed) : engine(seed) {}
  double normal() { return standard(engine); }
  std::int64_t below(std::int64_t n) {
    return static_cast<std::int64_t>(engine() % static_cast<std::uint64_t>(n));
  }
  double uniform() { return static_cast<double>(engine() >> 11) * 0x1.0p-53; }
};

// n equally correlated deviates of the given variance.
void draw(normal_source& source, double variance, double correlation, double* x, int n) {
  const double shared = std::sqrt(variance * correlation) * source.normal();
  const double own = std::sqrt(variance * (1 - correlation));
  for (int t = 0; t < n; ++t) x[t] = shared + own * source.normal();
}

struct closing {
  void operator()(std::FILE* f) const { std::fclose(f); }
};
using output = std::unique_ptr<std::FILE, closing>;

output create(const sizes& s, const char* name) {
  output file(std::fopen((std::filesystem::path(s.into) / name).c_str(), "w"));
  if (!file) throw std::runtime_error(fmt::format("{}/{} can't be written", s.into, name));
  return file;
}

struct pedigree {
  std::vector<std::int64_t> sire, dam; // 0: unknown; animals count from 1
  std::vector<double> value;           // traits x animals
};

// Equal generations; parents come from the generation before: one sire to about
// ten dams, or a given number of sires and of pairs.
pedigree make_pedigree(const sizes& s, normal_source& source) {
  pedigree p;
  const auto n = static_cast<std::size_t>(s.animals);
  const auto traits = static_cast<std::size_t>(s.values());
  p.sire.resize(n);
  p.dam.resize(n);
  p.value.resize(n * traits);
  const std::int64_t block = (s.animals + s.generations - 1) / s.generations;
  for (std::size_t i = 0; i < n; ++i) {
    const std::int64_t before = static_cast<std::int64_t>(i) / block - 1;
    double* own = &p.value[i * traits];
    if (before < 0) {
      draw(source, genetic_variance, genetic_correlation, own, s.values());
      continue;
    }
    const std::int64_t first = before * block;
    if (s.matings > 0) {
      const std::int64_t pair = source.below(s.matings), females = block - s.sires;
      p.sire[i] = first + pair % s.sires + 1;
      p.dam[i] = first + s.sires + pair % females + 1;
    } else {
      const std::int64_t males = block / 20 + 1;
      p.sire[i] = first + source.below(males) + 1;
      p.dam[i] = first + males + source.below(block - males) + 1;
    }
    draw(source, genetic_variance / 2, genetic_correlation, own, s.values());
    for (std::size_t t = 0; t < traits; ++t)
      own[t] += 0.5 * (p.value[static_cast<std::size_t>(p.sire[i] - 1) * traits + t] +
                       p.value[static_cast<std::size_t>(p.dam[i] - 1) * traits + t]);
  }
  return p;
}

void write_pedigree(const sizes& s, const pedigree& p) {
  const output file = create(s, "pedigree.csv"), truth = create(s, "truth.csv");
  fmt::print(file.get(), "animal,sire,dam\n");
  fmt::print(truth.get(), "animal");
  for (int t = 1; t <= s.values(); ++t) fmt::print(truth.get(), ",a{}", t);
  fmt::print(truth.get(), "\n");
  for (std::size_t i = 0; i < p.sire.size(); ++i) {
    fmt::print(file.get(), "{},{},{}\n", i + 1, p.sire[i], p.dam[i]);
    fmt::print(truth.get(), "{}", i + 1);
    for (int t = 0; t < s.values(); ++t)
      fmt::print(truth.get(), ",{:.5f}",
                 p.value[i * static_cast<std::size_t>(s.values()) + static_cast<std::size_t>(t)]);
    fmt::print(truth.get(), "\n");
  }
}

// One curve: three independent coefficients.
void draw_curve(normal_source& source, double share, double* x) {
  for (std::size_t c = 0; c < curve_variances.size(); ++c)
    x[c] = std::sqrt(share * curve_variances[c]) * source.normal();
}

// Value of a curve at t in [-1, 1] with normalised Legendre polynomials.
double curve_at(const double* x, double t) {
  return x[0] * std::sqrt(0.5) + x[1] * std::sqrt(1.5) * t + x[2] * std::sqrt(2.5) * (1.5 * t * t - 0.5);
}

// Test-day records: the animals in turn, each with a curve of breeding values
// (parents' mean plus Mendelian deviate) and one of permanent environment.
void write_testdays(const sizes& s, const pedigree& p, normal_source& source) {
  const output file = create(s, "data.csv");
  fmt::print(file.get(), "cow,herdyear,dim,milk\n");
  const auto n = static_cast<std::size_t>(s.animals);
  std::vector<double> genetic(3 * n), environment(3 * n), herd(static_cast<std::size_t>(s.herds));
  for (double& effect : herd) effect = 2.0 * source.normal();
  for (std::size_t i = 0; i < n; ++i) {
    const bool founder = p.sire[i] == 0;
    draw_curve(source, founder ? 1.0 : 0.5, &genetic[3 * i]);
    draw_curve(source, 0.5, &environment[3 * i]);
    for (std::size_t c = 0; c < 3 && !founder; ++c)
      genetic[3 * i + c] += 0.5 * (genetic[3 * static_cast<std::size_t>(p.sire[i] - 1) + c] +
                                   genetic[3 * static_cast<std::size_t>(p.dam[i] - 1) + c]);
  }
  for (std::int64_t r = 0; r < s.records; ++r) {
    const auto animal = static_cast<std::size_t>(r % s.animals);
    const std::int64_t herdyear = source.below(s.herds);
    const double day = first_day + (last_day - first_day) * source.uniform();
    const double t = 2.0 * (day - first_day) / (last_day - first_day) - 1.0;
    const double y = 25.0 + herd[static_cast<std::size_t>(herdyear)] - 3.0 * t +
                     curve_at(&genetic[3 * animal], t) + curve_at(&environment[3 * animal], t) +
                     2.0 * source.normal();
    fmt::print(file.get(), "{},{},{:.2f},{:.3f}\n", animal + 1, herdyear + 1, day, y);
  }
}

// A disease by animal and period until it comes; a third of the animals can't get it.
void write_periods(const sizes& s, const pedigree& p, normal_source& source) {
  const output file = create(s, "data.csv");
  fmt::print(file.get(), "animal,period,herdyear,ill\n");
  for (std::int64_t r = 0; r < s.records; ++r) {
    const auto animal = static_cast<std::size_t>(s.animals - 1 - r % s.animals);
    const std::int64_t herdyear = source.below(s.herds);
    const bool can_fall_ill = source.uniform() < 2.0 / 3.0;
    bool ill = false;
    for (std::int64_t period = 1; period <= s.periods && !ill; ++period) {
      const double liability = p.value[animal] / std::sqrt(2 * genetic_variance) - 0.5 + source.normal();
      ill = can_fall_ill && liability > 0;
      fmt::print(file.get(), "{},{},{},{}\n", animal + 1, period, herdyear + 1, ill ? 1 : 0);
    }
  }
}

// Categories of equal width over most of the last trait's values.
int category(const sizes& s, double y) {
  const double center = 200.0 + 10.0 * (s.traits - 1) + 2.0 + 0.7 * 25.0;
  const double width = 12.0, lowest = center - width * 0.5 * (s.categories - 2);
  const int k = 1 + static_cast<int>(std::floor((y - lowest) / width)) + 1;
  return std::clamp(k, 1, s.categories) - (s.categories == 2 ? 1 : 0);
}

// The dam's effect on her progeny; the shift of a record of the second distribution.
double further_parts(const sizes& s, const pedigree& p, std::int64_t dam, normal_source& source) {
  double sum = 0;
  if (s.maternal && dam > 0) sum += maternal_scale * p.value[static_cast<std::size_t>(2 * dam - 1)];
  if (s.mixture && source.below(3) == 0) sum += mixture_shift;
  return sum;
}

// Records go to the youngest animals, and again when there are more of them.
void write_records(const sizes& s, const pedigree& p, normal_source& source) {
  const output file = create(s, "data.csv");
  fmt::print(file.get(), "animal,{}herdyear,sex,age{}{}", s.maternal ? "dam," : "",
             s.litters > 0 ? ",litter" : "", s.censored > 0 ? ",reached" : "");
  for (int c = 1; c <= s.class_effects; ++c) fmt::print(file.get(), ",c{}", c);
  for (int t = 1; t <= s.traits; ++t) fmt::print(file.get(), ",y{}", t);
  fmt::print(file.get(), "\n");
  std::vector<double> herd(static_cast<std::size_t>(s.herds * s.traits));
  for (double& effect : herd) effect = 5.0 * source.normal();
  std::vector<double> common(static_cast<std::size_t>(s.litters * s.traits));
  for (std::int64_t l = 0; l < s.litters; ++l)
    draw(source, litter_variance, genetic_correlation, &common[static_cast<std::size_t>(l * s.traits)],
         s.traits);
  std::vector<double> residual(static_cast<std::size_t>(s.traits));
  for (std::int64_t r = 0; r < s.records; ++r) {
    const std::int64_t animal = s.animals - 1 - r % s.animals, herdyear = source.below(s.herds),
                       sex = animal % 2;
    const double age = 20.0 + 10.0 * source.uniform();
    const std::int64_t litter = s.litters > 0 ? source.below(s.litters) : 0;
    draw(source, residual_variance, residual_correlation, residual.data(), s.traits);
    const std::int64_t dam = p.dam[static_cast<std::size_t>(animal)];
    fmt::print(file.get(), "{},", animal + 1);
    if (s.maternal) fmt::print(file.get(), "{},", dam > 0 ? fmt::format("{}", dam) : "NA");
    fmt::print(file.get(), "{},{},{:.3f}", herdyear + 1, sex == 0 ? "F" : "M", age);
    if (s.litters > 0) fmt::print(file.get(), ",{}", litter + 1);
    const bool cut = s.censored > 0 && source.uniform() < s.censored;
    if (s.censored > 0) fmt::print(file.get(), ",{}", cut ? 0 : 1);
    for (int c = 0; c < s.class_effects; ++c) fmt::print(file.get(), ",{}", source.below(50) + 1);
    for (int t = 0; t < s.traits; ++t) {
      const double y = 200.0 + 10.0 * t + herd[static_cast<std::size_t>(herdyear * s.traits + t)] +
                       4.0 * static_cast<double>(sex) + 0.7 * age +
                       (s.litters > 0 ? common[static_cast<std::size_t>(litter * s.traits + t)] : 0.0) +
                       p.value[static_cast<std::size_t>(animal * s.values() + t)] +
                       residual[static_cast<std::size_t>(t)] + further_parts(s, p, dam, source) -
                       (cut && t == s.traits - 1 ? 10.0 * source.uniform() : 0.0);
      if (t > 0 && source.uniform() < s.missing)
        fmt::print(file.get(), ",NA");
      else if (s.categories > 0 && t == s.traits - 1)
        fmt::print(file.get(), ",{}", category(s, y));
      else
        fmt::print(file.get(), ",{:.3f}", y);
    }
    fmt::print(file.get(), "\n");
  }
}

// last: the variance of the last row, when it is another
std::string square(int n, double variance, double correlation, double last = 0.0) {
  std::string text = "[";
  const auto deviation = [&](int i) { return std::sqrt(last > 0 && i == n - 1 ? last : variance); };
  for (int i = 0; i < n; ++i) {
    text += i == 0 ? "[" : ",\n         [";
    for (int j = 0; j < n; ++j) {
      const double covariance = deviation(i) * deviation(j) * (i == j ? 1.0 : correlation);
      text += fmt::format("{}{:.6g}", j == 0 ? "" : ", ", covariance);
    }
    text += "]";
  }
  return text + "]";
}

void write_run(std::FILE* file, const sizes& s, const std::string& residual) {
  fmt::print(file,
             "[residual]\nstart = {}\n\n[run]\nanalysis = \"{}\"\nburnin   = {}\nrounds   = {}\n"
             "interval = {}\nseeds    = [1201, 707]\n",
             residual, s.analysis, s.burnin, s.rounds, s.interval);
  if (!s.sampler.empty()) fmt::print(file, "sampler  = \"{}\"\n", s.sampler);
}

void write_maternal_model(std::FILE* file, const sizes& s) {
  fmt::print(file, "order = [\"y1.animal\", \"y1.dam\"]\nstart = [[40, 16], [16, 25.6]]\n\n[trait.y1]\n"
                   "formula = \"herdyear + sex + (1 | animal | animal) + (1 | animal | dam)\"\n\n");
  write_run(file, s, "60.0");
}

void write_mixture_model(std::FILE* file, const sizes& s) {
  fmt::print(file,
             "start = 40.0\n\n[trait.y1]\nformula = \"herdyear + sex + shift(second) + (1 | animal)\"\n\n"
             "[trait.second]\nkind = \"indicator\"\nformula = \"1\"\n"
             "first = {{ upper = 0.3, of = \"y1\" }}\n\n");
  write_run(file, s, "[[60, 0], [0, 1]]");
}

void write_cure_model(std::FILE* file, const sizes& s) {
  fmt::print(file,
             "start = 0.5\n\n[trait.ill]\nkind = \"sequence\"\nsubject = \"animal\"\nposition = \"period\"\n"
             "formula = \"herdyear + (1 | animal)\"\n\n[trait.susceptible]\nkind = \"cured\"\nof = \"ill\"\n"
             "formula = \"1\"\n\n");
  write_run(file, s, "[[1, 0], [0, 1]]");
}

void write_model(const sizes& s) {
  const output file = create(s, "model.toml");
  fmt::print(file.get(),
             "title = \"Made data: {} records, {} animals, seed {}\"\n\n[data]\nfile    = \"data.csv\"\n"
             "missing = [\"NA\"]\n\n",
             s.records, s.animals, s.seed);
  if (s.animal_model) fmt::print(file.get(), "[factor.animal]\npedigree = \"pedigree.csv\"\n");
  if (s.testdays) {
    const std::string curve = "[[10, 0, 0], [0, 3, 0], [0, 0, 1]]",
                      half = "[[5, 0, 0], [0, 1.5, 0], [0, 0, 0.5]]";
    fmt::print(file.get(),
               "start = {}\n\n[factor.pe]\nstart = {}\n\n[covariable.dim]\nrange = [{}, {}]\n\n[trait.milk]\n"
               "formula = \"1 + herdyear + leg(dim, 2) + (leg(dim, 2) | animal | cow) + (leg(dim, 2) | pe | "
               "cow)\"\n\n",
               curve, half, first_day, last_day);
    write_run(file.get(), s, "4.0");
    return;
  }
  if (s.maternal) return write_maternal_model(file.get(), s);
  if (s.mixture) return write_mixture_model(file.get(), s);
  if (s.periods > 0) return write_cure_model(file.get(), s);
  if (s.animal_model)
    fmt::print(file.get(), "start = {}\n\n",
               square(s.traits, genetic_variance, genetic_correlation, s.categories == 2 ? 0.5 : 0.0));
  if (s.litters > 0)
    fmt::print(file.get(), "[factor.litter]\nstart = {}\n\n",
               square(s.traits, litter_variance, genetic_correlation));
  std::string further;
  for (int c = 1; c <= s.class_effects; ++c) further += fmt::format(" + c{}", c);
  for (int t = 1; t <= s.traits; ++t) {
    fmt::print(file.get(), "[trait.y{}]\nformula = \"{}{}{}{}\"\n", t,
               s.age ? "1 + herdyear + sex + age" : "herdyear + sex", further,
               s.animal_model ? " + (1 | animal)" : "", s.litters > 0 ? " + (1 | litter)" : "");
    if (s.categories == 2 && t == s.traits) fmt::print(file.get(), "kind = \"binary\"\n");
    if (s.categories > 2 && t == s.traits) fmt::print(file.get(), "kind = \"ordered\"\n");
    if (s.censored > 0 && t == s.traits)
      fmt::print(file.get(), "kind = \"censored\"\nlimits = {{ event = \"reached\" }}\n");
    fmt::print(file.get(), "\n");
  }
  if (s.age) fmt::print(file.get(), "[covariable.age]\ncenter = true\n\n");
  // a binary trait's liability has residual variance 1
  const double last = s.categories == 2 ? 1.0 : 0.0;
  write_run(file.get(), s, square(s.traits, residual_variance, residual_correlation, last));
}

} // namespace

int main(int argc, char** argv) {
  sizes s;
  CLI::App app("zeph-make-data: seeded data of any size for ZEPH");
  app.add_option("--into", s.into, "directory to write into");
  app.add_option("--animals", s.animals, "animals of the pedigree")->check(CLI::Range(100, 100000000));
  app.add_option("--records", s.records, "data records")->check(CLI::Range(1, 100000000));
  app.add_option("--traits", s.traits, "traits")->check(CLI::Range(1, 20));
  app.add_option("--generations", s.generations, "generations")->check(CLI::Range(1, 50));
  app.add_option("--herds", s.herds, "levels of herd-year")->check(CLI::Range(1, 10000000));
  app.add_option("--sires", s.sires, "sires of a generation, with --matings")->check(CLI::Range(1, 1000000));
  app.add_option("--matings", s.matings, "pairs of a generation that have progeny; 0: every progeny its own")
      ->check(CLI::Range(0, 100000000));
  app.add_flag("!--classes-only", s.age, "no covariable in the model");
  app.add_option("--class-effects", s.class_effects, "further class effects of 50 levels each")
      ->check(CLI::Range(0, 50));
  app.add_option("--categories", s.categories,
                 "the last trait in so many categories; 2: 0 and 1; 0: as it is")
      ->check(CLI::IsMember({0, 2, 3, 4, 5, 6, 7, 8, 9}));
  app.add_option("--litters", s.litters, "levels of a further factor without relationship; 0: none")
      ->check(CLI::Range(0, 10000000));
  app.add_flag("--testdays", s.testdays, "test-day records of one trait, curves as effects");
  app.add_flag("!--no-pedigree", s.animal_model, "leave the animals out of the model description");
  app.add_option("--missing", s.missing, "share of missing values, traits 2 and up")
      ->check(CLI::Range(0.0, 0.9));
  app.add_option("--censored", s.censored, "share of values of the last trait that are cut on the right")
      ->check(CLI::Range(0.0, 0.9));
  app.add_flag("--maternal", s.maternal, "direct and maternal effects on one trait");
  app.add_flag("--mixture", s.mixture, "one trait whose records come from two distributions");
  app.add_option("--periods", s.periods, "periods of each animal in a cure model; 0: another model")
      ->check(CLI::Range(0, 1000));
  app.add_option("--analysis", s.analysis, "analysis of the model description");
  app.add_option("--sampler", s.sampler, "sampler of the model description")
      ->check(CLI::IsMember({"exact", "classic"}));
  app.add_option("--burnin", s.burnin, "rounds of burn-in of the model description");
  app.add_option("--rounds", s.rounds, "rounds of the model description");
  app.add_option("--interval", s.interval, "sampling interval of the model description");
  app.add_option("--seed", s.seed, "seed");
  CLI11_PARSE(app, argc, argv);
  try {
    std::filesystem::create_directories(s.into);
    normal_source source(s.seed);
    const pedigree p = make_pedigree(s, source);
    write_pedigree(s, p);
    if (s.testdays)
      write_testdays(s, p, source);
    else if (s.periods > 0)
      write_periods(s, p, source);
    else
      write_records(s, p, source);
    write_model(s);
  } catch (const std::exception& fault) {
    fmt::print(stderr, "zeph-make-data: {}\n", fault.what());
    return 2;
  }
  return 0;
}
