// How a filter answers its host, whatever it does in its start selector.
//
// In a header, for the module of `plugin_main.cpp` is to stay the same to the byte: what is inlined there has
// no place of its own in the file.
#pragma once

#include <cstdint>

#include "glue/host/host_access.h"
#include "glue/host/host_records.h"
#include "image/result_codes.h"

namespace tessaline {

// In the host's own words where it takes some: it would show most other codes as one of its own troubles.
inline int32_t Refuse(const host::FilterRecord& record, const char* text, int32_t codeWithoutText) {
  return SetErrorString(record, text) ? host::kReportString : codeWithoutText;
}

// The code of a call with `selector`. `start` does the work of the start selector, whose record is there.
template <typename Start>
int32_t Dispatch(int16_t selector, host::FilterRecord* record, const int16_t* result, Start start) {
  switch (selector) {
    case host::kSelectorAbout:  // no about box; some hosts come with a result of 1
    case host::kSelectorParameters:
    case host::kSelectorPrepare:
    case host::kSelectorFinish:
      return kSuccess;
    case host::kSelectorStart:
      if (record == nullptr) return host::kParameterError;
      return start();
    case host::kSelectorContinue:
      if (record == nullptr) return host::kParameterError;
      RequestNothing(record);
      return kSuccess;
    default:
      return result != nullptr ? *result : int16_t{kSuccess};
  }
}

}  // namespace tessaline
