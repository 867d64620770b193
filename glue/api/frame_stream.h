// Raw frames from a file through the removal into another file. What it promises: OSAPI_ProcessStream in
// include/tessaline/tessaline_legacy.h.
#pragma once

#include <cstdint>

#include "include/tessaline/tessaline_legacy.h"

namespace tessaline {

int32_t ProcessStream(TessalineInstance* instance, const TessalineStream* stream, bool showDialog,
                      uint32_t caller);

}  // namespace tessaline
