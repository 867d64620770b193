// Where the picture library writes a picture to.
#pragma once

#include "cli/output_file.h"
#include "cli/vips_library.h"

namespace tessaline::cli {

// A file as the library's target. The first failure is remembered, and nothing is written after it: what a
// format library makes of a failed write ranges from its own words to trying for ever.
class PictureTarget {
 public:
  // `keepsFailureQuiet`: the library is told that all is well, and Check alone tells.
  PictureTarget(OutputFile* output, bool keepsFailureQuiet);
  PictureTarget(const PictureTarget&) = delete;
  PictureTarget& operator=(const PictureTarget&) = delete;

  // What is written is kept from now on, for the caller to change and Write.
  void Gather() { gathers_ = true; }
  std::vector<uint8_t> TakeGathered() { return std::move(gathered_); }

  VipsTarget* target() const { return target_.get(); }  // null where there is no memory
  // Bytes into the file; false when that failed, now or before.
  bool Write(const uint8_t* bytes, size_t count);
  // Refuses with kCannotWrite when a write has failed, or the library says it `failed` otherwise.
  void Check(bool failed) const;

 private:
  static gint64 OnWrite(VipsTargetCustom*, const void* bytes, gint64 count, PictureTarget* self);
  static gint64 OnRead(VipsTargetCustom*, void* bytes, gint64 count, PictureTarget* self);
  static gint64 OnSeek(VipsTargetCustom*, gint64 offset, int whence, PictureTarget* self);
  static int OnEnd(VipsTargetCustom*, PictureTarget* self);

  OutputFile* output_;
  bool keepsFailureQuiet_;
  bool gathers_ = false;
  std::vector<uint8_t> gathered_;
  int error_ = 0;
  GPointer<VipsTarget> target_;
};

}  // namespace tessaline::cli
