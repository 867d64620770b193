#include "cli/jpeg_file.h"

#include <setjmp.h>
#include <stdio.h>
#include <unistd.h>
// needs what stands above
#include <jpeglib.h>

#include <algorithm>
#include <exception>
#include <string_view>

#include "cli/picture_format.h"
#include "cli/refusal.h"

namespace tessaline::cli {
namespace {

constexpr int kComment = JPEG_COM, kMarkOfCoding = JPEG_APP0 + 14;

// The library's errors end in a jump out of it; nothing with a destructor may lie between.
struct Failure {
  jpeg_error_mgr manager;  // first: the library knows of nothing else
  jmp_buf jump;

  Failure() {
    jpeg_std_error(&manager);
    manager.error_exit = [](j_common_ptr info) { longjmp(reinterpret_cast<Failure*>(info->err)->jump, 1); };
    manager.emit_message = [](j_common_ptr, int) {};
    manager.output_message = [](j_common_ptr) {};
  }
};

class Decoder {
 public:
  explicit Decoder(int descriptor) {
    info_.err = &failure_.manager;
    source_.descriptor = descriptor;
    source_.manager.init_source = [](j_decompress_ptr) {};
    source_.manager.fill_input_buffer = Fill;
    source_.manager.skip_input_data = Skip;
    source_.manager.resync_to_restart = jpeg_resync_to_restart;
    source_.manager.term_source = [](j_decompress_ptr) {};
  }
  ~Decoder() { jpeg_destroy_decompress(&info_); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  bool ReadHeader() {
    if (setjmp(failure_.jump) != 0) return false;
    jpeg_create_decompress(&info_);
    info_.src = &source_.manager;
    constexpr unsigned kWhole = 0xFFFF;
    for (int marker = JPEG_APP0; marker <= JPEG_APP0 + 15; ++marker)
      jpeg_save_markers(&info_, marker, kWhole);
    jpeg_save_markers(&info_, kComment, kWhole);
    return jpeg_read_header(&info_, TRUE) == JPEG_HEADER_OK;
  }
  const jpeg_decompress_struct& info() const { return info_; }
  off_t position() const { return source_.at - static_cast<off_t>(source_.manager.bytes_in_buffer); }

 private:
  struct Source {
    jpeg_source_mgr manager = {};
    int descriptor = -1;
    off_t at = 0;  // in the file, behind what is held
    JOCTET bytes[16384];
  };

  static boolean Fill(j_decompress_ptr info) {
    auto* const source = reinterpret_cast<Source*>(info->src);
    ssize_t count = pread(source->descriptor, source->bytes, sizeof source->bytes, source->at);
    if (count <= 0) {  // the library's way: an end mark, which it knows what to make of
      source->bytes[0] = 0xFF;
      source->bytes[1] = JPEG_EOI;
      count = 2;
    }
    source->at += count;
    source->manager.next_input_byte = source->bytes;
    source->manager.bytes_in_buffer = static_cast<size_t>(count);
    return TRUE;
  }
  static void Skip(j_decompress_ptr info, long count) {
    auto* const source = reinterpret_cast<Source*>(info->src);
    const auto held = static_cast<long>(source->manager.bytes_in_buffer);
    const long skipped = std::clamp(count, 0L, held);
    source->manager.next_input_byte += skipped;
    source->manager.bytes_in_buffer -= static_cast<size_t>(skipped);
    source->at += std::max(count, 0L) - skipped;
  }

  Failure failure_;
  Source source_;
  jpeg_decompress_struct info_ = {};
};

bool BeginsWith(const JpegSegment& segment, std::string_view text) {
  return segment.data.size() >= text.size() && std::equal(text.begin(), text.end(), segment.data.begin());
}

std::vector<JpegSegment> DescriptiveSegments(jpeg_saved_marker_ptr list) {
  using std::operator""sv;
  std::vector<JpegSegment> segments;
  for (; list != nullptr; list = list->next) {
    JpegSegment segment = {list->marker, {list->data, list->data + list->data_length}};
    // How colours are coded, and a list of further pictures behind this one, which do not come along.
    if (segment.marker == kMarkOfCoding) continue;
    if (segment.marker == JPEG_APP0 + 2 && BeginsWith(segment, "MPF\0"sv)) continue;
    segments.push_back(std::move(segment));
  }
  const auto jfif = std::find_if(segments.begin(), segments.end(), [](const JpegSegment& segment) {
    return segment.marker == JPEG_APP0 && BeginsWith(segment, "JFIF\0"sv);
  });
  if (jfif != segments.end()) std::rotate(segments.begin(), jfif, jfif + 1);
  return segments;
}

}  // namespace

bool JpegReachesItsEnd(int descriptor, off_t scan, off_t size) {
  constexpr std::string_view kEnd = "\xFF\xD9";
  constexpr off_t kBlock = 65536;
  std::string block(kBlock, '\0');
  for (off_t end = size; end > scan; end -= kBlock - 1) {  // a byte twice, for the mark may lie across
    const off_t begin = std::max(scan, end - kBlock);
    const ssize_t count = pread(descriptor, block.data(), static_cast<size_t>(end - begin), begin);
    if (count != end - begin) return false;
    if (std::string_view(block.data(), static_cast<size_t>(count)).rfind(kEnd) != std::string_view::npos)
      return true;
  }
  return false;
}

std::optional<JpegHeader> ReadJpegHeader(int descriptor) {
  Decoder decoder(descriptor);
  if (!decoder.ReadHeader()) return std::nullopt;
  const jpeg_decompress_struct& info = decoder.info();
  JpegHeader header;
  for (int c = 0; c < info.num_components; ++c) {
    const jpeg_component_info& component = info.comp_info[c];
    header.components.push_back({component.h_samp_factor, component.v_samp_factor, component.quant_tbl_no});
  }
  for (size_t i = 0; i < header.tables.size(); ++i) {
    const JQUANT_TBL* const table = info.quant_tbl_ptrs[i];
    if (table != nullptr) header.tables[i].assign(std::begin(table->quantval), std::end(table->quantval));
  }
  header.colourSpace = info.jpeg_color_space;
  header.hasMarkOfCoding = info.saw_Adobe_marker != 0;
  header.isProgressive = info.progressive_mode != 0;
  header.restartInterval = info.restart_interval;
  header.scan = decoder.position();
  header.segments = DescriptiveSegments(info.marker_list);
  constexpr double kUnitsPerInch[] = {1, 2.54};
  const int unit = info.saw_JFIF_marker ? info.density_unit : 0;
  if ((unit == 1 || unit == 2) && info.X_density > 0 && info.Y_density > 0)
    header.resolution = {info.X_density * kUnitsPerInch[unit - 1], info.Y_density * kUnitsPerInch[unit - 1]};
  return header;
}

namespace {

class Encoder {
 public:
  explicit Encoder(OutputFile* output) {
    info_.err = &failure_.manager;
    target_.output = output;
    target_.manager.init_destination = [](j_compress_ptr info) { Reset(info->dest); };
    target_.manager.empty_output_buffer = [](j_compress_ptr info) -> boolean {
      return Write(info, sizeof Target::bytes);
    };
    target_.manager.term_destination = [](j_compress_ptr info) {
      Write(info, sizeof Target::bytes - info->dest->free_in_buffer);
    };
    Do([this] {
      jpeg_create_compress(&info_);
      info_.dest = &target_.manager;
    });
  }
  ~Encoder() { jpeg_destroy_compress(&info_); }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  // What calls the library. Nothing in it may need to be destroyed.
  template <typename Calls>
  void Do(const Calls& calls) {
    if (setjmp(failure_.jump) == 0) return calls();
    if (target_.failure) std::rethrow_exception(target_.failure);
    throw Refusal(ExitStatus::kCannotWrite, target_.output->path(), "cannot be written; is there memory?");
  }

