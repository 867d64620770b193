// How much light a coded level stands for. Dots of ink average in light, while scans are stored coded, so
// what filters a print's samples as they are darkens its tones.
//
// Levels and light are both on the engine's scale, 0 .. 32768; beyond it the outermost slopes go on.
#pragma once

#include <cstdint>
#include <vector>

namespace tessaline {

class ToneCurve {
 public:
  // Of the sRGB colour space.
  static const ToneCurve& Srgb();

  // From the light, 0 to 1, of `count` levels, evenly spaced from black to white; what the first and the last
  // are less or more than 0 and 1 is scaled away. False where they are no curve: fewer than two, no numbers,
  // falling, or all the same. Throws std::bad_alloc.
  bool Create(const float* light, int32_t count);

  float LightOf(float level) const;
  float LevelOf(float light) const;  // its inverse

  // Row by row: to every second float, as LoadLevels has them.
  void DecodeRow(int32_t width, float* levels) const;

 private:
  std::vector<float> lightOfLevel_;  // at even steps of the level
  std::vector<float> levelOfRoot_;   // at even steps of the light's square root: near black codings are steep
};

}  // namespace tessaline
