#include "platform/parallel.h"

namespace tessaline {

namespace {

class Serial final : public Parallel {
 public:
  int32_t threads() const override { return 1; }
  bool Run(int32_t count, Task task, Poll poll, void* user) override {
    for (int32_t i = 0; i < count; ++i) {
      task(user, i, 0);
      if (poll != nullptr && poll(user, i + 1)) return true;
    }
    return false;
  }
};

constinit Serial g_serial;

}  // namespace

Parallel& SerialWork() {
  return g_serial;
}

}  // namespace tessaline
