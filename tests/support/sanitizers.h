// Whether a sanitizer watches: everything takes ten times as long then, and of cases that walk the same code
// one is enough.
#pragma once

namespace tessaline {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsWatched = true;
#else
constexpr bool kIsWatched = false;
#endif

}  // namespace tessaline
