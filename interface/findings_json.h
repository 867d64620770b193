// Findings as JSON, in the members of docs/report.md.
#pragma once

#include <string>
#include <vector>

#include "removal/notches.h"
#include "removal/steps.h"

namespace tessaline {

// One object, in lines of their own for each notch and peak. Does not depend on the locale. Throws
// std::bad_alloc.
std::string FindingsAsJson(const Analysis& analysis, const Findings& findings,
                           const std::vector<Notch>& notches);

}  // namespace tessaline
