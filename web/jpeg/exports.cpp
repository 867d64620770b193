// JPEG files for the page: libjpeg-turbo, called by page/jpeg_file.ts. One file at a time; an error leaves as
// an exception of JavaScript's, and then the module is of no more use.
#include <emscripten.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

// needs what stands above
#include <jerror.h>
#include <jpeglib.h>

namespace {

jpeg_error_mgr g_errors;
jpeg_decompress_struct g_input;
jpeg_compress_struct g_output;
bool g_isDamaged = false;
unsigned char* g_file = nullptr;
unsigned long g_fileBytes = 0;

constexpr int kEndMark = 0xD9;
constexpr unsigned kWhole = 0xFFFF;

// clang-format off
EM_JS(void, BreakOff, (int code, int isMemory), { throw isMemory ? new RangeError("no memory") : new Error("JPEG " + code); });
// clang-format on

// Warnings that say nothing against the pixels; all others mean damage that the decoder painted over.
bool IsHarmless(const jpeg_error_mgr& error) {
  switch (error.msg_code) {
    case JWRN_EXTRANEOUS_DATA:
      return error.msg_parm.i[1] == kEndMark;  // padding before it
    case JWRN_JFIF_MAJOR:
    case JWRN_ADOBE_XFORM:
      return true;
    default:
      return false;
  }
}

jpeg_error_mgr* Errors() {
  g_errors.error_exit = [](j_common_ptr info) {
    BreakOff(info->err->msg_code, info->err->msg_code == JERR_OUT_OF_MEMORY ? 1 : 0);
    abort();
  };
  g_errors.emit_message = [](j_common_ptr info, int level) {
    if (level < 0 && !IsHarmless(*info->err)) g_isDamaged = true;
  };
  g_errors.output_message = [](j_common_ptr) {};
  g_errors.reset_error_mgr = [](j_common_ptr) {};
  return &g_errors;
}

// How the file that is read stores its picture goes over to the one that is written.
void Imitate() {
  jpeg_set_colorspace(&g_output, g_input.jpeg_color_space);
  if (g_input.progressive_mode) jpeg_simple_progression(&g_output);
  g_output.restart_interval = g_input.restart_interval;
  for (int c = 0; c < g_output.num_components; ++c) {
    const jpeg_component_info& like = g_input.comp_info[c];
    jpeg_component_info& component = g_output.comp_info[c];
    component.h_samp_factor = like.h_samp_factor;
    component.v_samp_factor = like.v_samp_factor;
    component.quant_tbl_no = like.quant_tbl_no;
  }
  for (int i = 0; i < NUM_QUANT_TBLS; ++i) {
    const JQUANT_TBL* const like = g_input.quant_tbl_ptrs[i];
    if (like == nullptr) continue;
    JQUANT_TBL*& table = g_output.quant_tbl_ptrs[i];
    if (table == nullptr) table = jpeg_alloc_quant_table(reinterpret_cast<j_common_ptr>(&g_output));
    for (int k = 0; k < DCTSIZE2; ++k) table->quantval[k] = like->quantval[k];
  }
}

}  // namespace

extern "C" {

// Null: no memory.
EMSCRIPTEN_KEEPALIVE void* tessaline_jpeg_take(uint32_t bytes) {
  return malloc(bytes);
}

// The header of a file; the block stays in use. What follows the header need not be there.
EMSCRIPTEN_KEEPALIVE void tessaline_jpeg_open(const uint8_t* file, uint32_t bytes) {
  g_input.err = Errors();
  jpeg_create_decompress(&g_input);
  jpeg_mem_src(&g_input, file, bytes);
  for (int marker = JPEG_APP0; marker <= JPEG_APP0 + 15; ++marker)
    jpeg_save_markers(&g_input, marker, kWhole);
  jpeg_save_markers(&g_input, JPEG_COM, kWhole);
  jpeg_read_header(&g_input, TRUE);
}

EMSCRIPTEN_KEEPALIVE void tessaline_jpeg_begin_reading() {
  jpeg_start_decompress(&g_input);
}
// The next rows, of 1 or 3 bytes a pixel.
EMSCRIPTEN_KEEPALIVE void tessaline_jpeg_read(uint8_t* rows, int32_t count) {
  const size_t rowBytes = size_t{g_input.output_width} * static_cast<size_t>(g_input.output_components);
  for (; count > 0; --count, rows += rowBytes) jpeg_read_scanlines(&g_input, &rows, 1);
}
// False: the file is damaged or cut short.
EMSCRIPTEN_KEEPALIVE int32_t tessaline_jpeg_end_reading() {
  jpeg_finish_decompress(&g_input);
  return g_isDamaged ? 0 : 1;
}

// After tessaline_jpeg_open: a file like that one begins, without what describes the picture.
EMSCRIPTEN_KEEPALIVE void tessaline_jpeg_begin_writing() {
  // The program's own limit: coefficients are held to choose codes for them.
  constexpr uint64_t kMostSamplesHeld = uint64_t{7500} * 7500 * 3;
  g_output.err = &g_errors;
  jpeg_create_compress(&g_output);
  jpeg_mem_dest(&g_output, &g_file, &g_fileBytes);
  g_output.image_width = g_input.image_width;
  g_output.image_height = g_input.image_height;
  g_output.input_components = g_input.num_components;
  g_output.in_color_space = g_input.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&g_output);
  const uint64_t samples =
      uint64_t{g_input.image_width} * g_input.image_height * static_cast<uint64_t>(g_input.num_components);
  g_output.optimize_coding = samples <= kMostSamplesHeld;
  Imitate();
  g_output.write_JFIF_header = FALSE;  // comes with the segments
  jpeg_start_compress(&g_output, TRUE);
}
EMSCRIPTEN_KEEPALIVE void tessaline_jpeg_add_segment(int32_t marker, const uint8_t* data, uint32_t bytes) {
  jpeg_write_marker(&g_output, marker, data, bytes);
}
EMSCRIPTEN_KEEPALIVE void tessaline_jpeg_write(uint8_t* rows, int32_t count) {
  const size_t rowBytes = size_t{g_output.image_width} * static_cast<size_t>(g_output.input_components);
  for (; count > 0; --count, rows += rowBytes) jpeg_write_scanlines(&g_output, &rows, 1);
}
EMSCRIPTEN_KEEPALIVE const uint8_t* tessaline_jpeg_end_writing() {
  jpeg_finish_compress(&g_output);
  return g_file;
}
EMSCRIPTEN_KEEPALIVE uint32_t tessaline_jpeg_written_bytes() {
  return static_cast<uint32_t>(g_fileBytes);
}

}  // extern "C"
