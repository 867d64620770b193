// Pictures from files as documents of a host, and back.
#pragma once

#include <optional>
#include <string>

#include "testhost/fake_host.h"
#include "testhost/pixel_file.h"

namespace tessaline::testhost {

// How a document differs from what its picture suggests; empty: it does not.
struct DocumentWishes {
  std::optional<int16_t> mode;   // host::ImageModeNumber, or any number
  std::optional<int32_t> depth;  // 8, 16 or 32
};

// Samples become bytes, host 16-bit levels or floats from 0 to 1. The mode is the picture's colour space at
// the document's depth. A wished mode takes the planes as they are, whatever its own number of planes.
Document MakeDocument(const Picture& picture, const DocumentWishes& wishes);

// The document's samples in a picture like `source`, from which it was made: 8-bit files stay 8-bit files
// unless the document's depth was 16, 16-bit ones keep their white level. Samples that lost bits on the way
// to the host get them back where the filter left the pixel's extra planes, or the whole document, as it
// found them.
Picture PictureOf(const Document& document, const Document& original, const Picture& source);

// A mode by name ("grey", "rgb", ...) at a depth, or by number; nothing for a name that is none.
std::optional<int16_t> ModeNumber(const std::string& name, int32_t depth);
// All names, for messages.
std::string ModeNames();

}  // namespace tessaline::testhost
