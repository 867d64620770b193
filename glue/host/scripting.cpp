#include "glue/host/scripting.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>

#include "glue/parameters/filter_parameters.h"
#include "image/result_codes.h"
#include "platform/memory.h"

namespace tessaline {

namespace {

constexpr int32_t kTextHandleBytes = 514;
constexpr int32_t kLongestText = 65536;  // bytes; what says it is longer is no text
// A descriptor that has handed out so many keys will not end: it hands out its first one again and again.
constexpr int32_t kMostKeys = 10000;
constexpr uint32_t kUnitType = FourCharCode("UniT");
// Enumeration values travel as four digits: 0 is '0000', 1 is '0001'.
constexpr uint32_t kEnumerationZero = FourCharCode("0000");
static_assert(kEnumerationZero == 0x30303030);

// Routines that a table must have for this room: up to getEnumeratedProc and putEnumeratedProc.
constexpr int32_t kReadRoutines = 10;
constexpr int32_t kWriteRoutines = 9;

const host::ReadDescriptorProcs* UsableReadProcs(const host::PIDescriptorParameters* descriptors) {
  const host::ReadDescriptorProcs* const procs =
      descriptors != nullptr ? descriptors->readDescriptorProcs : nullptr;
  const bool isUsable = procs != nullptr && procs->numReadDescriptorProcs >= kReadRoutines &&
                        procs->openReadDescriptorProc != nullptr &&
                        procs->closeReadDescriptorProc != nullptr && procs->getKeyProc != nullptr;
  return isUsable ? procs : nullptr;
}

const host::WriteDescriptorProcs* UsableWriteProcs(const host::PIDescriptorParameters* descriptors) {
  const host::WriteDescriptorProcs* const procs =
      descriptors != nullptr ? descriptors->writeDescriptorProcs : nullptr;
  const bool isUsable = procs != nullptr && procs->numWriteDescriptorProcs >= kWriteRoutines &&
                        procs->openWriteDescriptorProc != nullptr &&
                        procs->closeWriteDescriptorProc != nullptr;
  return isUsable ? procs : nullptr;
}

// Clears the field; the handle itself goes only where the host's own routine for it is usable.
void DisposeDescriptor(const host::HandleProcs* handleProcs, host::PIDescriptorParameters* descriptors) {
  const host::Handle handle = descriptors->descriptor;
  descriptors->descriptor = nullptr;
  if (handle != nullptr && HandleProcsAreUsable(handleProcs)) handleProcs->disposeProc(handle);
}

// A reader in use.
struct Reader {
  const host::ReadDescriptorProcs* procs;
  host::ReadDescriptorToken token;
  const host::HandleProcs* handleProcs;
  host::OSType type;  // of the value at hand; 0: the host did not tell

