// The program filterhost, all but main(). Windows only.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "testhost/host_refusal.h"

namespace tessaline::testhost {

// `arguments` without the program's name. What was asked for goes to `out`, messages to `err`. Other than a
// program of its own this may be called any number of times; the filter's state lasts as long as its module
// is loaded, which is for one call.
ExitStatus FilterHost(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

}  // namespace tessaline::testhost
