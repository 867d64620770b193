#include "testhost/fake_host.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

#include "platform/memory.h"
#include "testhost/guarded_block.h"

namespace tessaline::testhost {

namespace {

using host::OSErr;
using host::OSType;
using host::VRect;

constexpr uint8_t kGuardByte = 0xA5;  // between rows and behind them
constexpr uint8_t kStaleByte = 0xDB;  // over memory that was handed out and is no longer valid
constexpr int16_t kNonsense = 31111;  // in 16-bit fields of a host that offers 32 bits
constexpr OSErr kMissingParameter = -1715;

std::string Text(const char* format, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

std::string RectangleText(const VRect& r) {
  return Text("[%d %d %d %d]", r.top, r.left, r.bottom, r.right);
}

bool Same(const VRect& a, const VRect& b) {
  return a.top == b.top && a.left == b.left && a.bottom == b.bottom && a.right == b.right;
}

// Memory handed to the filter for one rectangle.
struct Delivery {
  VRect rectangle = {0, 0, 0, 0};
  int32_t rowBytes = 0;  // of pixels
  int32_t rowStep = 0;   // with padding
  std::vector<uint8_t> memory;
  std::vector<uint8_t> original;  // what was in it, for memory that the filter must not change

  bool IsEmpty() const { return memory.empty(); }
  int32_t Rows() const { return rectangle.bottom - rectangle.top; }
  uint8_t* Row(int32_t row) { return memory.data() + size_t{static_cast<uint32_t>(row)} * rowStep; }

  bool GuardsAreIntact() const {
    for (size_t i = 0; i < memory.size(); ++i) {
      if (i % rowStep >= static_cast<size_t>(rowBytes) && memory[i] != kGuardByte) return false;
    }
    return true;
  }
};

// A handle of the host's: the filter sees the address of `master`.
struct HostHandle {
  void* master;
  std::vector<char> memory;
};

class FakeHost {
 public:
  FakeHost(host::EntryPoint entry, const Document& source, const Switches& switches);
  ~FakeHost() { current_ = nullptr; }
  Report Run();

 private:
  // The records as the filter sees them.
  void FillRecord();
  void FillRectangles();
  void FillTables();
  void FillDescriptors();

  bool Call(int16_t selector);
  void CallAbout();
  void CheckOwnedFields(const host::FilterRecord& before, const host::BigDocumentStruct& bigBefore,
                        int16_t selector);
  void Finish();
  void Blend();

  bool Uses32Bits() const { return switches_.offer32Bits && big_.PluginUsing32BitCoordinates != 0; }
  VRect Rectangle(VRect host::BigDocumentStruct::*wide, host::Rect host::FilterRecord::*narrow) const;
  VRect InputRectangle() const {
    return Rectangle(&host::BigDocumentStruct::inRect32, &host::FilterRecord::inRect);
  }
  VRect OutputRectangle() const {
    return Rectangle(&host::BigDocumentStruct::outRect32, &host::FilterRecord::outRect);
  }
  VRect MaskRectangle() const {
    return Rectangle(&host::BigDocumentStruct::maskRect32, &host::FilterRecord::maskRect);
  }
  bool IsNonEmpty(const VRect& r) const {
    if (switches_.style == Style::kRefillOnChangeAndClip) return r.right > 0 && r.bottom > 0;
    return r.right > r.left && r.bottom > r.top;
  }

  OSErr Advance(bool byFilter);
  void StorePending();
  bool IsInside(const VRect& r) const;
  void Retire(Delivery* delivery);
  void Deliver(Delivery* delivery, const VRect& rectangle, const std::vector<uint8_t>& picture,
               int32_t pixelBytes, int32_t padding);
  void CheckInput();

  bool MustFail() { return ++report_.failableCalls == switches_.failCallAt; }
  void Complain(const std::string& complaint) { report_.complaints.push_back(complaint); }
  void Trace(const std::string& line) {
    if (switches_.trace) switches_.trace(line);
  }

  HostHandle* NewHandle(int32_t bytes);
  HostHandle* FindHandle(host::Handle handle);
  void DisposeHandle(host::Handle handle);
  template <typename Value, typename Stored>
  OSErr GetValue(host::ReadDescriptorToken token, OSType type, Stored DescriptorValue::*member, Value* value);
  OSErr PutValue(host::WriteDescriptorToken token, const DescriptorValue& value);

  // The routines without a context that the tables point to.
  struct Routines;

  static FakeHost* current_;

  host::EntryPoint entry_;
  const Document& source_;
  Switches switches_;
  Report report_;
  std::vector<uint8_t> written_;  // the picture as the filter wants it

  GuardedBlock recordMemory_;
  host::FilterRecord* record_;
  host::BigDocumentStruct big_ = {};
  host::PlatformData platform_ = {};
  host::HandleProcs handleProcs_ = {};
  host::BufferProcs bufferProcs_ = {};
  host::ResourceProcs resourceProcs_ = {};
  host::PropertyProcs propertyProcs_ = {};
  host::SPBasicSuite basicSuite_ = {};
  host::PIDescriptorParameters descriptors_ = {};
  host::ReadDescriptorProcs readProcs_ = {};
  host::WriteDescriptorProcs writeProcs_ = {};
  host::Str255 errorString_ = {};
  intptr_t dataWord_ = 0;

  Delivery input_, output_, mask_, retired_[3];

  std::vector<std::unique_ptr<HostHandle>> handles_;
  std::map<host::Handle, std::vector<DescriptorValue>> descriptorsByHandle_;
  std::vector<DescriptorValue> reading_, writing_;
  OSType* readingKeys_ = nullptr;
  size_t readingAt_ = 0;  // one past the value at hand
  bool isReading_ = false, isWriting_ = false;
};

FakeHost* FakeHost::current_ = nullptr;

// Tokens of readers and writers: small numbers, as in some hosts.
// NOLINTBEGIN(performance-no-int-to-ptr)
const host::ReadDescriptorToken kReaderToken = reinterpret_cast<void*>(intptr_t{1});
const host::WriteDescriptorToken kWriterToken = reinterpret_cast<void*>(intptr_t{2});
// NOLINTEND(performance-no-int-to-ptr)

// ------------------------------------------------------------------------------------------------- callbacks

// A routine as the filter gets it: what the host allocates in it is not the filter's, whose allocations a
// test may let fail.
template <auto Routine>
struct Callback;
template <typename Result, typename... Arguments, Result (*Routine)(Arguments...)>
struct Callback<Routine> {
  static Result Call(Arguments... arguments) {
    const AllocationFailurePause hostAtWork;
    return Routine(arguments...);
  }
};

struct FakeHost::Routines {
  static OSErr AdvanceState() { return current_->Advance(true); }

  static host::Boolean Abort() {
    const int32_t at = current_->switches_.abortAtCall;
    const bool isAborted = ++current_->report_.abortCalls >= at && at != kNever;
    return isAborted ? 0x80 : 0;  // any bit means true
  }

  static void Progress(int32_t done, int32_t total) {
    ++current_->report_.progressCalls;
    if (total <= 0 || done < 0 || done > total) current_->Complain(Text("progress %d of %d", done, total));
  }

  static host::Handle NewHandle(int32_t size) {
    if (current_->MustFail()) return nullptr;
    return &current_->NewHandle(size)->master;
  }
  static void DisposeHandle(host::Handle handle) { current_->DisposeHandle(handle); }
  static int32_t HandleSize(host::Handle handle) {
    const HostHandle* const found = current_->FindHandle(handle);
    if (found == nullptr || current_->switches_.handles == HandleTable::kSizesAreZero) return 0;
    return static_cast<int32_t>(found->memory.size());
  }
  static OSErr SetHandleSize(host::Handle, int32_t) { return -108; }
  static void* LockHandle(host::Handle handle, host::Boolean) { return *handle; }
  static void UnlockHandle(host::Handle) {}
  static void RecoverSpace(int32_t) {}

  static host::ReadDescriptorToken OpenReader(host::Handle handle, OSType* keys);
  static OSErr CloseReader(host::ReadDescriptorToken token);
  static host::Boolean GetKey(host::ReadDescriptorToken token, OSType* key, OSType* type, int32_t* flags);
  static OSErr GetInteger(host::ReadDescriptorToken token, int32_t* value) {
    return current_->GetValue(token, host::kDescriptorInteger, &DescriptorValue::integer, value);
  }
  static OSErr GetFloat(host::ReadDescriptorToken token, double* value) {
    return current_->GetValue(token, host::kDescriptorFloat, &DescriptorValue::real, value);
  }
  static OSErr GetBoolean(host::ReadDescriptorToken token, host::Boolean* value) {
    return current_->GetValue(token, host::kDescriptorBoolean, &DescriptorValue::integer, value);
  }
  static OSErr GetEnumerated(host::ReadDescriptorToken token, OSType* value) {
    const size_t at = current_->readingAt_;
    const OSType type = at > 0 ? current_->reading_[at - 1].type : 0;
    return current_->GetValue(token, type, &DescriptorValue::integer, value);
  }
  static OSErr GetText(host::ReadDescriptorToken token, host::Handle* handle);

  static host::WriteDescriptorToken OpenWriter();
  static OSErr CloseWriter(host::WriteDescriptorToken token, host::Handle* descriptor);
  static OSErr PutInteger(host::WriteDescriptorToken token, OSType key, int32_t value) {
    return current_->PutValue(token, {key, host::kDescriptorInteger, value, 0.0, {}});
  }
  static OSErr PutFloat(host::WriteDescriptorToken token, OSType key, const double* value) {
    return current_->PutValue(token, {key, host::kDescriptorFloat, 0, *value, {}});
  }
  static OSErr PutBoolean(host::WriteDescriptorToken token, OSType key, host::Boolean value) {
    return current_->PutValue(token, {key, host::kDescriptorBoolean, value, 0.0, {}});
  }
  static OSErr PutText(host::WriteDescriptorToken token, OSType key, host::Handle handle) {
    return current_->PutValue(token, {key, host::kDescriptorText, 0, 0.0, static_cast<const char*>(*handle)});
  }
  static OSErr PutEnumerated(host::WriteDescriptorToken token, OSType key, OSType type, OSType value) {
    return current_->PutValue(token, {key, type, value, 0.0, {}});
  }
};

// ----------------------------------------------------------------------------------------- handles,
// descriptors

HostHandle* FakeHost::NewHandle(int32_t bytes) {
  handles_.push_back(std::make_unique<HostHandle>());
  HostHandle* const handle = handles_.back().get();
  handle->memory.assign(static_cast<size_t>(std::max(bytes, 0)), '\x5A');  // not zero: nobody promised that
  handle->master = handle->memory.data();
  return handle;
}

HostHandle* FakeHost::FindHandle(host::Handle handle) {
  for (const auto& made : handles_) {
    if (&made->master == handle) return made.get();
  }
  Complain("a handle that this host did not make, or that was disposed already");
  return nullptr;
}

void FakeHost::DisposeHandle(host::Handle handle) {
  const HostHandle* const found = FindHandle(handle);
  if (found == nullptr) return;
  descriptorsByHandle_.erase(handle);
  std::erase_if(handles_, [found](const auto& made) { return made.get() == found; });
}

host::ReadDescriptorToken FakeHost::Routines::OpenReader(host::Handle handle, OSType* keys) {
  if (current_->MustFail() || handle == nullptr) return nullptr;
  const auto found = current_->descriptorsByHandle_.find(handle);
  if (found == current_->descriptorsByHandle_.end() || current_->isReading_) {
    current_->Complain("a reader opened on no descriptor, or while another is open");
    return nullptr;
  }
  current_->reading_ = found->second;
  current_->readingKeys_ = keys;
  current_->readingAt_ = 0;
  current_->isReading_ = true;
  return kReaderToken;
}

OSErr FakeHost::Routines::CloseReader(host::ReadDescriptorToken token) {
  if (token != kReaderToken || !current_->isReading_) current_->Complain("no reader to close");
  current_->isReading_ = false;
  return current_->MustFail() ? kMissingParameter : 0;
}

host::Boolean FakeHost::Routines::GetKey(host::ReadDescriptorToken token, OSType* key, OSType* type,
                                         int32_t* flags) {
  if (token != kReaderToken || !current_->isReading_) current_->Complain("a key from no reader");
  if (current_->MustFail() || current_->readingAt_ >= current_->reading_.size()) return 0;
  const DescriptorValue& value = current_->reading_[current_->readingAt_++];
  *key = value.key;
  *type = value.type;
  *flags = 0;
  for (OSType* wanted = current_->readingKeys_; *wanted != 0; ++wanted) {
    if (*wanted == value.key) *wanted = host::kDescriptorNull;
  }
  return 0x40;
}

template <typename Value, typename Stored>
OSErr FakeHost::GetValue(host::ReadDescriptorToken token, OSType type, Stored DescriptorValue::*member,
                         Value* value) {
  if (token != kReaderToken || !isReading_ || readingAt_ == 0) {
    Complain("a value from no reader");
    return kMissingParameter;
  }
  const DescriptorValue& stored = reading_[readingAt_ - 1];
  if (stored.type != type) {
    Complain("a " + CodeText(type) + " asked of a " + CodeText(stored.type));
    return kMissingParameter;
  }
  if (MustFail()) return kMissingParameter;
  *value = static_cast<Value>(stored.*member);
  return 0;
}

OSErr FakeHost::Routines::GetText(host::ReadDescriptorToken token, host::Handle* handle) {
  int64_t unused = 0;
  const OSErr code = current_->GetValue(token, host::kDescriptorText, &DescriptorValue::integer, &unused);
  if (code != 0) return code;
  const std::string& text = current_->reading_[current_->readingAt_ - 1].text;
  HostHandle* const made = current_->NewHandle(static_cast<int32_t>(text.size()));
  std::copy(text.begin(), text.end(), made->memory.begin());
  *handle = &made->master;
  return 0;
}

host::WriteDescriptorToken FakeHost::Routines::OpenWriter() {
  if (current_->MustFail()) return nullptr;
  current_->writing_.clear();
  current_->isWriting_ = true;
  return kWriterToken;
}

OSErr FakeHost::Routines::CloseWriter(host::WriteDescriptorToken token, host::Handle* descriptor) {
  if (token != kWriterToken || !current_->isWriting_) current_->Complain("no writer to close");
  current_->isWriting_ = false;
  if (current_->MustFail()) return kMissingParameter;
  HostHandle* const made = current_->NewHandle(4);
  current_->descriptorsByHandle_[&made->master] = current_->writing_;
  *descriptor = &made->master;
  return 0;
}

OSErr FakeHost::PutValue(host::WriteDescriptorToken token, const DescriptorValue& value) {
  if (token != kWriterToken || !isWriting_) Complain("a value put into no writer");
  if (MustFail()) return kMissingParameter;
  writing_.push_back(value);
  return 0;
}

// ------------------------------------------------------------------------------------------------ the
// records

FakeHost::FakeHost(host::EntryPoint entry, const Document& source, const Switches& switches)
    : entry_(entry),
      source_(source),
      switches_(switches),
      written_(source.pixels),
      recordMemory_(switches.recordBytes),
      record_(static_cast<host::FilterRecord*>(recordMemory_.data())) {
  current_ = this;
  FillRecord();
  FillRectangles();
  FillTables();
  FillDescriptors();
}

void FakeHost::FillRecord() {
  record_->planes = source_.planes;
  record_->imageMode = source_.mode;
  record_->depth = source_.depth;
  record_->haveMask = source_.mask.empty() ? 0 : 0xFF;
  record_->autoMask = switches_.autoMask;
  record_->filterCase = source_.mask.empty() ? 1 : 2;
  record_->hostSig = 0x54455354;  // 'TEST'
  record_->inputRate = host::kFixedOne;
  record_->maskRate = host::kFixedOne;
  record_->imageHRes = 300 * host::kFixedOne;
  record_->imageVRes = 300 * host::kFixedOne;
  record_->inNonLayerPlanes = source_.planes;
  record_->outNonLayerPlanes = source_.planes;
  platform_.hwnd = switches_.window;
  if (!switches_.advanceIsNull) record_->advanceState = Callback<Routines::AdvanceState>::Call;
  if (switches_.callbacksAreNull) return;
  record_->abortProc = Callback<Routines::Abort>::Call;
  record_->progressProc = Callback<Routines::Progress>::Call;
  record_->platformData = &platform_;
  record_->errorString = &errorString_;
}

void FakeHost::FillRectangles() {
  const VRect filter =
      switches_.hasFilterRectangle ? switches_.filterRectangle : VRect{0, 0, source_.height, source_.width};
  if (!switches_.offer32Bits) {
    const auto narrow = [](int32_t value) { return static_cast<int16_t>(value); };
    record_->imageSize = {narrow(source_.height), narrow(source_.width)};
    record_->wholeSize = record_->imageSize;
    record_->filterRect = {narrow(filter.top), narrow(filter.left), narrow(filter.bottom),
                           narrow(filter.right)};
    if (switches_.hasStaleRectangles) {
      record_->outRect = {narrow(source_.height - 1), 0, narrow(source_.height), narrow(source_.width)};
      record_->inRect = record_->outRect;
    }
    return;
  }
  big_.imageSize32 = {source_.height, source_.width};
  big_.wholeSize32 = big_.imageSize32;
  big_.filterRect32 = filter;
  if (switches_.hasStaleRectangles) {
    big_.outRect32 = {source_.height - 1, 0, source_.height, source_.width};
    big_.inRect32 = big_.outRect32;
  }
  const host::Rect nonsense = {kNonsense, kNonsense - 1, kNonsense - 2, kNonsense - 3};
  record_->imageSize = {kNonsense, kNonsense};
  record_->filterRect = nonsense;
  record_->inRect = nonsense;
  record_->outRect = nonsense;
  record_->maskRect = nonsense;
  record_->bigDocumentData = &big_;
}

void FakeHost::FillTables() {
  const HandleTable kind = switches_.handles;
  handleProcs_ = {1,
                  static_cast<int16_t>(kind == HandleTable::kSevenRoutines ? 7 : 8),
                  Callback<Routines::NewHandle>::Call,
                  Callback<Routines::DisposeHandle>::Call,
                  kind == HandleTable::kMissingRoutine ? nullptr : Callback<Routines::HandleSize>::Call,
                  Callback<Routines::SetHandleSize>::Call,
                  Callback<Routines::LockHandle>::Call,
                  Callback<Routines::UnlockHandle>::Call,
                  Callback<Routines::RecoverSpace>::Call,
                  Callback<Routines::DisposeHandle>::Call};
  if (kind != HandleTable::kNull) record_->handleProcs = &handleProcs_;
  if (switches_.otherTablesAreNull) return;
  bufferProcs_.bufferProcsVersion = 2;
  bufferProcs_.numBufferProcs = 5;
  resourceProcs_.resourceProcsVersion = 3;
  propertyProcs_.propertyProcsVersion = 1;
  record_->bufferProcs = &bufferProcs_;
  record_->resourceProcs = &resourceProcs_;
  record_->propertyProcs = &propertyProcs_;
  record_->sSPBasic = &basicSuite_;
}

void FakeHost::FillDescriptors() {
  if (switches_.descriptors == DescriptorTables::kRecordNull) return;
  record_->descriptorParameters = &descriptors_;
  descriptors_.playInfo = switches_.playInfo;
  descriptors_.recordInfo = host::kDialogNone;
  if (switches_.hasRecording) {
    HostHandle* const handle = NewHandle(4);
    descriptorsByHandle_[&handle->master] = switches_.recording;
    descriptors_.descriptor = &handle->master;
  }
  if (switches_.descriptors == DescriptorTables::kTablesNull) return;
  readProcs_.numReadDescriptorProcs = 18;
  readProcs_.openReadDescriptorProc = Callback<Routines::OpenReader>::Call;
  readProcs_.closeReadDescriptorProc = Callback<Routines::CloseReader>::Call;
  readProcs_.getKeyProc = Callback<Routines::GetKey>::Call;
  readProcs_.getIntegerProc = Callback<Routines::GetInteger>::Call;
  readProcs_.getFloatProc = Callback<Routines::GetFloat>::Call;
  readProcs_.getBooleanProc = Callback<Routines::GetBoolean>::Call;
  readProcs_.getTextProc = Callback<Routines::GetText>::Call;
  readProcs_.getEnumeratedProc = Callback<Routines::GetEnumerated>::Call;
  writeProcs_.numWriteDescriptorProcs = 16;
  writeProcs_.openWriteDescriptorProc = Callback<Routines::OpenWriter>::Call;
  writeProcs_.closeWriteDescriptorProc = Callback<Routines::CloseWriter>::Call;
  writeProcs_.putIntegerProc = Callback<Routines::PutInteger>::Call;
  writeProcs_.putFloatProc = Callback<Routines::PutFloat>::Call;
  writeProcs_.putBooleanProc = Callback<Routines::PutBoolean>::Call;
  writeProcs_.putTextProc = Callback<Routines::PutText>::Call;
  writeProcs_.putEnumeratedProc = Callback<Routines::PutEnumerated>::Call;
  descriptors_.readDescriptorProcs = &readProcs_;
  descriptors_.writeDescriptorProcs = &writeProcs_;
}

VRect FakeHost::Rectangle(VRect host::BigDocumentStruct::*wide,
                          host::Rect host::FilterRecord::*narrow) const {
  if (Uses32Bits()) return big_.*wide;
  const host::Rect r = record_->*narrow;
  return {r.top, r.left, r.bottom, r.right};
}

// ---------------------------------------------------------------------------------------------------
// advancing

bool FakeHost::IsInside(const VRect& r) const {
  return r.top >= 0 && r.left >= 0 && r.top < r.bottom && r.left < r.right && r.bottom <= source_.height &&
         r.right <= source_.width;
}

void FakeHost::CheckInput() {
  for (const Delivery* const delivery : {&input_, &mask_}) {
    if (switches_.checksMemory && delivery->memory != delivery->original)
      Complain("input or mask memory was written to");
  }
}

// Memory that is no longer valid: kept a little and overwritten, so that whoever still reads it gets nonsense
// and whoever still writes to it is found out.
void FakeHost::Retire(Delivery* delivery) {
  if (!switches_.freshAddresses || delivery->IsEmpty()) return;
  for (const Delivery& old : retired_) {
    if (!std::all_of(old.memory.begin(), old.memory.end(), [](uint8_t b) { return b == kStaleByte; })) {
      Complain("memory was written to after it had become invalid");
    }
  }
  std::fill(delivery->memory.begin(), delivery->memory.end(), kStaleByte);
  retired_[2] = std::move(retired_[1]);
  retired_[1] = std::move(retired_[0]);
  retired_[0] = std::move(*delivery);
  *delivery = {};
}

void FakeHost::Deliver(Delivery* delivery, const VRect& rectangle, const std::vector<uint8_t>& picture,
                       int32_t pixelBytes, int32_t padding) {
  Retire(delivery);
  delivery->rectangle = rectangle;
  delivery->rowBytes = (rectangle.right - rectangle.left) * pixelBytes;
  delivery->rowStep = delivery->rowBytes + padding;
  const size_t bytes = static_cast<size_t>(delivery->rowStep) * delivery->Rows();
  if (switches_.checksMemory) {
    delivery->memory.assign(bytes, kGuardByte);
  } else {
    delivery->memory.resize(bytes);
  }
  const int64_t pictureRowBytes = int64_t{source_.width} * pixelBytes;
  for (int32_t row = 0; row < delivery->Rows(); ++row) {
    const uint8_t* const from =
        picture.data() + (rectangle.top + row) * pictureRowBytes + int64_t{rectangle.left} * pixelBytes;
    std::memcpy(delivery->Row(row), from, static_cast<size_t>(delivery->rowBytes));
  }
  if (switches_.checksMemory) delivery->original = delivery->memory;
}

void FakeHost::StorePending() {
  if (output_.IsEmpty()) return;
  report_.isOutputTouched = true;
  if (switches_.checksMemory && !output_.GuardsAreIntact())
    Complain("the bytes between output rows were written to");
  for (int32_t row = 0; row < output_.Rows(); ++row) {
    uint8_t* const to = written_.data() + (output_.rectangle.top + row) * source_.RowBytes() +
                        int64_t{output_.rectangle.left} * source_.PixelBytes();
    std::memcpy(to, output_.Row(row), static_cast<size_t>(output_.rowBytes));
  }
}

OSErr FakeHost::Advance(bool byFilter) {
  const VRect in = InputRectangle(), out = OutputRectangle();
  VRect mask = MaskRectangle();
  if (byFilter) {
    ++report_.advances;
    const bool mustFail = MustFail() || report_.advances == switches_.failAdvanceAt;
    Trace("advance in " + RectangleText(in) + " out " + RectangleText(out) + " mask " + RectangleText(mask) +
          (mustFail ? Text(" -> %d", switches_.failCode) : ""));
    if (mustFail) return switches_.failCode;
  }
  CheckInput();
  StorePending();

  const bool wantsMask = IsNonEmpty(mask) && !source_.mask.empty();
  if (switches_.style == Style::kRefillAlways && source_.mask.empty()) {
    if (Uses32Bits()) {
      big_.maskRect32 = {0, 0, 0, 0};
    } else {
      record_->maskRect = {0, 0, 0, 0};
    }
  }
  for (const auto& [rectangle, isWanted] :
       {std::pair{in, IsNonEmpty(in)}, std::pair{out, IsNonEmpty(out)}, std::pair{mask, wantsMask}}) {
    if (isWanted && !IsInside(rectangle)) {
      Complain("a rectangle outside the picture: " + RectangleText(rectangle));
      return host::kParameterError;
    }
  }
  const bool deliversNothing = byFilter && report_.advances == switches_.deliverNothingAt;
  if (IsNonEmpty(in) || IsNonEmpty(out)) {
    if (record_->inLoPlane != 0 || record_->inHiPlane != source_.planes - 1 || record_->outLoPlane != 0 ||
        record_->outHiPlane != source_.planes - 1) {
      Complain("pixels asked for without all planes");
    }
  }

  if (!IsNonEmpty(in) || deliversNothing) {
    Retire(&input_);
    input_ = {};
  } else if (switches_.style == Style::kRefillAlways || input_.IsEmpty() || !Same(in, input_.rectangle)) {
    Deliver(&input_, in, source_.pixels, source_.PixelBytes(), switches_.inputPadding);
  }
  if (!IsNonEmpty(out) || deliversNothing) {
    Retire(&output_);
    output_ = {};
  } else {
    const bool holdsSource = switches_.style == Style::kRefillAlways;
    Deliver(&output_, out, holdsSource ? source_.pixels : written_, source_.PixelBytes(),
            switches_.outputPadding);
  }
  if (!wantsMask || deliversNothing || switches_.maskIsNotDelivered) {
    Retire(&mask_);
    mask_ = {};
  } else {
    Deliver(&mask_, mask, source_.mask, 1, switches_.maskPadding);
  }
  const auto address = [](Delivery& delivery) -> void* {
    return delivery.IsEmpty() ? nullptr : delivery.memory.data();
  };
  record_->inData = address(input_);
  record_->inRowBytes = input_.rowStep;
  record_->outData = address(output_);
  record_->outRowBytes = output_.rowStep;
  record_->maskData = address(mask_);
  record_->maskRowBytes = mask_.rowStep;
  return 0;
}

// ------------------------------------------------------------------------------------------------------ a
// run

void FakeHost::CheckOwnedFields(const host::FilterRecord& before, const host::BigDocumentStruct& bigBefore,
                                int16_t selector) {
  // What the filter may set, and what its advances changed, taken over; the rest must be as it was.
  host::FilterRecord allowed = before;
  if (!switches_.offer32Bits) {
    allowed.inRect = record_->inRect;
    allowed.outRect = record_->outRect;
    allowed.maskRect = record_->maskRect;
  }
  allowed.inLoPlane = record_->inLoPlane;
  allowed.inHiPlane = record_->inHiPlane;
  allowed.outLoPlane = record_->outLoPlane;
  allowed.outHiPlane = record_->outHiPlane;
  allowed.inData = record_->inData;
  allowed.inRowBytes = record_->inRowBytes;
  allowed.outData = record_->outData;
  allowed.outRowBytes = record_->outRowBytes;
  allowed.maskData = record_->maskData;
  allowed.maskRowBytes = record_->maskRowBytes;
  // Every byte is the host's. NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
  if (std::memcmp(&allowed, record_, sizeof allowed) != 0) {
    Complain(Text("selector %d changed a field of the host's", selector));
  }
  host::BigDocumentStruct allowedBig = bigBefore;
  allowedBig.PluginUsing32BitCoordinates = big_.PluginUsing32BitCoordinates;
  allowedBig.inRect32 = big_.inRect32;
  allowedBig.outRect32 = big_.outRect32;
  allowedBig.maskRect32 = big_.maskRect32;
  if (std::memcmp(&allowedBig, &big_, sizeof big_) != 0) {
    Complain(Text("selector %d changed a 32-bit field of the host's", selector));
  }
  if (dataWord_ != 0) Complain("the data word is no longer 0");
}

bool FakeHost::Call(int16_t selector) {
  host::FilterRecord before;
  std::memcpy(&before, record_, sizeof before);
  const host::BigDocumentStruct bigBefore = big_;
  int16_t result = 0;
  const auto returned = static_cast<int16_t>([&] {
    const AllocationFailurePause filterAtWork(false);
    return entry_(selector, record_, &dataWord_, &result);
  }());
  CheckOwnedFields(before, bigBefore, selector);
  if (returned != result) Complain("the result returned is not the one stored");
  if (switches_.offer32Bits && big_.PluginUsing32BitCoordinates == 0) Complain("32-bit rectangles not taken");
  if (isReading_ || isWriting_) Complain("a descriptor was left open");
  Trace(Text("selector %d -> %d", selector, result));
  report_.selectors.push_back(selector);
  report_.result = result;
  return result == 0;
}

void FakeHost::CallAbout() {
  // Some hosts give the record no more than its first 240 bytes.
  const GuardedBlock memory(240);
  static_cast<host::AboutRecord*>(memory.data())->platformData = &platform_;
  int16_t result = 1;
  const auto returned = entry_(host::kSelectorAbout, memory.data(), &dataWord_, &result);
  if (result != 0 || returned != 0) Complain("about did not end with 0");
  report_.selectors.push_back(host::kSelectorAbout);
}

void FakeHost::Finish() {
  constexpr int32_t kMostContinues = 10;
  for (int32_t i = 0;
       IsNonEmpty(InputRectangle()) || IsNonEmpty(OutputRectangle()) || IsNonEmpty(MaskRectangle()); ++i) {
    if (i >= kMostContinues) {
      Complain("continue never leaves empty rectangles");
      return;
    }
    if (Advance(false) != 0 || !Call(host::kSelectorContinue)) return;
    constexpr VRect kZero = {0, 0, 0, 0};
    if (!Same(InputRectangle(), kZero) || !Same(OutputRectangle(), kZero) || !Same(MaskRectangle(), kZero)) {
      Complain("continue leaves a rectangle that is not zero on all sides");
    }
  }
  Advance(false);
  Call(host::kSelectorFinish);
}

// The result into the document through the mask, coverage 0 .. 255.
void FakeHost::Blend() {
  const int64_t pixels = int64_t{source_.width} * source_.height;
  const auto blend = [&]<typename Sample>(Sample) {
    for (int64_t i = 0; i < pixels * source_.planes; ++i) {
      Sample from, to;
      std::memcpy(&from, source_.pixels.data() + i * sizeof(Sample), sizeof from);
      std::memcpy(&to, written_.data() + i * sizeof(Sample), sizeof to);
      const double coverage = source_.mask[i / source_.planes] / 255.0;
      to = static_cast<Sample>(from + (static_cast<double>(to) - from) * coverage);
      std::memcpy(written_.data() + i * sizeof(Sample), &to, sizeof to);
    }
  };
  if (source_.depth == 8) blend(uint8_t{});
  if (source_.depth == 16) blend(uint16_t{});
  if (source_.depth == 32) blend(float{});
}

Report FakeHost::Run() {
  if (switches_.about) CallAbout();
  const bool isStarted = (!switches_.parameters || Call(host::kSelectorParameters)) &&
                         Call(host::kSelectorPrepare) && Call(host::kSelectorStart);
  if (isStarted) Finish();
  CheckInput();
  if (report_.result != 0) {
    written_ = source_.pixels;
  } else if (switches_.autoMask && !source_.mask.empty()) {
    Blend();
  }
  report_.document = source_;
  report_.document.pixels = std::move(written_);
  if (record_->parameters != nullptr) Complain("the parameters handle is in use");
  report_.descriptorIsNull = descriptors_.descriptor == nullptr;
  report_.recordInfo = descriptors_.recordInfo;
  report_.handlesLeft = static_cast<int32_t>(handles_.size()) - (report_.descriptorIsNull ? 0 : 1);
  const auto recorded = descriptorsByHandle_.find(descriptors_.descriptor);
  if (recorded != descriptorsByHandle_.end()) {
    report_.wasRecorded = true;
    report_.recorded = recorded->second;
  } else if (!report_.descriptorIsNull) {
    Complain("the descriptor field holds no descriptor");
  }
  report_.errorString.assign(errorString_.text, errorString_.length);
  return std::move(report_);
}

}  // namespace

Report RunFilter(host::EntryPoint entry, const Document& source, const Switches& switches) {
  const AllocationFailurePause hostAtWork;
  FakeHost fakeHost(entry, source, switches);
  return fakeHost.Run();
}

std::string CodeText(host::OSType code) {
  std::string text = "'....'";
  for (int i = 0; i < 4; ++i) {
    const auto character = static_cast<char>(code >> (24 - 8 * i) & 0xFF);
    if (character >= ' ' && character <= '~') text[1 + i] = character;
  }
  return text;
}

}  // namespace tessaline::testhost
