// The pictures of the preview dialog: proxy, mask and spectrum view of the current state. What did not change
// since the last time is not computed again.
#pragma once

#include <cstdint>

namespace tessaline {

// Pixel kinds that can be previewed: 1, 2, 3 and 6 bytes per pixel.
bool IsPreviewKind(int32_t bytesPerPixel);
// 1 or 3; 0 for other kinds.
int32_t ChannelsOfPreviewKind(int32_t bytesPerPixel);

// Makes "PROXY" and "PSPEC" those of previewState, unless cacheValid says that they are, and "PrZoom" out of
// "PROXY". What cannot be computed for lack of memory is left black, or, for the filter, untouched.
void ComputePreview();

}  // namespace tessaline
