// How the host's side of the engine tells its caller how far it is and asks whether to go on.
#pragma once

#include <cstdint>

namespace tessaline {

struct RunContext {
  bool progressEnabled = false;
  // Called with `done` of `total`; null: nobody is told.
  void (*progress)(void* user, int32_t done, int32_t total) = nullptr;
  // True to stop; null: nobody asks to.
  bool (*abortCheck)(void* user) = nullptr;
  void* user = nullptr;  // handed to both
};

}  // namespace tessaline
