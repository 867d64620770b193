// LeakSanitizer looks through the program's libraries for a tenth of a second in each of its processes. It is
// told not to where children did the work, which it looks at itself.
#include <pthread.h>

namespace {

bool hasChildren = false;

[[gnu::constructor]] void NoteForks() {
  pthread_atfork(
      nullptr, [] { hasChildren = true; }, [] { hasChildren = false; });
}

}  // namespace

extern "C" [[gnu::visibility("default")]] int __lsan_is_turned_off();
int __lsan_is_turned_off() {
  return hasChildren;
}
