#include "cli/picture_target.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "cli/refusal.h"

namespace tessaline::cli {

PictureTarget::PictureTarget(OutputFile* output, bool keepsFailureQuiet)
    : output_(output), keepsFailureQuiet_(keepsFailureQuiet) {
  VipsTargetCustom* target = vips_target_custom_new();
  if (target == nullptr) return;
  g_signal_connect(target, "write", G_CALLBACK(OnWrite), this);
  g_signal_connect(target, "read", G_CALLBACK(OnRead), this);
  g_signal_connect(target, "seek", G_CALLBACK(OnSeek), this);
  g_signal_connect(target, "end", G_CALLBACK(OnEnd), this);
  target_.reset(VIPS_TARGET(target));
}

bool PictureTarget::Write(const uint8_t* bytes, size_t count) {
  if (error_ != 0) return false;
  if (WriteFully(output_->descriptor(), bytes, count)) return true;
  error_ = errno;
  return false;
}

gint64 PictureTarget::OnWrite(VipsTargetCustom*, const void* bytes, gint64 count, PictureTarget* self) {
  const auto* const first = static_cast<const uint8_t*>(bytes);
  const auto size = static_cast<size_t>(count);
  if (self->gathers_) {
    self->gathered_.insert(self->gathered_.end(), first, first + size);
    return count;
  }
  return self->Write(first, size) || self->keepsFailureQuiet_ ? count : -1;
}

gint64 PictureTarget::OnRead(VipsTargetCustom*, void* bytes, gint64 count, PictureTarget* self) {
  return read(self->output_->descriptor(), bytes, static_cast<size_t>(count));
}

gint64 PictureTarget::OnSeek(VipsTargetCustom*, gint64 offset, int whence, PictureTarget* self) {
  return lseek(self->output_->descriptor(), offset, whence);
}

int PictureTarget::OnEnd(VipsTargetCustom*, PictureTarget*) {
  return 0;
}

void PictureTarget::Check(bool failed) const {
  if (error_ != 0) {
    throw Refusal(ExitStatus::kCannotWrite, output_->path(),
                  std::string("cannot be written: ") + strerror(error_));
  }
  if (failed) {
    throw Refusal(ExitStatus::kOutOfMemory, output_->path(),
                  "cannot be made, which its library takes much memory for; close other programs, or write "
                  "PNG or TIFF");
  }
}

}  // namespace tessaline::cli
