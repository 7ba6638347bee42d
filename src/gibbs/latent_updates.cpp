#include "gibbs/latent_updates.h"

namespace zeph {

void update_latent_variables(scan_records&, const run_frame&) {}

} // namespace zeph
