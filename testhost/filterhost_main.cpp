// filterhost: runs a filter module on a picture. See docs/filterhost.md.
#include <iostream>

#include "testhost/filterhost.h"

int main(int argc, char** argv) {
  return static_cast<int>(tessaline::testhost::FilterHost({argv + 1, argv + argc}, std::cout, std::cerr));
}
