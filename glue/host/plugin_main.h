// The filter's entry point: what the host calls, once per selector.
#pragma once

#include <cstdint>

// Returns, and stores through `result`, the selector's 16-bit code: 0 done, negative a host's error code,
// -128 cancelled (glue/host/host_records.h tells the selectors and records). One thread at a time. Null
// pointers are allowed for `data` and `result`, and for the parameter block of a selector that does nothing
// with it.
//
// The name is the one in the module's resources: C linkage, no decoration.
extern "C" intptr_t PluginMain(int16_t selector, void* parameterBlock, intptr_t* data, int16_t* result);
