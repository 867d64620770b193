// A document through a module's programmatic interface instead of its host entry.
#pragma once

#include <cstdint>
#include <vector>

#include "include/tessaline/tessaline_legacy.h"
#include "testhost/fake_host.h"

namespace tessaline::testhost {

// The exported functions of that name.
struct InterfaceFunctions {
  decltype(&OSAPI_CreateInstance) createInstance;
  decltype(&OSAPI_FreeInstance) freeInstance;
  decltype(&OSAPI_Process) process;
};

struct InterfaceReport {
  int32_t result = 0;                       // of the process call, or of the call before it that failed
  Document document;                        // colour planes cleaned, extra planes as they were
  std::vector<DescriptorValue> parameters;  // that the run used, as the interface tells them
};

// Greyscale and three-plane documents of 8 or 16 bits; throws Refusal (kWrongUsage) for others. Of
// `parameters` those of integer and float type are handed over.
InterfaceReport RunInterface(const InterfaceFunctions& functions, const Document& source,
                             const std::vector<DescriptorValue>& parameters, bool showDialog);

}  // namespace tessaline::testhost
