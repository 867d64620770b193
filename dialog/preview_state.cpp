#include "dialog/preview_state.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "image/pixel_kind.h"
#include "removal/peak_detection.h"

namespace tessaline {

PreviewState previewState;
bool splitPreview = false;

namespace {

// By destruction, so that everything it owns is released.
void ResetPreviewState() {
  std::destroy_at(&previewState);
  std::construct_at(&previewState);
}

// One above the largest position whose view still ends inside the image.
float EndOfPan(const PanAxis& axis, float shownPixels) {
  return static_cast<float>(axis.imageSize) - shownPixels;
}

// A position at or beyond the end stands one pixel before it; a view larger than the image starts at 0.
void MovePan(float position, float end, PanAxis* axis) {
  if (position >= end) position = end - 1.0f;
  SplitPan(std::max(position, 0.0f), axis);
}

uint32_t Invalidate(uint32_t areas) {
  previewState.cacheValid = false;
  return areas;
}

uint8_t ColorByte(float value) {
  return std::isnan(value) ? 0 : static_cast<uint8_t>(std::clamp(value, 0.0f, 255.0f));
}

constexpr HighlightColor kRed = {255, 0, 0};
constexpr HighlightColor kCyan = {0, 255, 255};

HighlightColor ColorOf(HighlightMode mode, HighlightColor other) {
  return mode == kHighlightRed ? kRed : mode == kHighlightCyan ? kCyan : other;
}

// A mode that no dialog stores (a damaged record) is red.
HighlightMode ModeOf(float stored) {
  if (stored >= 2.0f && stored < 3.0f) return kHighlightOther;
  return stored >= 1.0f && stored < 2.0f ? kHighlightCyan : kHighlightRed;
}

PreviewValues ValuesOf(const FilterParameters& parameters) {
  return {parameters.acceptance, parameters.notchRadius, parameters.protectionRadius};
}

void TakeSource(int32_t slot, PreviewState* state) {
  const BufferShape shape = ShapeOf(slot);
  state->sourceSlot = slot;
  const int32_t bytesPerPixel = shape.bytesPerPixel;
  const bool isUsable = IsPictureKind(bytesPerPixel);
  state->sourceBytesPerPixel = isUsable ? bytesPerPixel : 0;
  state->channels = isUsable ? FindPixelKind(bytesPerPixel)->channels : 0;
}

void PlaceProxy(WindowRectangle area, PreviewState* state) {
  area.right = std::min(area.right, area.left + kLargestProxySide);
  area.bottom = std::min(area.bottom, area.top + kLargestProxySide);
  if (splitPreview) area.bottom = (area.top + area.bottom) / 2;
  area.right = std::max(area.right, area.left);
  area.bottom = std::max(area.bottom, area.top);
  state->proxyArea = area;
  const BufferShape source = state->channels > 0 ? ShapeOf(state->sourceSlot) : BufferShape{};
  state->panX = CentredPan(source.width, area.width());
  state->panY = CentredPan(source.height, area.height());
  state->padX = (kProxySquare - area.width()) / 2;
  state->padY = (kProxySquare - area.height()) / 2;
}

void AllocateWorkRows(PreviewState* state) {
  constexpr size_t kLargestPixelBytes = 12;
  constexpr size_t kChannelRowBytes = size_t{kProxySquare} * 24;
  const size_t pixels =
      static_cast<size_t>(state->panX.proxySize + 2 * (state->padX + state->padY) + state->panX.imageSize) +
      1539;
  state->rows.source = AllocateBlock<uint8_t>(pixels * kLargestPixelBytes);
  state->rows.output = AllocateBlock<uint8_t>(pixels * kLargestPixelBytes);
  for (auto& row : state->rows.channels) row = AllocateBlock<uint8_t>(kChannelRowBytes);
}

void CreateBuffers(PreviewState* state) {
  constexpr const char* kSpectrumNames[] = {"ProxyRed", "ProxyGreen", "ProxyBlue"};
  constexpr const char* kMaskedNames[] = {"ProxyRCache", "ProxyGCache", "ProxyBCache"};
  PreviewBuffers& buffers = state->buffers;
  const int32_t width = state->proxyArea.width();
  const int32_t height = state->proxyArea.height();
  for (int32_t i = 0; i < 3; ++i) {
    buffers.spectra[i].Create(kSpectrumNames[i], kProxySquare, kProxySquare, kGrayComplex);
    buffers.maskedSpectra[i].Create(kMaskedNames[i], kProxySquare, kProxySquare, kGrayComplex);
  }
  buffers.proxy.Create("PROXY", width, height, kRgb8);
  buffers.spectrumView.Create("PSPEC", state->spectrumArea.width(), state->spectrumArea.height(), kRgb8);
  buffers.gridMask.Create("TempMask", kSpectrumCells, kSpectrumCells, kGray8);
  buffers.fullMask.Create("Mask", kProxySquare, kProxySquare, kGray8);
  buffers.zoomedView.Create("PrZoom", width, height, state->sourceBytesPerPixel);
  if (splitPreview) {
    buffers.untouched.Create("PROXY before", width, height, kRgb8);
    buffers.zoomedUntouched.Create("PrZoom before", width, height, state->sourceBytesPerPixel);
  }
}

void SetZoom(int32_t index) {
  PreviewState& state = previewState;
  const float oldFactor = kZoomSteps[state.zoomIndex].factor;
  state.zoomIndex = std::clamp(index, kLifeSizeZoom, kLargestZoom);
  const float newFactor = kZoomSteps[state.zoomIndex].factor;
  RecentrePan(oldFactor, newFactor, &state.panX);
  RecentrePan(oldFactor, newFactor, &state.panY);
}

}  // namespace

PanAxis CentredPan(int32_t imageSize, int32_t proxySize) {
  const int32_t maximumBase = std::max(imageSize - proxySize, 0);
  return {imageSize, proxySize, maximumBase / 2, 0, maximumBase};
}

void SplitPan(float position, PanAxis* axis) {
  if (position >= static_cast<float>(axis->maximumBase)) {
    axis->base = std::max(axis->maximumBase - 1, 0);
    axis->remainder = static_cast<int32_t>(position - static_cast<float>(axis->base));
  } else {
    axis->base = static_cast<int32_t>(position);
    axis->remainder = 0;
  }
}

void DragPan(float startPosition, int32_t startCursor, int32_t cursor, float zoom, PanAxis* axis) {
  const float factor = 1.0f / zoom;
  const float shown = std::trunc(static_cast<float>(axis->proxySize) * factor);
  MovePan(startPosition + static_cast<float>(startCursor - cursor) * factor, EndOfPan(*axis, shown), axis);
}

void RecentrePan(float oldZoom, float newZoom, PanAxis* axis) {
  const auto proxySize = static_cast<float>(axis->proxySize);
  const float shown = proxySize / newZoom;
  MovePan(axis->position() + (shown - proxySize / oldZoom) * -0.5f, EndOfPan(*axis, shown), axis);
}

void OpenPreview(PreviewDialogRequest* request, WindowRectangle proxyArea, WindowRectangle spectrumArea) {
  ResetPreviewState();
  PreviewState& state = previewState;
  const FilterParameters& values = **request->values;
  state.request = request;
  state.opening = ValuesOf(values);
  state.current = state.opening;
  state.spectrumSlot = values.gray16Slot;
  state.displaySpectrumSlot = values.gray8Slot;

  const FilterParameters& parameters = *request->parameters;
  state.zoomIndex = kLifeSizeZoom;
  const HighlightMode mode = ModeOf(parameters.highlightMode);
  state.highlightMode = mode;
  state.highlight = ColorOf(mode, {ColorByte(parameters.highlightRed), ColorByte(parameters.highlightGreen),
                                   ColorByte(parameters.highlightBlue)});
  state.previewOn = true;
  state.savedPreviewOn = true;

  TakeSource(request->sourceSlot, &state);
  state.spectrumArea = spectrumArea;
  PlaceProxy(proxyArea, &state);
  AllocateWorkRows(&state);
  CreateBuffers(&state);
  request->reopen = 0;
}

void ClosePreview(bool isAccepted) {
  PreviewState& state = previewState;
  if (state.request != nullptr) {
    if (isAccepted) {
      FilterParameters& parameters = *state.request->parameters;
      parameters.highlightMode = static_cast<float>(state.highlightMode);
      parameters.highlightRed = state.highlight.red;
      parameters.highlightGreen = state.highlight.green;
      parameters.highlightBlue = state.highlight.blue;
    }
    // Also after Cancel: the caller tells the two apart by the result.
    FilterParameters& values = **state.request->values;
    values.acceptance = state.current.acceptance;
    values.notchRadius = state.current.notchRadius;
    values.protectionRadius = state.current.protectionRadius;
  }
  ResetPreviewState();
}

uint32_t BeginDrag(int32_t x, int32_t y) {
  PreviewState& state = previewState;
  if (state.isDragging || !state.proxyArea.Contains(x, y)) return kRepaintNothing;
  state.isDragging = true;
  state.dragCursorX = x;
  state.dragCursorY = y;
  state.dragPositionX = state.panX.position();
  state.dragPositionY = state.panY.position();
  // While it is dragged the view shows the untouched picture, so that it follows the hand at once.
  state.savedPreviewOn = state.previewOn;
  state.previewOn = false;
  return kRepaintNothing;
}

uint32_t ContinueDrag(int32_t x, int32_t y) {
  PreviewState& state = previewState;
  if (!state.isDragging) return kRepaintNothing;
  const float zoom = kZoomSteps[state.zoomIndex].factor;
  DragPan(state.dragPositionX, state.dragCursorX, x, zoom, &state.panX);
  DragPan(state.dragPositionY, state.dragCursorY, y, zoom, &state.panY);
  return Invalidate(kRepaintProxy);
}

uint32_t EndDrag() {
  PreviewState& state = previewState;
  if (!state.isDragging) return kRepaintNothing;
  state.isDragging = false;
  state.previewOn = state.savedPreviewOn;
  return Invalidate(kRepaintProxy);
}

uint32_t TogglePreview() {
  previewState.previewOn = !previewState.previewOn;
  return Invalidate(kRepaintProxy);
}

uint32_t ToggleSpectrumView() {
  previewState.spectrum3D = !previewState.spectrum3D;
  return Invalidate(kRepaintBoth);
}

uint32_t ChangeZoom(ZoomCommand command) {
  const int32_t index = previewState.zoomIndex;
  SetZoom(command == ZoomCommand::kIn ? index + 1 : command == ZoomCommand::kOut ? index - 1 : kLifeSizeZoom);
  return Invalidate(kRepaintProxy);
}

uint32_t ChooseHighlight(HighlightMode mode, HighlightColor other) {
  PreviewState& state = previewState;
  if (mode != kHighlightOther && mode == state.highlightMode) return kRepaintNothing;
  state.highlightMode = mode;
  state.highlight = ColorOf(mode, other);
  return Invalidate(kRepaintSpectrum | kRepaintSwatch);
}

uint32_t SetValues(const PreviewValues& values) {
  previewState.current = values;
  return Invalidate(kRepaintBoth);
}

uint32_t ChangeValues(const PreviewValues& values) {
  return values == previewState.current ? uint32_t{kRepaintNothing} : SetValues(values);
}

uint32_t RestoreOpeningValues() {
  return SetValues(previewState.opening);
}

PicturePart ShownPicture() {
  const auto shown = [](const PanAxis& axis) {
    const float pixels = static_cast<float>(axis.imageSize) - axis.position();
    return static_cast<int32_t>(pixels * kZoomSteps[previewState.zoomIndex].factor);
  };
  return {shown(previewState.panX), shown(previewState.panY)};
}

const char* ZoomLabel() {
  return kZoomSteps[previewState.zoomIndex].label;
}

}  // namespace tessaline
