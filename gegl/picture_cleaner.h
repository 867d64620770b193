// What an operation of the graph keeps between two evaluations: the picture's analysis and its last result.
//
// The host evaluates a node again whenever a value changed upstream or in the node itself, and does not say
// which. So the samples tell: where they are those of the last time, their analysis serves again, and where
// the wishes are the same too, the result.
#pragma once

#include <gegl.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "gegl/sample_formats.h"
#include "include/tessaline/tessaline.hpp"

namespace tessaline::gegl {

// Properties that the result depends on.
struct Wishes {
  bool isAutomatic;
  double acceptance;
  double sensitivity;
  double notchRadius;
  double protectionRadius;
  bool isEverywhere;
  double polish;
  int32_t light;  // TESSALINE_LIGHT_AUTO ...

  bool operator==(const Wishes&) const = default;
};

class PictureCleaner {
 public:
  // Told the part that is done, on the calling thread.
  using Progress = std::function<void(double part)>;

  // From `input` to `output`, whose format is OutputFormatFor the input's, `roi` of what becomes of
  // `picture`, the whole of the input; or, where `showTakenOut`, of what it loses, round the middle grey.
  // Where nothing is found the input's own samples come out.
  //
  // Throws tessaline::Error and std::bad_alloc, and has then written nothing.
  void Process(GeglBuffer* input, GeglBuffer* output, const GeglRectangle& picture, const GeglRectangle& roi,
               const Wishes& wishes, bool showTakenOut, const Progress& progress);

 private:
  struct Unref {
    void operator()(GeglBuffer* buffer) const { g_object_unref(buffer); }
  };
  // Which samples an analysis is of.
  struct Origin {
    const Babl* format = nullptr;
    GeglRectangle picture = {};
    size_t fingerprint = 0;

    bool operator==(const Origin& other) const {
      return format == other.format && gegl_rectangle_equal(&picture, &other.picture) &&
             fingerprint == other.fingerprint;
    }
  };
  struct Result {
    Origin origin;
    Wishes wishes;
    std::unique_ptr<GeglBuffer, Unref> cleaned;  // null: nothing was found
  };

  void Renew(GeglBuffer* input, const GeglRectangle& picture, const Wishes& wishes, const Progress& progress);

  std::unique_ptr<Engine> engine_;
  Origin analysed_;
  std::unique_ptr<Result> result_;
};

}  // namespace tessaline::gegl