  void Describe(const PageKind& kind, const JpegForm& form) {
    constexpr J_COLOR_SPACE kSpaces[] = {JCS_GRAYSCALE, JCS_RGB, JCS_RGB, JCS_CMYK};  // by model
    info_.image_width = static_cast<JDIMENSION>(kind.width);
    info_.image_height = static_cast<JDIMENSION>(kind.height);
    info_.input_components = kind.channels();
    info_.in_color_space = kSpaces[static_cast<size_t>(kind.model)];
    jpeg_set_defaults(&info_);
    // For pictures that were none before: no loss that the eye would find.
    constexpr int kHighQuality = 95;
    jpeg_set_quality(&info_, form.quality.value_or(kHighQuality), TRUE);
    const uint64_t samples = PixelsOf(kind) * static_cast<uint64_t>(kind.channels());
    info_.optimize_coding = samples <= kMostJpegSamplesHeld;
    for (int c = 0; c < info_.num_components; ++c)
      info_.comp_info[c].h_samp_factor = info_.comp_info[c].v_samp_factor = 1;
    const bool isAlike = form.like != nullptr && form.like->components.size() == size_t(kind.channels());
    if (isAlike) Imitate(*form.like, !form.quality);
    info_.write_JFIF_header = FALSE;  // comes with the segments
  }

