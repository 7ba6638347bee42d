// A made-up farm for the tests of whole models: a pedigree of five generations
// with inbreeding, and one CSV with more columns than any model needs. Seeded,
// and always the same.
#pragma once

#include "support/scratch_directory.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace zeph_test {

// Columns of data.csv (NA is missing; the columns whose name ends in _m have
// missing cells, the others none):
//   animal, sire, dam, sire_m, dam_m   numbers 1..40, in pedigree.csv
//   name        "N" and a letter and the animal, in named.csv
//   sex M F (sex_m), herd 1..4, year 1998..2000, season, breed 1..3
//   farm        codes far beyond the number of farms, out of order
//   litter, mate1, mate2               numbers
//   stage early mid late (stage_m)     residual groups
//   age (age_m), dim                   covariables; dim in 5..305
//   w1, w2 (w2_m)                      weights; w2_m has zeros too
//   y1, y2, y3, y1_m, y2_m, y3_m       observations
// Pedigrees: pedigree.csv, named.csv (same animals by name), grouped.csv (the
// unknown parents are groups G1 to G3).
struct made_farm {
  explicit made_farm(unsigned seed) : draw(seed) {
    make_pedigree();
    data = "animal,sire,dam,sire_m,dam_m,name,sex,sex_m,herd,year,season,breed,farm,litter,mate1,mate2,stage,"
           "stage_m,age,age_m,dim,w1,w2,w2_m,y1,y2,y3,y1_m,y2_m,y3_m\n";
    for (int a = founders + 1; a <= animals; ++a)
      for (int k = 0, n = 1 + below(2); k < n; ++k) data += record(a);
  }

  std::string data, pedigree = "animal,sire,dam\n", named = "animal,sire,dam\n",
                    grouped = "animal,sire,dam\n";

  void write_into(const scratch_directory& directory) const {
    directory.write("data.csv", data);
    directory.write("pedigree.csv", pedigree);
    directory.write("named.csv", named);
    directory.write("grouped.csv", grouped);
  }

private:
  static constexpr int founders = 8, animals = 40;
  std::mt19937 draw;
  std::vector<int> sire, dam;
  std::vector<double> value; // of the animal, so that the data hang together

  int below(int n) { return static_cast<int>(draw() % static_cast<unsigned>(n)); }
  double bell() { // sum of uniforms: mean 0, variance 1
    double sum = -6.0;
    for (int i = 0; i < 12; ++i) sum += static_cast<double>(draw()) / 4294967296.0;
    return sum;
  }
  static std::string name_of(int animal) {
    return animal == 0 ? "0"
                       : std::string("N") + static_cast<char>('a' + animal * 7 % 26) + std::to_string(animal);
  }

  // Sires are odd and dams even; parents are taken from the ten animals before,
  // so that sibs mate. Progeny may come before their parents in the file.
  void make_pedigree() {
    sire.assign(animals + 1, 0);
    dam.assign(animals + 1, 0);
    value.assign(animals + 1, 0.0);
    std::vector<std::string> lines, named_lines, grouped_lines;
    for (int a = 1; a <= animals; ++a) {
      if (a > founders) {
        const int oldest = std::max(1, a - 10);
        sire[at(a)] = (oldest + below(a - oldest)) | 1;
        if (sire[at(a)] >= a) sire[at(a)] -= 2;
        dam[at(a)] = (oldest + 1 + below(a - oldest - 1)) & ~1;
        if (a % 9 == 0) dam[at(a)] = 0;
      }
      value[at(a)] = 0.5 * (value[at(sire[at(a)])] + value[at(dam[at(a)])]) + bell();
      const std::string s = std::to_string(sire[at(a)]), d = std::to_string(dam[at(a)]);
      const auto group = [&](int parent, int g) {
        return parent == 0 ? "G" + std::to_string(g) : std::to_string(parent);
      };
      lines.push_back(std::to_string(a) + "," + s + "," + d);
      named_lines.push_back(name_of(a) + "," + name_of(sire[at(a)]) + "," + name_of(dam[at(a)]));
      grouped_lines.push_back(std::to_string(a) + "," + group(sire[at(a)], 1 + a % 2) + "," +
                              group(dam[at(a)], a > founders ? 3 : 1 + a % 3));
    }
    std::swap(lines[4], lines[30]);
    std::swap(named_lines[3], named_lines[27]);
    for (const auto& line : lines) pedigree += line + "\n";
    for (const auto& line : named_lines) named += line + "\n";
    for (const auto& line : grouped_lines) grouped += line + "\n";
  }
  static std::size_t at(int i) { return static_cast<std::size_t>(i); }

  static std::string with_decimals(double x, int n) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", n, x);
    return text;
  }
  std::string maybe(const std::string& cell, int one_in) { return below(one_in) == 0 ? "NA" : cell; }

  std::string record(int a) {
    static const char* const seasons[] = {"spring", "autumn", "winter"};
    static const char* const stages[] = {"early", "mid", "late"};
    static const char* const farms[] = {"1200000001", "7", "300", "42"};
    const std::string id = std::to_string(a), s = std::to_string(sire[at(a)]);
    const std::string d = dam[at(a)] == 0 ? "2" : std::to_string(dam[at(a)]);
    const int sex = below(2), herd = below(4), year = below(3), season = below(3), stage = below(3);
    const double age = 20.0 + 0.5 * below(60), dim = 5.0 + below(301);
    const double common = value[at(a)];
    const double y1 = 52.0 + 4.0 * sex + 2.0 * herd + 0.4 * (age - 30.0) + 2.0 * common + 3.0 * bell();
    const double y2 = 8.0 - 1.0 * sex + 0.7 * year + 0.01 * dim + 0.8 * common + bell();
    const double y3 = 310.0 + 9.0 * season + 5.0 * common + 12.0 * bell();
    const std::string c1 = with_decimals(y1, 2), c2 = with_decimals(y2, 3), c3 = with_decimals(y3, 1);
    const std::string w1 = with_decimals(0.4 + 0.1 * below(20), 1),
                      w2 = with_decimals(0.5 + 0.25 * below(9), 2);
    const std::string sex_code = sex == 0 ? "M" : "F", stage_code = stages[stage],
                      age_text = with_decimals(age, 1);
    std::string line =
        id + "," + s + "," + d + "," + maybe(s, 6) + "," + maybe(d, 6) + "," + name_of(a) + ",";
    line += sex_code + "," + maybe(sex_code, 8) + "," + std::to_string(herd + 1) + "," +
            std::to_string(1998 + year) + ",";
    line += std::string(seasons[season]) + "," + std::to_string(1 + below(3)) + "," + farms[below(4)] + ",";
    line += std::to_string(1 + below(9)) + "," + std::to_string(9 + (a + 3) % 32) + "," +
            std::to_string(9 + (a + 17) % 32) + ",";
    line += stage_code + "," + maybe(stage_code, 9) + "," + age_text + "," + maybe(age_text, 7) + "," +
            with_decimals(dim, 0) + ",";
    line +=
        w1 + "," + w2 + "," + (below(10) == 0 ? "0" : maybe(w2, 8)) + "," + c1 + "," + c2 + "," + c3 + ",";
    return line + maybe(c1, 4) + "," + maybe(c2, 3) + "," + maybe(c3, 3) + "\n";
  }
};

} // namespace zeph_test
