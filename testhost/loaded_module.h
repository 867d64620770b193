// A filter module from its file, the way hosts take it: resources first, without running a line of it, then
// its code. Windows only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "glue/host/host_records.h"
#include "platform/message.h"
#include "testhost/plugin_properties.h"

namespace tessaline::testhost {

// The bytes of resource `id` of the type named `type`; empty when there is none. No code of the module runs.
// Throws Refusal (kBadModule) when the file is no module.
std::vector<uint8_t> ReadModuleResource(const std::string& path, const char* type, int32_t id);

// What the module says about itself. Throws Refusal (kBadModule).
PluginProperties ReadModuleProperties(const std::string& path);

// A module in memory, until this goes out of scope.
class LoadedModule {
 public:
  // Throws Refusal (kBadModule) that says why, as far as Windows tells.
  explicit LoadedModule(const std::string& path);
  ~LoadedModule();
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;

  // The exported function `name`. Throws Refusal (kBadModule) when there is none.
  template <typename Function>
  Function Export(const std::string& name) const {
    return reinterpret_cast<Function>(ExportedAddress(name));
  }

  // The module's message boxes go to `handler` instead of the screen, where each would wait for its OK.
  // Handlers are per program, not per module. False when the module shows no message boxes or does it another
  // way.
  bool RedirectMessages(MessageHandler handler);

 private:
  void* ExportedAddress(const std::string& name) const;

  std::string path_;
  void* base_;  // also the system's handle
};

}  // namespace tessaline::testhost