  // The one value at hand by the getter for it; false when there is none or it fails. A host may treat a
  // getter for another type than the stored one as a fatal error, so those are not called.
  template <typename Value>
  bool Get(host::OSType getterType, host::OSErr (*getter)(host::ReadDescriptorToken, Value*), Value* value) {
    if (getter == nullptr || (type != 0 && type != getterType)) return false;
    return getter(token, value) == kSuccess;
  }
};

void TakeInteger(int64_t value, ParameterEntry* entry) {
  if (value < static_cast<int32_t>(entry->minimumBits) || value > static_cast<int32_t>(entry->maximumBits)) {
    return;
  }
  entry->valueBits = static_cast<uint32_t>(value);
}

// The number at hand by the getter for the type that it has: scripts write 3 where 3.0 is meant, and the
// other way round. Where the host does not tell, by the getter for the type of the entry.
bool ReadNumber(Reader& reader, host::OSType entryType, double* value) {
  const host::OSType type = reader.type != 0 ? reader.type : entryType;
  if (type == host::kDescriptorFloat) return reader.Get(type, reader.procs->getFloatProc, value);
  int32_t integer = 0;
  if (!reader.Get(host::kDescriptorInteger, reader.procs->getIntegerProc, &integer)) return false;
  *value = integer;
  return true;
}

// A float is truncated, as everywhere, but must itself lie in the range.
void ReadLong(Reader& reader, ParameterEntry* entry) {
  double value = 0.0;
  if (!ReadNumber(reader, host::kDescriptorInteger, &value)) return;
  if (value >= static_cast<int32_t>(entry->minimumBits) &&
      value <= static_cast<int32_t>(entry->maximumBits)) {
    entry->valueBits = static_cast<uint32_t>(static_cast<int32_t>(value));
  }
}

void ReadFloat(Reader& reader, ParameterEntry* entry) {
  double value = 0.0;
  if (!ReadNumber(reader, host::kDescriptorFloat, &value)) return;
  if (value >= std::bit_cast<float>(entry->minimumBits) &&
      value <= std::bit_cast<float>(entry->maximumBits)) {
    entry->valueBits = std::bit_cast<uint32_t>(static_cast<float>(value));
  }
}

void ReadBoolean(Reader& reader, ParameterEntry* entry) {
  host::Boolean value = 0;
  if (reader.Get(host::kDescriptorBoolean, reader.procs->getBooleanProc, &value)) {
    entry->valueBits = value != 0;
  }
}

void ReadEnumeration(Reader& reader, ParameterEntry* entry) {
  host::OSType value = 0;
  // Hosts tell 'enum' or the enumeration's own type, whatever that is called.
  const bool isOther = reader.type == host::kDescriptorInteger || reader.type == host::kDescriptorFloat ||
                       reader.type == host::kDescriptorBoolean || reader.type == host::kDescriptorText;
  if (isOther || !reader.Get(reader.type, reader.procs->getEnumeratedProc, &value)) return;
  TakeInteger(value >= kEnumerationZero ? value - kEnumerationZero : value, entry);
}

void ReadText(Reader& reader, ParameterList* list, int32_t index) {
  // Without the host's handle routines its text could be neither measured nor given back.
  if (!HandleProcsAreUsable(reader.handleProcs)) return;
  host::Handle handle = nullptr;
  if (!reader.Get(host::kDescriptorText, reader.procs->getTextProc, &handle) || handle == nullptr) return;
  OwnedHandle text;
  text.Adopt(reader.handleProcs, handle);
  const int32_t length = std::max(text.size(), 0);
  if (length > kLongestText) return;
  const OwnedBlock<char> terminated = AllocateBlock<char>(static_cast<size_t>(length) + 1);
  if (!terminated || (text.data() == nullptr && length > 0)) return;
  if (length > 0) std::memcpy(terminated.get(), text.data(), static_cast<size_t>(length));
  SetEntryText(list, index, terminated.get());
}

void ReadEntry(Reader& reader, ParameterList* list, int32_t index) {
  ParameterEntry* const entry = &list->entries[index];
  if (entry->key == kKeyUnit || IsEnumerationType(entry->type)) {
    ReadEnumeration(reader, entry);
  } else if (entry->type == kTypeLong) {
    ReadLong(reader, entry);
  } else if (entry->type == kTypeFloat) {
    ReadFloat(reader, entry);
  } else if (entry->type == kTypeBool) {
    ReadBoolean(reader, entry);
  } else if (entry->type == kTypePath) {
    ReadText(reader, list, index);
  }
}

// A writer in use. `texts` live until it is closed.
struct Writer {
  const host::WriteDescriptorProcs* procs;
  host::WriteDescriptorToken token;
  const host::HandleProcs* handleProcs;
  std::array<OwnedHandle, kMostEntries> texts;
};

void PutEnumeration(Writer& writer, const ParameterEntry& entry, uint32_t type) {
  if (writer.procs->putEnumeratedProc == nullptr) return;
  writer.procs->putEnumeratedProc(writer.token, entry.key, type, entry.valueBits + kEnumerationZero);
}

void PutText(Writer& writer, const ParameterEntry& entry, OwnedHandle* handle) {
  const char* const text = EntryText(entry);
  if (text == nullptr || writer.procs->putTextProc == nullptr) return;
  if (!handle->Make(writer.handleProcs, kTextHandleBytes)) return;
  std::memcpy(handle->data(), text, strnlen(text, kTextHandleBytes - 1));
  writer.procs->putTextProc(writer.token, entry.key, handle->get());
}

void PutEntry(Writer& writer, const ParameterEntry& entry, OwnedHandle* handle) {
  if (entry.key == kKeyUnit && entry.type == kTypeLong) {
    PutEnumeration(writer, entry, kUnitType);
  } else if (IsEnumerationType(entry.type)) {
    PutEnumeration(writer, entry, entry.type);
  } else if (entry.type == kTypeLong && writer.procs->putIntegerProc != nullptr) {
    writer.procs->putIntegerProc(writer.token, entry.key, static_cast<int32_t>(entry.valueBits));
  } else if (entry.type == kTypeFloat && writer.procs->putFloatProc != nullptr) {
    const double value = std::bit_cast<float>(entry.valueBits);
    writer.procs->putFloatProc(writer.token, entry.key, &value);
  } else if (entry.type == kTypeBool && writer.procs->putBooleanProc != nullptr) {
    writer.procs->putBooleanProc(writer.token, entry.key, entry.valueBits != 0);
  } else if (entry.type == kTypePath) {
    PutText(writer, entry, handle);
  }
}

}  // namespace

bool ReadDescriptor(host::FilterRecord* record, ParameterList* list) {
  host::PIDescriptorParameters* const descriptors = record->descriptorParameters;
  const bool suppressDialog = descriptors == nullptr || descriptors->playInfo != host::kDialogDisplay;
  const host::ReadDescriptorProcs* const procs = UsableReadProcs(descriptors);
  if (list->entryCount <= 0 || procs == nullptr || descriptors->descriptor == nullptr) return suppressDialog;

  // The host overwrites the keys that it has delivered, so what it delivers is compared with the list
  // instead.
  host::OSType keys[kMostEntries + 1] = {};
  for (int32_t i = 0; i < list->entryCount; ++i) keys[i] = list->entries[i].key;
  Reader reader{procs, procs->openReadDescriptorProc(descriptors->descriptor, keys), record->handleProcs, 0};
  if (reader.token == nullptr) return suppressDialog;

  host::OSType key = 0;
  int32_t flags = 0;
  for (int32_t n = 0; n < kMostKeys && procs->getKeyProc(reader.token, &key, &reader.type, &flags); ++n) {
    for (int32_t i = 0; i < list->entryCount; ++i) {
      if (list->entries[i].key == key) ReadEntry(reader, list, i);
    }
    reader.type = 0;
  }
  procs->closeReadDescriptorProc(reader.token);
  DisposeDescriptor(record->handleProcs, descriptors);
  return suppressDialog;
}

int32_t WriteDescriptor(host::FilterRecord* record, const ParameterList& list) {
  host::PIDescriptorParameters* const descriptors = record->descriptorParameters;
  const host::WriteDescriptorProcs* const procs = UsableWriteProcs(descriptors);
  if (list.entryCount <= 0 || procs == nullptr) return kSuccess;
  Writer writer{procs, procs->openWriteDescriptorProc(), record->handleProcs, {}};
  if (writer.token == nullptr) return kSuccess;

  for (int32_t i = 0; i < list.entryCount; ++i) PutEntry(writer, list.entries[i], &writer.texts[i]);
  DisposeDescriptor(record->handleProcs, descriptors);
  host::Handle recorded = nullptr;
  if (procs->closeWriteDescriptorProc(writer.token, &recorded) == kSuccess) {
    descriptors->descriptor = recorded;
  }
  descriptors->recordInfo = host::kDialogOptional;
  return kSuccess;
}

bool HandleProcsAreUsable(const host::HandleProcs* procs) {
  constexpr int16_t kVersion = 1;
  constexpr int16_t kRoutines = 8;
  return procs != nullptr && procs->handleProcsVersion == kVersion && procs->numHandleProcs >= kRoutines &&
         procs->newProc != nullptr && procs->disposeProc != nullptr && procs->getSizeProc != nullptr &&
         procs->setSizeProc != nullptr;
}

bool OwnedHandle::Make(const host::HandleProcs* procs, int32_t bytes) {
  Dispose();
  if (HandleProcsAreUsable(procs)) {
    Adopt(procs, procs->newProc(bytes));
    if (data() == nullptr) Dispose();
    if (handle_ != nullptr) std::memset(data(), 0, static_cast<size_t>(bytes));
  } else {
    handle_ = reinterpret_cast<host::Handle>(MakeHandle(bytes));
  }
  return handle_ != nullptr;
}

void OwnedHandle::Adopt(const host::HandleProcs* procs, host::Handle handle) {
  Dispose();
  procs_ = procs;
  handle_ = handle;
}

void OwnedHandle::Dispose() {
  if (handle_ != nullptr) {
    if (procs_ != nullptr) {
      procs_->disposeProc(handle_);
    } else {
      DisposeHandle(reinterpret_cast<ProgramHandle*>(handle_));
    }
  }
  procs_ = nullptr;
  handle_ = nullptr;
}

int32_t OwnedHandle::size() const {
  if (procs_ != nullptr && handle_ != nullptr) return procs_->getSizeProc(handle_);
  return HandleSize(reinterpret_cast<const ProgramHandle*>(handle_));
}

}  // namespace tessaline
