// What the preview dialog knows and computes, without a window: the view on the picture (zoom, pan, drag),
// the chosen values, the filtered proxy and the spectrum view. The window code asks the system, calls these
// and repaints what they say.
//
// The proxy is the part of the picture that fits the proxy area, filtered inside a square of 1024 x 1024
// pixels with enough of its surroundings that the transform's wrap-around never shows.
#pragma once

#include <cstdint>

#include "buffers/buffer_table.h"
#include "dialog/control_pixels.h"
#include "dialog/spectrum_painting.h"
#include "dialog/window_types.h"
#include "glue/parameters/filter_parameters.h"
#include "platform/memory.h"

namespace tessaline {

constexpr int32_t kProxySquare = 1024;      // side of the transforms, pixels
constexpr int32_t kLargestProxySide = 974;  // leaves 25 pixels of surroundings on every side

struct PreviewDialogRequest {
  int32_t sourceSlot;            // image or selection to preview
  FilterParameters* parameters;  // highlight fields are read, and written on OK
  FilterParameters** values;     // its first five words: the three values and the two spectrum slots
  uint8_t reopen;                // cleared when the dialog opens; while it reads 1 the dialog is run again
  uint8_t isSplit;               // filtered proxy above, untouched one below, each half as high
};

// --- zoom ---

struct ZoomStep {
  const char* label;
  float factor;
};
constexpr ZoomStep kZoomSteps[] = {
    {"6.25%", 0.0625f},    {" 10%", 0.1f}, {"12.5%", 0.125f},     {"16.7%", 0.1666667f}, {" 25%", 0.25f},
    {"33.3%", 0.3333333f}, {" 50%", 0.5f}, {"66.7%", 0.6666667f}, {"100%", 1.0f},        {"200%", 2.0f},
    {"300%", 3.0f},        {"400%", 4.0f}, {"600%", 6.0f},        {"800%", 8.0f},
};
constexpr int32_t kLifeSizeZoom = 8;
constexpr int32_t kLargestZoom = 13;

// --- pan, one axis ---

struct PanAxis {
  int32_t imageSize;    // pixels
  int32_t proxySize;    // pixels
  int32_t base;         // image column or row at which the proxy starts
  int32_t remainder;    // offset inside the proxy at which the zoomed view starts
  int32_t maximumBase;  // max(imageSize - proxySize, 0)

  float position() const { return static_cast<float>(base + remainder); }
};

PanAxis CentredPan(int32_t imageSize, int32_t proxySize);
// Splits a position, in image pixels from 0 on, into base and remainder. The base is deliberately held one
// below its maximum, so that the remainder takes up the rest.
void SplitPan(float position, PanAxis* axis);
// The cursor moved from `startCursor` to `cursor` with the button down; `startPosition` is where the view
// stood then.
void DragPan(float startPosition, int32_t startCursor, int32_t cursor, float zoom, PanAxis* axis);
// Keeps the centre of the view where it is when the zoom changes.
void RecentrePan(float oldZoom, float newZoom, PanAxis* axis);

// --- the state ---

enum HighlightMode : int32_t { kHighlightRed = 0, kHighlightCyan = 1, kHighlightOther = 2 };

// Parts of the dialog to repaint.
enum RepaintArea : uint32_t {
  kRepaintNothing = 0,
  kRepaintProxy = 1,
  kRepaintSpectrum = 2,
  kRepaintSwatch = 4,
  kRepaintBoth = kRepaintProxy | kRepaintSpectrum,
};

struct PreviewValues {
  float acceptance;        // percent
  float notchRadius;       // spectrum cells
  float protectionRadius;  // pixels

