// What ends a call of the interface early: the code that it returns and the text that the engine keeps.
#pragma once

#include <cstdint>
#include <string>

namespace tessaline {

struct CallFault {
  int32_t code;
  std::string text;  // what was wrong, and what to do about it
};

}  // namespace tessaline
