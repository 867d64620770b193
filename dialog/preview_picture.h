// The pictures of the preview dialog: proxy, mask and spectrum view of the current state. What did not change
// since the last time is not computed again.
#pragma once

namespace tessaline {

// Makes "PROXY" and "PSPEC" those of previewState, unless cacheValid says that they are, and "PrZoom" out of
// "PROXY". What cannot be computed for lack of memory is left black, or, for the filter, untouched.
void ComputePreview();

}  // namespace tessaline
