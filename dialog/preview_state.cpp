#include "dialog/preview_state.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "image/pixel_kind.h"
#include "removal/peak_detection.h"

namespace tessaline {

namespace {

// By destruction, so that everything it owns is released.
void Reset(PreviewState* state) {
  std::destroy_at(state);
  std::construct_at(state);
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

uint32_t Invalidate(PreviewState* state, uint32_t areas) {
  state->cacheValid = false;
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
  if (state->request->isSplit != 0) area.bottom = (area.top + area.bottom) / 2;
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
  if (state->request->isSplit != 0) {
    buffers.untouched.Create("PROXY before", width, height, kRgb8);
    buffers.zoomedUntouched.Create("PrZoom before", width, height, state->sourceBytesPerPixel);
  }
}

void SetZoom(int32_t index, PreviewState* open) {
  PreviewState& state = *open;
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

void PreviewState::Open(PreviewDialogRequest* dialogRequest, WindowRectangle proxy,
                        WindowRectangle spectrum) {
  Reset(this);
  PreviewState& state = *this;
  const FilterParameters& values = **dialogRequest->values;
  state.request = dialogRequest;
  state.opening = ValuesOf(values);
  state.current = state.opening;
  state.spectrumSlot = values.gray16Slot;
  state.displaySpectrumSlot = values.gray8Slot;

  const FilterParameters& parameters = *dialogRequest->parameters;
  state.zoomIndex = kLifeSizeZoom;
  const HighlightMode mode = ModeOf(parameters.highlightMode);
  state.highlightMode = mode;
  state.highlight = ColorOf(mode, {ColorByte(parameters.highlightRed), ColorByte(parameters.highlightGreen),
                                   ColorByte(parameters.highlightBlue)});
  state.previewOn = true;
  state.savedPreviewOn = true;

  TakeSource(dialogRequest->sourceSlot, &state);
  state.spectrumArea = spectrum;
  PlaceProxy(proxy, &state);
  AllocateWorkRows(&state);
  CreateBuffers(&state);
  dialogRequest->reopen = 0;
}

void PreviewState::Close(bool isAccepted) {
  PreviewState& state = *this;
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
  Reset(this);
}

uint32_t PreviewState::BeginDrag(int32_t x, int32_t y) {
  PreviewState& state = *this;
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

uint32_t PreviewState::ContinueDrag(int32_t x, int32_t y) {
  PreviewState& state = *this;
  if (!state.isDragging) return kRepaintNothing;
  const float zoom = kZoomSteps[state.zoomIndex].factor;
  DragPan(state.dragPositionX, state.dragCursorX, x, zoom, &state.panX);
  DragPan(state.dragPositionY, state.dragCursorY, y, zoom, &state.panY);
  return Invalidate(this, kRepaintProxy);
}

uint32_t PreviewState::EndDrag() {
  PreviewState& state = *this;
  if (!state.isDragging) return kRepaintNothing;
  state.isDragging = false;
  state.previewOn = state.savedPreviewOn;
  return Invalidate(this, kRepaintProxy);
}

uint32_t PreviewState::TogglePreview() {
  previewOn = !previewOn;
  return Invalidate(this, kRepaintProxy);
}

uint32_t PreviewState::ToggleSpectrumView() {
  spectrum3D = !spectrum3D;
  return Invalidate(this, kRepaintBoth);
}

uint32_t PreviewState::ChangeZoom(ZoomCommand command) {
  const int32_t index = zoomIndex;
  SetZoom(command == ZoomCommand::kIn    ? index + 1
          : command == ZoomCommand::kOut ? index - 1
                                         : kLifeSizeZoom,
          this);
  return Invalidate(this, kRepaintProxy);
}

uint32_t PreviewState::ChooseHighlight(HighlightMode mode, HighlightColor other) {
  PreviewState& state = *this;
  if (mode != kHighlightOther && mode == state.highlightMode) return kRepaintNothing;
  state.highlightMode = mode;
  state.highlight = ColorOf(mode, other);
  return Invalidate(this, kRepaintSpectrum | kRepaintSwatch);
}

uint32_t PreviewState::SetValues(const PreviewValues& values) {
  current = values;
  return Invalidate(this, kRepaintBoth);
}

uint32_t PreviewState::ChangeValues(const PreviewValues& values) {
  return values == current ? uint32_t{kRepaintNothing} : SetValues(values);
}

uint32_t PreviewState::RestoreOpeningValues() {
  return SetValues(opening);
}

PicturePart PreviewState::ShownPicture() const {
  const auto shown = [this](const PanAxis& axis) {
    const float pixels = static_cast<float>(axis.imageSize) - axis.position();
    return static_cast<int32_t>(pixels * kZoomSteps[zoomIndex].factor);
  };
  return {shown(panX), shown(panY)};
}

const char* PreviewState::ZoomLabel() const {
  return kZoomSteps[zoomIndex].label;
}

}  // namespace tessaline
