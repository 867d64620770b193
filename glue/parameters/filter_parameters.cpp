#include "glue/parameters/filter_parameters.h"

#include <bit>
#include <cstring>

#include "glue/parameters/parameter_list.h"
#include "glue/parameters/settings_record.h"
#include "image/result_codes.h"
#include "platform/memory.h"

namespace tessaline {

int32_t lastMemoryError = kSuccess;

namespace {

// What stands before a handle's block: the record itself has no room for the size.
struct BlockHeader {
  int32_t bytes;
  int32_t padding[3];  // keeps the block aligned to 16
};
static_assert(sizeof(BlockHeader) == 16);

BlockHeader* HeaderOf(const ProgramHandle& handle) {
  return static_cast<BlockHeader*>(handle.block) - 1;
}

uint32_t ValueBits(const ParameterList& list, uint32_t key) {
  const ParameterEntry* const entry = FindEntry(&list, key);
  return entry != nullptr ? entry->valueBits : 0;
}

// Neither zero nor not-a-number.
bool IsSet(float value) {
  return value < 0.0f || value > 0.0f;
}

void SetValueBits(ParameterList* list, uint32_t key, uint32_t bits) {
  ParameterEntry* const entry = FindEntry(list, key);
  if (entry != nullptr) entry->valueBits = bits;
}

}  // namespace

ProgramHandle* MakeHandle(int32_t bytes) {
  lastMemoryError = kOutOfMemory;
  if (bytes < 0) return nullptr;
  auto* const handle = static_cast<ProgramHandle*>(LockNewBlock(sizeof(ProgramHandle)));
  if (handle == nullptr) return nullptr;
  auto* const header =
      static_cast<BlockHeader*>(LockNewBlock(sizeof(BlockHeader) + static_cast<size_t>(bytes)));
  if (header == nullptr) {
    FreeLockedBlock(handle);
    return nullptr;
  }
  header->bytes = bytes;
  handle->block = header + 1;
  handle->signature = kHandleSignature;
  lastMemoryError = kSuccess;
  return handle;
}

void DisposeHandle(ProgramHandle* handle) {
  if (handle == nullptr) {
    lastMemoryError = kNullHandle;
    return;
  }
  if (handle->signature != kHandleSignature) return;
  FreeLockedBlock(HeaderOf(*handle));
  FreeLockedBlock(handle);
}

int32_t HandleSize(const ProgramHandle* handle) {
  if (handle == nullptr) {
    lastMemoryError = kNullHandle;
    return 0;
  }
  return HeaderOf(*handle)->bytes;
}

ProgramHandle* MakeParameters(const ParameterList& list) {
  ProgramHandle* const handle = MakeHandle(sizeof(FilterParameters));
  if (handle == nullptr) return nullptr;
  FilterParameters* const parameters = ParametersOf(handle);
  parameters->acceptance = static_cast<float>(static_cast<int32_t>(ValueBits(list, kKeyAcceptance)));
  parameters->notchRadius = std::bit_cast<float>(ValueBits(list, kKeyNotchRadius));
  parameters->protectionRadius = std::bit_cast<float>(ValueBits(list, kKeyProtectionRadius));
  // The protection radius alone tells that nothing was ever set: 0 is a fair wish for the acceptance, so the
  // others must not be tested.
  if (!IsSet(parameters->protectionRadius)) {
    parameters->acceptance = kAcceptanceRange.standard;
    parameters->notchRadius = kNotchRadiusRange.standard;
    parameters->protectionRadius = kProtectionRadiusRange.standard;
  }
  // A protection radius may come without it, by a text or an action before there were any settings.
  if (!IsSet(parameters->notchRadius)) parameters->notchRadius = kNotchRadiusRange.standard;
  return handle;
}

FilterParameters* ParametersOf(ProgramHandle* handle) {
  return handle != nullptr ? static_cast<FilterParameters*>(handle->block) : nullptr;
}

void StoreInList(const FilterParameters& parameters, ParameterList* list) {
  SetValueBits(list, kKeyAcceptance, static_cast<uint32_t>(TruncateToInteger(parameters.acceptance)));
  SetValueBits(list, kKeyNotchRadius, std::bit_cast<uint32_t>(parameters.notchRadius));
  SetValueBits(list, kKeyProtectionRadius, std::bit_cast<uint32_t>(parameters.protectionRadius));
}

void StoreParameters(const FilterParameters& parameters, ParameterList* list) {
  StoreInList(parameters, list);
  imageInfo.settings.acceptance = parameters.acceptance;
  imageInfo.settings.notchRadius = parameters.notchRadius;
  imageInfo.settings.protectionRadius = parameters.protectionRadius;
}

}  // namespace tessaline
