#include "glue/host/plugin_main.h"

#include <algorithm>

#include "buffers/buffer_table.h"
#include "glue/host/host_access.h"
#include "glue/host/host_calls.h"
#include "glue/host/image_mode.h"
#include "glue/host/image_transfer.h"
#include "glue/host/scripting.h"
#include "glue/parameters/door.h"
#include "glue/parameters/filter_parameters.h"
#include "glue/parameters/parameter_list.h"
#include "glue/parameters/settings_record.h"
#include "glue/run/removal_run.h"
#include "image/result_codes.h"
#include "platform/message.h"

namespace tessaline {

HostCall hostCall;

namespace {

constexpr char kTitle[] = "_MainGlueProcess";
constexpr char kModeRefusal[] =
    "Tessaline works on greyscale, RGB and Lab pictures of 8 or 16 bits per channel. Convert the picture to "
    "one of these modes first.";
constexpr char kSecondStart[] =
    "Tessaline is still at work on another picture. Finish that run or close its dialog, then start again.";

DialogOpener g_openDialog = nullptr;

// What one run holds, released on every path out of it.
struct RunHoldings {
  ParameterList* list = nullptr;
  ProgramHandle* parameters = nullptr;

  RunHoldings() = default;
  RunHoldings(const RunHoldings&) = delete;
  RunHoldings& operator=(const RunHoldings&) = delete;
  ~RunHoldings() {
    FreeParameterList(list);
    if (parameters != nullptr) DisposeHandle(parameters);
    FreeTextRecords();
    // By name: a flush visits the lowest slots only, and a single live buffer not at all.
    ReleaseImageBuffers();
    FlushBufferTable();
  }
};

void DescribeImage(const host::VRect& area, const PixelLayout& layout) {
  imageInfo.width = WidthOf(area);
  imageInfo.height = HeightOf(area);
  imageInfo.colorPlanes = layout.colorPlanes;
  imageInfo.extraPlanes = layout.extraPlanes;
  imageInfo.channelBytes = layout.channelBytes;
  imageInfo.mainBuffer = 0;
  imageInfo.alphaBuffer = 0;
  imageInfo.maskBuffer = 0;
}

void ReportProgress(void* user, int32_t done, int32_t total) {
  const auto progress = static_cast<const host::FilterRecord*>(user)->progressProc;
  if (progress != nullptr && total > 0) progress(std::min(done, total), total);
}

bool IsAborted(void* user) {
  const auto isAborted = static_cast<const host::FilterRecord*>(user)->abortProc;
  return isAborted != nullptr && isAborted();
}

int32_t OpenDialog(void* user, int32_t sourceSlot, FilterParameters* parameters) {
  const host::PlatformData* const platform = static_cast<const host::FilterRecord*>(user)->platformData;
  return g_openDialog(platform != nullptr ? platform->hwnd : nullptr, sourceSlot, parameters);
}

RunDoor MakeContext(host::FilterRecord* record) {
  RunDoor context;
  context.progress.progressEnabled = true;
  context.progress.progress = ReportProgress;
  context.progress.abortCheck = IsAborted;
  context.progress.user = record;
  if (g_openDialog != nullptr) context.openDialog = OpenDialog;
  context.user = record;
  return context;
}

// Stores what the host passed. From now on its rectangles are those of 32 bits, where it offers them.
void EnterCall(int16_t selector, void* parameterBlock, intptr_t* data, int16_t* result) {
  hostCall = {parameterBlock, data, result, nullptr};
  if (parameterBlock == nullptr) return;
  if (selector == host::kSelectorAbout) {
    hostCall.basicSuite = static_cast<host::AboutRecord*>(parameterBlock)->sSPBasic;
    return;
  }
  auto* const record = static_cast<host::FilterRecord*>(parameterBlock);
  hostCall.basicSuite = record->sSPBasic;
  if (record->bigDocumentData != nullptr) record->bigDocumentData->PluginUsing32BitCoordinates = 1;
}

// `isMyTurn`: no other call is at work. Only a start needs that, the other selectors touch their record
// alone.
int32_t Start(host::FilterRecord* record, bool isMyTurn) {
  return isMyTurn ? MainGlueProcess(record) : Refuse(*record, kSecondStart, kUserCancelled);
}

}  // namespace

DialogOpener SetDialogOpener(DialogOpener opener) {
  const DialogOpener previous = g_openDialog;
  g_openDialog = opener;
  return previous;
}

int32_t MainGlueProcess(host::FilterRecord* record) {
  RequestNothing(record);  // whatever a host has left there: no output may be stored before there is one
  const host::VRect area = FindWorkRectangle(record);
  ResetBufferTable();
  const PixelLayout layout = LayoutOf(*record);
  if (layout.mode == nullptr) ShowMessage("bad image mode", kTitle);
  DescribeImage(area, layout);
  RunHoldings run;

  const Treatment treatment = TreatmentOf(layout);
  if (treatment == Treatment::kRefuse) {
    return Refuse(*record, kModeRefusal, kUnknownPixelKind);
  }
  const bool isCleaned = treatment == Treatment::kClean && HasPixels(area);
  if (isCleaned) {
    // The run would say the same, but only after a picture of any size was fetched.
    if (RefuseTooLarge(imageInfo.width, imageInfo.height)) return kUserCancelled;
    const int32_t result = FetchImage(record, area, layout);
    if (result != kSuccess) return result;
  }

  run.list = MakeParameterList();
  if (run.list == nullptr) return kOutOfMemory;
  const bool suppressDialog = ReadDescriptor(record, run.list);
  // The list above has the values of the settings record as the last run left it; only then the file is read.
  ClearSettings();
  ReadPreferences();
  ApplySettingsDefaults();
  run.parameters = MakeParameters(*run.list);
  if (run.parameters == nullptr) return kOutOfMemory;

  const bool isKnownWidth = layout.channelBytes == 1 || layout.channelBytes == 2 || layout.channelBytes == 4;
  if (!isKnownWidth) ShowMessage("info->channelbytes is wrong", kTitle);
  if (isCleaned) {
    const int32_t result = RunRemoval(imageInfo.mainBuffer, ParametersOf(run.parameters), run.list,
                                      suppressDialog, MakeContext(record));
    if (result != kSuccess) return result;
  }
  // What is recorded are the values that the run used, defaults included: an action with zeros in it would
  // play them.
  StoreInList(*ParametersOf(run.parameters), run.list);

  // A picture that was not cleaned is not written back either: floats would not come through x 255 and x
  // 1/255 with the same bits, and the brightest not at all.
  const bool isWrittenBack = isCleaned && run.list->noCopyBack == 0;
  const int32_t result = isWrittenBack ? CopyBack(record, area, layout) : DontCopyBack(record);
  // Also when the host could not take the picture: the values that a user chose are not chosen twice.
  const int32_t recordResult = WriteDescriptor(record, *run.list);
  WritePreferences();  // a failure costs nothing but the memory of this run
  return result != kSuccess ? result : recordResult;
}

}  // namespace tessaline

intptr_t PluginMain(int16_t selector, void* parameterBlock, intptr_t* data, int16_t* result) {
  using namespace tessaline;
  const EngineTurn turn;
  if (turn.IsMine()) EnterCall(selector, parameterBlock, data, result);
  auto* const record =
      selector == host::kSelectorAbout ? nullptr : static_cast<host::FilterRecord*>(parameterBlock);
  const auto code = static_cast<int16_t>(WithoutExceptions(
      [&] { return Dispatch(selector, record, result, [&] { return Start(record, turn.IsMine()); }); }));
  if (result != nullptr) *result = code;
  return code;
}
