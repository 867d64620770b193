// What was found, as the page's report has it: the members of the program's own (docs/report.md).
#pragma once

#include <string>

#include "web/picture_cleaning.h"

namespace tessaline::web {

// Pixels per inch; 0 where nobody knows.
struct Resolution {
  double horizontal = 0.0, vertical = 0.0;
};

std::string DescribeFindings(const PictureCleaning& cleaning, const Resolution& resolution);

}  // namespace tessaline::web
