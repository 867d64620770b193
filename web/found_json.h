// What was found: the members of the program's own report (docs/report.md), and `pattern`, its name in words.
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
