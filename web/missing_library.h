// What Debian 12's standard library for browsers lacks of C++20, included before every file of that build.
#pragma once

#if defined(__cplusplus)
#include <version>
#if !defined(__cpp_lib_bit_cast)
namespace std {
template <class To, class From>
constexpr To bit_cast(const From& from) noexcept {
  return __builtin_bit_cast(To, from);
}
}  // namespace std
#endif
#endif
