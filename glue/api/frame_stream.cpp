#include "glue/api/frame_stream.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "glue/api/programmatic_interface.h"
#include "image/result_codes.h"
#include "platform/files.h"
#include "platform/memory.h"

namespace tessaline {

namespace {

// An open stdio file, closed when it goes out of scope.
class File {
 public:
  File(const char* path, const char* mode) : file_(std::fopen(path, mode)) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { Close(); }
  bool isOpen() const { return file_ != nullptr; }
  size_t Read(void* bytes, size_t count) { return std::fread(bytes, 1, count, file_); }
  bool Write(const void* bytes, size_t count) { return std::fwrite(bytes, 1, count, file_) == count; }
  bool HasError() const { return std::ferror(file_) != 0; }
  // False when bytes written earlier did not reach the file.
  bool Close() {
    const bool wasClosed = file_ == nullptr || std::fclose(file_) == 0;
    file_ = nullptr;
    return wasClosed;
  }

 private:
  std::FILE* file_;
};

bool HasUsablePaths(const TessalineStream& stream) {
  const bool areTerminated = strnlen(stream.inputPath, sizeof stream.inputPath) < sizeof stream.inputPath &&
                             strnlen(stream.outputPath, sizeof stream.outputPath) < sizeof stream.outputPath;
  // Opening the output would empty the input before its first frame is read.
  return areTerminated && !IsSameFile(stream.inputPath, stream.outputPath);
}

bool IsSoundRecord(const TessalineStream& stream) {
  return stream.width >= 1 && stream.height >= 1 && IsKnownKind(stream.kind);
}

int32_t CopyFrames(TessalineInstance* instance, const TessalineStream& stream, bool showDialog,
                   uint32_t caller, File* input, File* output) {
  const size_t frameBytes = static_cast<size_t>(std::abs(stream.kind)) * static_cast<size_t>(stream.width) *
                            static_cast<size_t>(stream.height);
  const OwnedBlock<uint8_t> frame = AllocateBlock<uint8_t>(frameBytes);
  if (!frame) return kOutOfMemory;
  const TessalineImage image = {stream.width, stream.height, stream.kind, frame.get()};
  for (int64_t number = 0; number <= stream.lastFrame; ++number) {
    const size_t bytes = input->Read(frame.get(), frameBytes);
    if (input->HasError()) return kRefused;
    if (bytes == 0) return kSuccess;
    if (number < stream.firstFrame) continue;  // dropped, not copied
    // A frame cut short by the file's end: its missing part is not made up, and the caller is told.
    if (bytes < frameBytes) return kRefused;
    const bool showDialogNow = showDialog && number == stream.dialogFrame;
    const int32_t result = ProcessImage(instance, &image, showDialogNow, caller);
    if (result != kSuccess) return result;
    if (!output->Write(frame.get(), frameBytes)) return kRefused;
  }
  return kSuccess;
}

}  // namespace

int32_t ProcessStream(TessalineInstance* instance, const TessalineStream* stream, bool showDialog,
                      uint32_t caller) {
  if (HasFailed() || instance == nullptr || stream == nullptr || WasReleased(*instance)) return kRefused;
  if (stream->lastFrame < stream->firstFrame || !HasUsablePaths(*stream)) return kRefused;
  const bool isSound = IsSoundRecord(*stream);
  if (isSound && !FitsInterface(stream->width, stream->height, stream->kind)) return kRefused;

  File input(stream->inputPath, "rb");
  if (!input.isOpen()) return kRefused;
  File output(stream->outputPath, "wb");
  if (!output.isOpen()) return kRefused;
  // Only now: a refused record leaves an empty output file, which tells a waiting reader that nothing will
  // come.
  if (!isSound) return kRefused;
  const int32_t result = CopyFrames(instance, *stream, showDialog, caller, &input, &output);
  return output.Close() || result != kSuccess ? result : kRefused;
}

}  // namespace tessaline
