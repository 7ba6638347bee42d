// Ten animals with inbreeding and twenty records, for chains whose posterior
// can be worked out: two traits, two sexes, three pens, two residual groups.
#pragma once

#include "runs/chain_samples.h"
#include "runs/dense_solution.h"

namespace zeph_test {

inline const char* const herd_pedigree =
    "animal,sire,dam\n1,0,0\n2,0,0\n3,1,2\n4,1,0\n5,3,2\n6,3,4\n7,5,4\n8,5,6\n"
    "9,7,6\n10,7,8\n";

// y1_m and y2_m have missing cells; w1 and w2 are weights.
inline const char* const herd_data = "animal,sex,pen,group,w1,w2,y1,y2,y1_m,y2_m\n"
                                     "1,M,1,a,1.0,2.0,12.1,31.0,12.1,31.0\n"
                                     "2,F,2,b,0.5,1.0,9.3,28.5,NA,28.5\n"
                                     "3,M,3,a,2.0,0.8,14.0,33.9,14.0,33.9\n"
                                     "4,F,1,a,1.2,1.0,10.2,30.4,10.2,NA\n"
                                     "5,M,2,b,0.7,1.5,11.8,29.7,11.8,29.7\n"
                                     "6,F,3,a,1.0,1.0,12.6,32.2,NA,32.2\n"
                                     "7,M,1,b,1.5,0.6,13.3,30.1,13.3,30.1\n"
                                     "8,F,2,a,1.0,1.3,8.9,27.8,8.9,27.8\n"
                                     "9,M,3,b,0.9,1.0,15.2,35.0,15.2,NA\n"
                                     "10,F,1,a,1.1,0.9,11.1,31.6,11.1,31.6\n"
                                     "1,F,2,b,1.0,1.0,10.6,29.9,10.6,29.9\n"
                                     "3,F,1,b,1.4,1.2,12.9,32.8,12.9,32.8\n"
                                     "5,F,3,a,0.6,1.0,10.9,30.6,NA,30.6\n"
                                     "6,M,2,b,1.0,0.7,13.7,31.9,13.7,31.9\n"
                                     "7,F,3,a,1.3,1.1,12.0,29.2,12.0,NA\n"
                                     "8,M,1,b,1.0,1.0,11.2,30.0,11.2,30.0\n"
                                     "9,F,2,a,0.8,1.4,13.1,33.3,13.1,33.3\n"
                                     "10,M,3,b,1.0,1.0,14.4,34.1,14.4,NA\n"
                                     "2,M,1,a,1.6,0.9,10.0,28.0,10.0,28.0\n"
                                     "4,M,2,a,1.0,1.0,12.4,31.3,NA,31.3\n";

struct small_herd {
  small_herd() {
    directory.write("data.csv", herd_data);
    directory.write("pedigree.csv", herd_pedigree);
  }
  named_matrix a_inverse() const {
    return inverse_of(tabular_relationship(ordered_pedigree(csv_of_text(herd_pedigree))));
  }
  // Prepares the folder work, without a run.
  void prepare(const std::string& toml) const {
    using namespace zeph::prepare;
    directory.write("model.toml", toml);
    message_log log;
    const model_description d = read_description(directory / "model.toml", log);
    if (exit_code(log) == 0) {
      const prepared_model p = assemble_model(d, {}, log);
      EXPECT_TRUE(exit_code(log) == 0 && write_work_directory(d, p, work(), full_text(log)).ok);
    }
    EXPECT_EQ(exit_code(log), 0) << full_text(log);
  }
  whole_run run(const std::string& toml) const {
    prepare(toml);
    return go_on();
  }
  // Runs in the folder as it is.
  whole_run go_on() const {
    whole_run out = run_in(work());
    EXPECT_EQ(out.exit_code, 0) << out.listing;
    return out;
  }
  std::string work() const { return directory / "work/"; }
  scratch_directory directory;
};

} // namespace zeph_test
