#include "glue/automatic/automatic_main.h"

#include <algorithm>
#include <limits>

#include "buffers/buffer_table.h"
#include "glue/host/host_access.h"
#include "glue/host/host_calls.h"
#include "glue/host/image_mode.h"
#include "glue/host/image_transfer.h"
#include "glue/host/scripting.h"
#include "glue/parameters/door.h"
#include "glue/parameters/parameter_list.h"
#include "glue/parameters/settings_record.h"
#include "image/result_codes.h"
#include "platform/message.h"
#include "removal/steps.h"
#include "restoration/decision.h"
#include "tiling/any_size.h"

namespace tessaline {

namespace {

constexpr char kTitle[] = "Tessaline Auto";
constexpr char kModeRefusal[] =
    "Tessaline Auto works on greyscale, RGB and Lab pictures of 8 or 16 bits per channel. Convert the "
    "picture to one of these modes first.";
constexpr char kTooLarge[] =
    "Tessaline Auto takes up to 1,000,000 pixels a side and 2 GB. Select a part of the picture first.";
constexpr char kNothingSelected[] =
    "Tessaline Auto has nothing to look at: no pixel is selected by half or more. Nothing was changed.";
constexpr char kNothingFound[] = "Tessaline Auto found no repeating pattern. Nothing was changed.";
constexpr char kSecondStart[] =
    "Tessaline Auto is still at work on another picture. Wait for it, then start again.";
static_assert(kLargestTiledSide == 1000000, "the message says so");

struct RunBuffers {
  RunBuffers() { ResetBufferTable(); }
  RunBuffers(const RunBuffers&) = delete;
  RunBuffers& operator=(const RunBuffers&) = delete;
  ~RunBuffers() {
    ReleaseImageBuffers();
    FlushBufferTable();
  }
};

// The engine's progress for the host, and whether its user has cancelled, at whatever moment.
class HostReports {
 public:
  explicit HostReports(const host::FilterRecord& record) : record_(record) {}
  Progress progress() { return {Report, this}; }
  bool isCancelled() const { return isCancelled_; }

 private:
  static bool Report(void* user, double part) {
    constexpr int32_t kParts = 1000;
    auto& reports = *static_cast<HostReports*>(user);
    const auto progress = reports.record_.progressProc;
    if (progress != nullptr) progress(static_cast<int32_t>(part * kParts), kParts);
    const auto isAborted = reports.record_.abortProc;
    if (isAborted != nullptr && isAborted()) reports.isCancelled_ = true;
    return reports.isCancelled_;
  }

