// The parameter list from and to the host's descriptors, by which a run is recorded into an action and played
// again.
#pragma once

#include <cstdint>

#include "glue/host/host_records.h"
#include "glue/parameters/parameter_list.h"

namespace tessaline {

// Takes the values of the host's descriptor into the list: numbers that lie in their entry's range (an
// integer does for a float, a float for an integer, truncated), booleans, enumerations and texts. Anything
// else (a key that is no entry's, a value out of range or of another type, a getter that fails) leaves the
// entry as it was. Reading ends after 10,000 keys at the latest. A descriptor that was read is disposed and
// the record's field cleared; without one, or without the host's routines, nothing is done.
//
// True when the run must not open its dialog: unless the host's playInfo asks for it, also where the host has
// no place for a playInfo (descriptorParameters null). One rule without exception: a window appears only in a
// host that has asked for one, so nobody's batch ever waits for a button.
bool ReadDescriptor(host::FilterRecord* record, ParameterList* list);

// Makes a new descriptor of the list's entries the host's, disposes the one before, and sets recordInfo to
// "dialog optional". Returns 0: a host that cannot record, or fails at it, has its picture all the same.
int32_t WriteDescriptor(host::FilterRecord* record, const ParameterList& list);

// True when handles are to be made by the host: version 1, at least 8 routines, and those in use present.
bool HandleProcsAreUsable(const host::HandleProcs* procs);

// A handle with an owner, from the host where its routines are usable, else program-made (ProgramHandle).
class OwnedHandle {
 public:
  OwnedHandle() = default;
  OwnedHandle(const OwnedHandle&) = delete;
  OwnedHandle& operator=(const OwnedHandle&) = delete;
  ~OwnedHandle() { Dispose(); }
  // A new handle of `bytes` zero bytes; false, and none, when there is no memory. A handle held before is
  // disposed first. `procs` may be null and must outlive the handle.
  bool Make(const host::HandleProcs* procs, int32_t bytes);
  // Takes over a handle that the host made; `procs` must be usable.
  void Adopt(const host::HandleProcs* procs, host::Handle handle);
  void Dispose();

  host::Handle get() const { return handle_; }
  char* data() const { return handle_ != nullptr ? static_cast<char*>(*handle_) : nullptr; }
  // Asked of the host for a handle of its; 0, with lastMemoryError kNullHandle, for none.
  int32_t size() const;

 private:
  const host::HandleProcs* procs_ = nullptr;  // null: program-made
  host::Handle handle_ = nullptr;
};

}  // namespace tessaline
