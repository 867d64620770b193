#include "fft/vector_engine.h"

namespace tessaline {

const VectorEngine& VectorEngineFor([[maybe_unused]] VectorLevel level) {
  if constexpr (kHasWiderVectors) {
    if (level == VectorLevel::kAvx512) return kAvx512Engine;
    if (level == VectorLevel::kAvx2) return kAvx2Engine;
  }
  return kBaselineEngine;
}

constinit const VectorEngine* activeVectorEngine = &kBaselineEngine;

namespace {

// A transform made before this has run is as good: the bits are the same.
[[maybe_unused]] const bool g_engineIsChosen = [] {
  activeVectorEngine = &VectorEngineFor(DetectVectorLevel());
  return true;
}();

}  // namespace

}  // namespace tessaline