  const host::FilterRecord& record_;
  bool isCancelled_ = false;
};

// What keeps the picture as it is, said once: by the host, or by a message where it takes no words.
int32_t Tell(const host::FilterRecord& record, const char* text) {
  const int32_t code = Refuse(record, text, kUserCancelled);
  if (code == kUserCancelled) ShowMessage(text, kTitle);
  return code;
}

// Nobody is to be shown anything, as in a batch.
bool IsPlayedSilently(const host::FilterRecord& record) {
  const host::PIDescriptorParameters* const descriptors = record.descriptorParameters;
  return descriptors != nullptr && descriptors->playInfo == host::kDialogSilent;
}

void RecordRun(host::FilterRecord* record) {
  ParameterList list = {};
  list.entryCount = 1;  // of no type: the descriptor is written, and the entry is not
  WriteDescriptor(record, list);
  host::PIDescriptorParameters* const descriptors = record->descriptorParameters;
  if (descriptors != nullptr) descriptors->recordInfo = host::kDialogNone;
}

// The mode's number tells the samples' width; a host that says another one beside it would have its pixels
// read as what they are not.
bool IsCleanable(const host::FilterRecord& record, const PixelLayout& layout) {
  const bool isDepthAsUsual = record.depth == 0 || record.depth == 8 * layout.channelBytes;
  return isDepthAsUsual && TreatmentOf(layout) == Treatment::kClean;
}

bool IsTooLarge(const host::VRect& area, const PixelLayout& layout) {
  const int64_t width = WidthOf(area), height = HeightOf(area);
  if (width > kLargestTiledSide || height > kLargestTiledSide) return true;
  const int64_t pixelBytes = std::max(layout.MainPixelBytes(), layout.ExtraPixelBytes());
  return width * height * pixelBytes > std::numeric_limits<int32_t>::max();
}

ChannelMeaning MeaningOf(const host::FilterRecord& record) {
  const int16_t mode = record.imageMode;
  return mode == host::kModeLab || mode == host::kModeLab48 ? ChannelMeaning::kOpponents
                                                            : ChannelMeaning::kRgb;
}

// Cleans the picture in place, on this thread alone. *isFound tells whether there was anything to take out;
// where there was not, and after an error, the picture is to be thrown away.
int32_t CleanPicture(const PictureView& picture, ChannelMeaning meaning, const Progress& progress,
                     bool* isFound) {
  constexpr double kLooked = 0.5;  // looking costs about as much as removing
  Settings settings;
  settings.isAutomatic = true;
  Workspace workspace;
  Analysis analysis;
  PictureTiles tiles;
  int32_t result = AnalyseAnySize(picture, workspace, progress.Part(0.0, kLooked), &analysis, &tiles);
  if (result != kSuccess) return result;
  Findings findings;
  result = DecideWhole(tiles, analysis, settings, workspace, &findings);
  *isFound = findings.seedCells > 0;
  if (result != kSuccess || !*isFound) return result;
  Mask mask;
  result = Shape(findings, settings, &mask);
  if (result != kSuccess) return result;
  ApplyOptions options;
  options.chain = analysis.chain;
  RestorationSettings restoration;
  restoration.meaning = meaning;
  return TakeOutAnySize(picture, picture, findings, mask, workspace, options, restoration,
                        progress.Part(kLooked, 1.0));
}

// Nothing is to be written back. `reason` is told where somebody is there to be told.
int32_t LeaveAsItIs(host::FilterRecord* record, const char* reason) {
  if (!IsPlayedSilently(*record)) return Tell(*record, reason);
  RecordRun(record);
  return DontCopyBack(record);
}

int32_t Clean(host::FilterRecord* record) {
  RequestNothing(record);  // whatever a host has left there: no output may be stored before there is one
  PixelLayout layout = LayoutOf(*record);
  if (!IsCleanable(*record, layout)) return Tell(*record, kModeRefusal);
  // The other filter's conversion of Lab on the way out changes colours where there is no pattern.
  ImageMode mode = *layout.mode;
  mode.copyBack = nullptr;
  layout.mode = &mode;

  const host::VRect area = FindWorkRectangle(record);
  if (!HasPixels(area)) return LeaveAsItIs(record, kNothingSelected);
  if (IsTooLarge(area, layout)) return Tell(*record, kTooLarge);
  const RunBuffers buffers;
  int32_t result = FetchImage(record, area, layout);
  if (result != kSuccess) return result;

  HostReports reports(*record);
  bool isFound = false;
  result =
      CleanPicture(PictureOf(ViewOf(imageInfo.mainBuffer)), MeaningOf(*record), reports.progress(), &isFound);
  if (reports.isCancelled()) return kUserCancelled;
  if (result != kSuccess) return result;
  if (!isFound) return LeaveAsItIs(record, kNothingFound);
  result = CopyBack(record, area, layout);
  if (result == kSuccess) RecordRun(record);
  return result;
}

}  // namespace

}  // namespace tessaline

intptr_t AutomaticMain(int16_t selector, void* parameterBlock, intptr_t*, int16_t* result) {
  using namespace tessaline;
  const EngineTurn turn;
  auto* const record =
      selector == host::kSelectorAbout ? nullptr : static_cast<host::FilterRecord*>(parameterBlock);
  // From now on the host's rectangles are those of 32 bits, where it offers them.
  if (turn.IsMine() && record != nullptr && record->bigDocumentData != nullptr) {
    record->bigDocumentData->PluginUsing32BitCoordinates = 1;
  }
  const auto start = [&] {
    return turn.IsMine() ? Clean(record) : Refuse(*record, kSecondStart, kUserCancelled);
  };
  const auto code =
      static_cast<int16_t>(WithoutExceptions([&] { return Dispatch(selector, record, result, start); }));
  if (result != nullptr) *result = code;
  return code;
}