  bool operator==(const PreviewValues&) const = default;
};

// Slots of the buffer table, 0 while there is none.
struct PreviewBuffers {
  OwnedBuffer spectra[3];        // "ProxyRed", "ProxyGreen", "ProxyBlue": padded square, complex
  OwnedBuffer maskedSpectra[3];  // "ProxyRCache", "ProxyGCache", "ProxyBCache"
  OwnedBuffer proxy;             // "PROXY": RGB bytes, filtered or not
  OwnedBuffer spectrumView;      // "PSPEC": RGB bytes
  OwnedBuffer gridMask;          // "TempMask": 512 x 512 bytes
  OwnedBuffer fullMask;          // "Mask": 1024 x 1024 bytes
  OwnedBuffer zoomedView;        // "PrZoom": kind of the source
  OwnedBuffer untouched;         // "PROXY before" and
  OwnedBuffer zoomedUntouched;   // "PrZoom before": as above without the filter, only in a split view
};

// Rows that the computation works in.
struct PreviewWorkRows {
  OwnedBlock<uint8_t> source;       // one source row with its surroundings, source kind
  OwnedBlock<uint8_t> output;       // one row of the proxy, RGB bytes
  OwnedBlock<uint8_t> channels[3];  // one row of complex values each
};

// What the buffers hold, so that nothing is computed twice. cacheValid says that something changed; this says
// what did not.
struct PreviewCache {
  bool hasSpectra;  // "ProxyRed".. are the spectra at this pan base
  int32_t baseX, baseY;
  bool hasMask;  // both masks belong to these values
  PreviewValues maskValues;
  bool hasSpectrumView;  // "PSPEC" shows that mask in this way
  bool is3D;
  HighlightColor highlight;
};

enum class ZoomCommand { kIn, kOut, kLifeSize };

// One open preview. It owns its buffers and rows; a window shows what it holds and tells it what the user
// does. Any number of them may be open, over one buffer table on one thread.
struct PreviewState {
  // Takes values, highlight, source and start position from the request, makes buffers and work rows.
  // `proxyArea` and `spectrumArea` are those of the controls; of the first no more than kLargestProxySide
  // counts. Without memory some buffers are missing (slot 0) and stay black. The state must be closed.
  void Open(PreviewDialogRequest* dialogRequest, WindowRectangle proxy, WindowRectangle spectrum);

  // Releases all buffers and rows and writes the values back through the request, however the dialog ended.
  // With `isAccepted` the highlight goes into the parameters too.
  void Close(bool isAccepted);

  bool IsOpen() const { return request != nullptr; }

  // Makes "PROXY" and "PSPEC" those of the state, unless cacheValid says that they are, and "PrZoom" out of
  // "PROXY". What did not change since the last time is not computed again. What cannot be computed for lack
  // of memory is left black, or, for the filter, untouched.
  void Compute();

  // --- what the user does; each returns what to repaint ---

  uint32_t BeginDrag(int32_t x, int32_t y);  // nothing outside the proxy area
  uint32_t ContinueDrag(int32_t x, int32_t y);
  uint32_t EndDrag();
  uint32_t TogglePreview();
  uint32_t ToggleSpectrumView();
  uint32_t ChangeZoom(ZoomCommand command);
  // Choosing the red or cyan that is active already changes nothing. `other` counts for kHighlightOther.
  uint32_t ChooseHighlight(HighlightMode mode, HighlightColor other);
  // New values; the second only when they differ from the current ones.
  uint32_t SetValues(const PreviewValues& values);
  uint32_t ChangeValues(const PreviewValues& values);
  uint32_t RestoreOpeningValues();

  const char* ZoomLabel() const;

  // What of "PrZoom" is picture. Beside and below a picture smaller than the view, the proxy repeats its
  // edges for the transform's sake, which is nothing to show.
  PicturePart ShownPicture() const;

  // --- what it holds ---

  PreviewDialogRequest* request;
  PreviewValues current;
  PreviewValues opening;        // for "Default"
  int32_t spectrumSlot;         // "PSPECgray16"
  int32_t displaySpectrumSlot;  // "PSPECgray8"

  int32_t sourceSlot;
  int32_t sourceBytesPerPixel;  // 1, 2, 3 or 6; 0: no picture
  int32_t channels;             // 1 or 3; 0: no picture

  int32_t zoomIndex;  // into kZoomSteps
  PanAxis panX, panY;
  int32_t padX, padY;  // surroundings left of and above the proxy in the square
  WindowRectangle proxyArea, spectrumArea;

  bool previewOn, savedPreviewOn;
  bool isDragging;
  bool cacheValid;  // proxy and spectrum view are those of the state
  bool spectrum3D;

  int32_t highlightMode;
  HighlightColor highlight;

  int32_t dragCursorX, dragCursorY;
  float dragPositionX, dragPositionY;

  PreviewBuffers buffers;
  PreviewWorkRows rows;

  PreviewCache cache;
};

}  // namespace tessaline