  void Begin() { jpeg_start_compress(&info_, TRUE); }
  void Add(const JpegSegment& segment) {
    jpeg_write_marker(&info_, segment.marker, segment.data.data(),
                      static_cast<unsigned>(segment.data.size()));
  }
  void AddProfile(const std::vector<uint8_t>& profile) {
    jpeg_write_icc_profile(&info_, profile.data(), static_cast<unsigned>(profile.size()));
  }
  void AddRow(uint8_t* row) { jpeg_write_scanlines(&info_, &row, 1); }
  void End() { jpeg_finish_compress(&info_); }

 private:
  struct Target {
    jpeg_destination_mgr manager = {};
    OutputFile* output = nullptr;
    std::exception_ptr failure;
    JOCTET bytes[65536];
  };

  static void Reset(jpeg_destination_mgr* manager) {
    manager->next_output_byte = reinterpret_cast<Target*>(manager)->bytes;
    manager->free_in_buffer = sizeof Target::bytes;
  }
  static boolean Write(j_compress_ptr info, size_t count) {
    auto* const target = reinterpret_cast<Target*>(info->dest);
    try {
      target->output->Write(target->bytes, count);
    } catch (...) {  // must not pass through the library's C code
      target->failure = std::current_exception();
    }
    if (target->failure) info->err->error_exit(reinterpret_cast<j_common_ptr>(info));
    Reset(info->dest);
    return TRUE;
  }

  void Imitate(const JpegHeader& like, bool takesTables) {
    jpeg_set_colorspace(&info_, static_cast<J_COLOR_SPACE>(like.colourSpace));
    if (like.isProgressive) jpeg_simple_progression(&info_);
    info_.restart_interval = like.restartInterval;
    for (size_t c = 0; c < like.components.size(); ++c) {
      jpeg_component_info& component = info_.comp_info[c];
      component.h_samp_factor = like.components[c].across;
      component.v_samp_factor = like.components[c].down;
      if (takesTables) component.quant_tbl_no = like.components[c].table;
    }
    for (size_t i = 0; i < like.tables.size() && takesTables; ++i) {
      if (like.tables[i].empty()) continue;
      JQUANT_TBL*& table = info_.quant_tbl_ptrs[i];
      if (table == nullptr) table = jpeg_alloc_quant_table(reinterpret_cast<j_common_ptr>(&info_));
      // A damaged file may have steps of 0, by which the library would divide.
      std::transform(like.tables[i].begin(), like.tables[i].end(), table->quantval,
                     [](uint16_t step) { return std::max<UINT16>(step, 1); });
    }
  }

  Failure failure_;
  Target target_;
  jpeg_compress_struct info_ = {};
};

}  // namespace

void WriteJpeg(const PageKind& kind, const JpegForm& form, const std::vector<JpegSegment>& segments,
               const std::vector<uint8_t>& profile, const RowFiller& fillRow, OutputFile* output) {
  const auto encoder = std::make_unique<Encoder>(output);
  encoder->Do([&] {
    encoder->Describe(kind, form);
    encoder->Begin();
    for (const JpegSegment& segment : segments) encoder->Add(segment);
    if (!profile.empty()) encoder->AddProfile(profile);
  });
  const bool isInverted = kind.model == ColourModel::kCmyk;
  std::vector<uint8_t> row(kind.RowBytes());
  for (int32_t y = 0; y < kind.height; ++y) {
    fillRow(y, row.data());
    if (isInverted)
      std::transform(row.begin(), row.end(), row.begin(), [](uint8_t ink) { return 255 - ink; });
    encoder->Do([&] { encoder->AddRow(row.data()); });
  }
  encoder->Do([&] { encoder->End(); });
}

}  // namespace tessaline::cli
