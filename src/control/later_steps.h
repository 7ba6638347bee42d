// Steps of a run that this version does not hold. Each is called where it
// belongs in the order of the run, says what is missing and ends the run with
// code 16.
#pragma once

#include "control/reporting.h"

namespace zeph {

[[noreturn]] void step_not_available(reporting& report, std::string_view routine, std::string_view what);

[[noreturn]] void FETOCV(reporting& report);                 // class-effect solutions as covariates

} // namespace zeph
