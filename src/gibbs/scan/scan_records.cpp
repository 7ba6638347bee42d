#include "gibbs/scan/scan_records.h"

namespace zeph {

void allocate_round_work(const model_records& m, const equation_layout& layout, round_work& work,
                         reporting& report) {
  allocate_level_work(m, layout, work.levels, report);
  allocate_residual_inverses(m, work.inverses, report);
  allocate_record_values(m, work.values, report);
  allocate_missing_draws(m, work.missing, report);
  allocate_latent_work(m, work.latent, report);
  allocate_mixture_work(m, work.mixture, report);
  allocate_sweep_work(m, work.sweep, report);
  allocate_covariance_work(m, work.matrices, report);
}

} // namespace zeph
