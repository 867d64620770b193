// The 16-bit result codes of the host's protocol, as every room returns them in 32-bit integers.
#pragma once

#include <cstdint>

namespace tessaline {

enum ResultCode : int32_t {
  kSuccess = 0,
  kUnknownPixelKind = -36,
  kInvalidSlotOrFile = -43,  // slot below 1, or a file that cannot be read or written
  kUnequalSizes = -50,
  kOutOfMemory = -108,  // also: no free buffer slot
  kNullHandle = -109,
  kUserCancelled = -128,  // also after the message that a picture is too large
};

}  // namespace tessaline
