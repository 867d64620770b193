#include "fft/vector_engine.h"

namespace tessaline {

const VectorEngine& VectorEngineFor(VectorLevel level) {
  switch (level) {
    case VectorLevel::kAvx512:
      return kAvx512Engine;
    case VectorLevel::kAvx2:
      return kAvx2Engine;
    default:
      return kBaselineEngine;
  }
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
