// A fuzzer's input as choices, numbers and texts: any bytes make a valid series of them, and behind the last
// byte all are 0.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

// Ends the fuzzer, which then keeps the input.
#define DEMAND(condition)                                                          \
  do {                                                                             \
    if (!(condition)) {                                                            \
      std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                \
    }                                                                              \
  } while (false)

namespace tessaline::fuzz {

class Bytes {
 public:
  Bytes(const uint8_t* bytes, size_t count) : at_(bytes), left_(count) {}

  bool IsEmpty() const { return left_ == 0; }
  template <typename Value>
  Value Take() {
    Value value = {};
    const size_t count = std::min(sizeof value, left_);
    if (count > 0) std::memcpy(static_cast<void*>(&value), at_, count);
    Skip(count);
    return value;
  }
  bool Flag() { return (Take<uint8_t>() & 1) != 0; }
  int32_t Pick(int32_t count) { return Take<uint8_t>() % count; }  // 0 .. count - 1
  template <typename Value, size_t count>
  Value OneOf(const Value (&values)[count]) {
    return values[Pick(static_cast<int32_t>(count))];
  }
  // Mostly the small and the extreme numbers that break things.
  int32_t Hostile() {
    constexpr int32_t kEnds[] = {0,     1,      -1,    2,         7500,      7501,
                                 32767, -32768, 65536, INT32_MAX, INT32_MIN, 1000001};
    return Flag() ? OneOf(kEnds) : Take<int32_t>();
  }
  std::string Text(size_t most) {
    const size_t count = std::min({size_t{Take<uint8_t>()}, most, left_});
    const std::string text(reinterpret_cast<const char*>(at_), count);
    Skip(count);
    return text;
  }
  std::string Rest() {
    const std::string text(reinterpret_cast<const char*>(at_), left_);
    Skip(left_);
    return text;
  }

 private:
  void Skip(size_t count) {
    if (count == 0) return;
    at_ += count;
    left_ -= count;
  }

  const uint8_t* at_;
  size_t left_;
};

// The same bytes for the same seed, to fill pictures with.
class Noise {
 public:
  explicit Noise(uint32_t seed) : state_(seed) {}
  uint32_t Next() { return (state_ = state_ * 1664525 + 1013904223) >> 8; }

 private:
  uint32_t state_;
};

// A file in the folder that the fuzzer runs in, which is its own.
inline void WriteFile(const char* name, const std::string& bytes) {
  std::FILE* const file = std::fopen(name, "wb");
  DEMAND(file != nullptr);
  DEMAND(std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size());
  DEMAND(std::fclose(file) == 0);
}

}  // namespace tessaline::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count);
