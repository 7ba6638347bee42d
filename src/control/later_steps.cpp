#include "control/later_steps.h"

#include <fmt/format.h>

namespace zeph {

void step_not_available(reporting& report, std::string_view routine, std::string_view what) {
  say(report);
  say(report, fmt::format("ERROR - {}: {} not available in this version", routine, what));
  zeph_terminates(report);
}

void FETOCV(reporting& report) {
  step_not_available(report, "FETOCV", "class-effect solutions used as covariates are");
}

} // namespace zeph
