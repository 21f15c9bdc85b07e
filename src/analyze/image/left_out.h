// Why a plugin does not run.
#pragma once

#include <string>

#include "catalogue/admission.h"

namespace bootforge::analyze {

/// In words, for a plugin that is left out or has run already: "disabled by the boot flag a"; empty
/// for one that takes part.
std::string reasonLeftOut(const Admission& admission);

}  // namespace bootforge::analyze
