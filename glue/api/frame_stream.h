// Raw frames from a file through the removal into another file. What it promises: OSAPI_ProcessStream in
// glue/api/tessaline.h.
#pragma once

#include <cstdint>

#include "glue/api/tessaline.h"

namespace tessaline {

int32_t ProcessStream(TessalineInstance* instance, const TessalineStream* stream, bool showDialog,
                      uint32_t caller);

}  // namespace tessaline
