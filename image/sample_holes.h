// Samples of float pictures that cannot be computed with: no number, infinite, or too large to be squared and
// summed. They are bridged for a run, and stand there again afterwards.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tessaline {

// One channel of floats: sample (x, y) stands at first[x * pixelStride + y * rowStride].
struct FloatChannel {
  float* first;
  int32_t width;
  int32_t height;
  ptrdiff_t pixelStride;  // floats
  ptrdiff_t rowStride;    // floats
};

// Finite, and at most a million either way.
bool IsUsableSample(float sample);

class SampleHoles {
 public:
  // Gives every unusable sample the value of the nearest usable one, counted in steps along rows and columns;
  // 0 where the channel has none. What stood there is kept. May be called for several channels. Throws
  // std::bad_alloc; PutBack then still gives all back.
  void Bridge(const FloatChannel& channel);

  // What stood there, in all channels that were bridged; they must still be where they were.
  void PutBack() const;

  size_t count() const { return holes_.size(); }

 private:
  struct Hole {
    float* sample;
    float value;
  };
  std::vector<Hole> holes_;
};

}  // namespace tessaline
