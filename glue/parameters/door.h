// What every door into the engine passes through: one call at a time, and no exception out of it.
#pragma once

#include <cstdint>

#include "image/result_codes.h"

namespace tessaline {

// The buffer table, the settings and the dialog are program-wide, so one call at a time may work in them: the
// one that holds the turn. A turn is asked for and never waited for. A second call, from another thread or
// out of the first (while its dialog is open, or from a callback of the host), does not get it and must go
// without touching anything.
class EngineTurn {
 public:
  EngineTurn();
  EngineTurn(const EngineTurn&) = delete;
  EngineTurn& operator=(const EngineTurn&) = delete;
  ~EngineTurn();
  bool IsMine() const { return isMine_; }

 private:
  bool isMine_;
};

// The result of `call`, or kOutOfMemory when it throws: only a failed allocation does in this program. No
// exception may reach a caller that was not built for them.
template <typename Call>
int32_t WithoutExceptions(Call call) {
  try {
    return call();
  } catch (...) {
    return kOutOfMemory;
  }
}

}  // namespace tessaline
