#include "cli/picture_parts.h"

namespace tessaline::cli {

std::string NameForPart(const std::string& file, int page, const char* ink) {
  std::string mark;
  if (page > 0) mark.append("-").append(std::to_string(page + 1));
  if (ink != nullptr) mark.append("-").append(ink);
  const size_t slash = file.find_last_of('/');
  size_t dot = file.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) dot = file.size();
  return file.substr(0, dot) + mark + file.substr(dot);
}

const char* InkName(const PageKind& kind, int32_t part) {
  return kind.model == ColourModel::kCmyk ? kInkNames[part] : nullptr;
}

const char* ModelName(ColourModel model) {
  switch (model) {
    case ColourModel::kGrey:
      return "grey";
    case ColourModel::kRgb:
      return "rgb";
    case ColourModel::kLab:
      return "lab";
    case ColourModel::kCmyk:
      return "cmyk";
  }
  return "";
}

std::optional<int> FixedThreads(const PictureRequest& request) {
  if (request.threads > 0) return request.threads;
  if (request.sharedThreads.threads != nullptr) return std::nullopt;
  return UsableProcessors();
}

std::unique_ptr<Parallel> MakePool(const PictureRequest& request, const PageKind& kind) {
  if (const std::optional<int> threads = FixedThreads(request)) return MakeThreadPool(*threads);
  return MakeSharedPool(request.sharedThreads,
                        static_cast<uint64_t>(kind.width) * static_cast<uint64_t>(kind.height));
}

}  // namespace tessaline::cli
