// The operation tessaline:remove-pattern, as a module that GEGL loads. See docs/gegl.md.
//
// gegl-op.h includes this file several times and makes of the list below a struct, accessors and the
// properties that hosts show; what it includes the file for it says by the macros it has defined.
#include <glib.h>

#ifdef GEGL_PROPERTIES

// The list is macros without semicolons.
// clang-format off
enum_start(tessaline_show)
  enum_value(TESSALINE_SHOW_CLEANED, "cleaned", "Cleaned picture")
  enum_value(TESSALINE_SHOW_TAKEN_OUT, "taken-out", "What is taken out")
enum_end(TessalineShow)

// Values as of TESSALINE_LIGHT_AUTO ...
enum_start(tessaline_notch_levels)
  enum_value(TESSALINE_NOTCH_AUTOMATIC, "automatic", "Automatic")
  enum_value(TESSALINE_NOTCH_CODED, "coded", "Levels as they are coded")
  enum_value(TESSALINE_NOTCH_LINEAR, "linear", "Light")
enum_end(TessalineNotchLevels)

property_enum(show, "Show", TessalineShow, tessaline_show, TESSALINE_SHOW_CLEANED)
  description("The cleaned picture, or what it loses, round the middle grey")

property_boolean(automatic, "Find the pattern automatically", TRUE)
  description("Find what is pattern from the picture itself; else by the acceptance")

property_double(acceptance, "Acceptance", 60.0)
  description("Percent, where not automatic: higher finds more")
  value_range(0.0, 100.0)
  ui_steps(1.0, 10.0)
  ui_digits(0)
  ui_meta("sensitive", "! automatic")

property_double(sensitivity, "Sensitivity", 1.0)
  description("Where automatic: higher takes fainter patterns")
  value_range(0.7, 1.3)
  ui_steps(0.01, 0.1)
  ui_digits(2)
  ui_meta("sensitive", "automatic")

property_double(notch_radius, "Notch radius", 6.0)
  description("How much round each peak of the spectrum is taken out, in its cells of 512")
  value_range(1.0, 16.0)
  ui_steps(0.5, 2.0)
  ui_digits(1)

property_double(protection_radius, "Protection radius", 8.0)
  description("Only what repeats within fewer pixels is taken out; coarser structure is protected")
  value_range(1.0, 128.0)
  ui_range(1.0, 32.0)
  ui_gamma(2.0)
  ui_steps(0.5, 4.0)
  ui_digits(1)

property_boolean(everywhere, "Everywhere", FALSE)
  description("Where automatic: in all of the picture, also where the pattern is not seen")
  ui_meta("sensitive", "automatic")

property_double(polish, "Polish", 1.0)
  description("Where automatic: how much of what the notches leave is smoothed; 0: nothing")
  value_range(0.0, 2.0)
  ui_steps(0.05, 0.25)
  ui_digits(2)
  ui_meta("sensitive", "automatic")

property_enum(light, "Notches work on", TessalineNotchLevels, tessaline_notch_levels, TESSALINE_NOTCH_AUTOMATIC)
  description("Where automatic: dots of ink average in light, noise in levels. Automatic takes light for dot "
              "screens in pictures with a colour space other than sRGB, levels for all else")
  ui_meta("sensitive", "automatic")
// clang-format on

#else

#define GEGL_OP_FILTER
#define GEGL_OP_NAME remove_pattern
#define GEGL_OP_C_SOURCE remove_pattern.cpp

// Texts go through the C library's catalogue of this name, which is asked for even where there is none.
#define GETTEXT_PACKAGE "tessaline"
#include <libintl.h>

#include <gegl-op.h>

#include <new>

#include "gegl/picture_cleaner.h"
#include "gegl/sample_formats.h"

using tessaline::gegl::OutputFormatFor;
using tessaline::gegl::PictureCleaner;
using tessaline::gegl::Wishes;

static_assert(TESSALINE_NOTCH_AUTOMATIC == int{TESSALINE_LIGHT_AUTO} &&
              TESSALINE_NOTCH_CODED == int{TESSALINE_LIGHT_CODED} &&
              TESSALINE_NOTCH_LINEAR == int{TESSALINE_LIGHT_LINEAR});

namespace {

constexpr char kInput[] = "input", kOutput[] = "output";

// The whole input; null where it has no end, or nothing is connected.
const GeglRectangle* Picture(GeglOperation* operation) {
  const GeglRectangle* const box = gegl_operation_source_get_bounding_box(operation, kInput);
  return box != nullptr && !gegl_rectangle_is_infinite_plane(box) ? box : nullptr;
}

// Every sample of the result depends on every sample of the input.
GeglRectangle WholeFor(GeglOperation* operation, const GeglRectangle* part) {
  const GeglRectangle* const picture = Picture(operation);
  return picture != nullptr ? *picture : *part;
}

GeglRectangle RequiredForOutput(GeglOperation* operation, const gchar*, const GeglRectangle* roi) {
  return WholeFor(operation, roi);
}

GeglRectangle InvalidatedByChange(GeglOperation* operation, const gchar*, const GeglRectangle* roi) {
  return WholeFor(operation, roi);
}

GeglRectangle CachedRegion(GeglOperation* operation, const GeglRectangle* roi) {
  return WholeFor(operation, roi);
}

void Prepare(GeglOperation* operation) {
  const Babl* const format = gegl_operation_get_source_format(operation, kInput);
  gegl_operation_set_format(operation, kInput, format);
  gegl_operation_set_format(operation, kOutput, OutputFormatFor(format));
}

Wishes WishesOf(const GeglProperties& properties) {
  return {.isAutomatic = properties.automatic != FALSE,
          .acceptance = properties.acceptance,
          .sensitivity = properties.sensitivity,
          .notchRadius = properties.notch_radius,
          .protectionRadius = properties.protection_radius,
          .isEverywhere = properties.everywhere != FALSE,
          .polish = properties.polish,
          .light = properties.light};
}

// GIMP shows messages of GEGL's in a window, and warnings only to those who started it from a shell.
void PassOn(GeglBuffer* input, GeglBuffer* output, const GeglRectangle& roi, const char* why) {
  g_log("GEGL", G_LOG_LEVEL_MESSAGE, "tessaline:remove-pattern: %s; the picture is left as it is", why);
  gegl_buffer_copy(input, &roi, GEGL_ABYSS_NONE, output, &roi);
}

PictureCleaner& CleanerOf(GeglProperties* properties) {
  if (properties->user_data == nullptr) properties->user_data = new PictureCleaner;
  return *static_cast<PictureCleaner*>(properties->user_data);
}

gboolean Process(GeglOperation* operation, GeglBuffer* input, GeglBuffer* output, const GeglRectangle* roi,
                 gint) {
  if (input == nullptr || gegl_rectangle_is_empty(roi)) return TRUE;
  const GeglRectangle* const picture = Picture(operation);
  if (picture == nullptr) {
    PassOn(input, output, *roi, "the input has no edges; put a gegl:crop before it");
    return TRUE;
  }
  GeglProperties* const properties = GEGL_PROPERTIES(operation);
  try {
    CleanerOf(properties)
        .Process(input, output, *picture, *roi, WishesOf(*properties),
                 properties->show == TESSALINE_SHOW_TAKEN_OUT, [operation](double part) {
                   gegl_operation_progress(operation, part, const_cast<gchar*>(""));
                 });
  } catch (const tessaline::Error& error) {
    PassOn(input, output, *roi, error.what());
  } catch (const std::bad_alloc&) {
    PassOn(input, output, *roi, "there is not enough memory for all of the picture");
  }
  return TRUE;
}

void Finalize(GObject* object) {
  delete static_cast<PictureCleaner*>(GEGL_PROPERTIES(object)->user_data);
  G_OBJECT_CLASS(gegl_op_parent_class)->finalize(object);
}

}  // namespace

static void gegl_op_class_init(GeglOpClass* klass) {
  G_OBJECT_CLASS(klass)->finalize = Finalize;

  GeglOperationClass* const operation = GEGL_OPERATION_CLASS(klass);
  operation->prepare = Prepare;
  operation->get_required_for_output = RequiredForOutput;
  operation->get_invalidated_by_change = InvalidatedByChange;
  operation->get_cached_region = CachedRegion;
  operation->threaded = FALSE;       // the engine has threads of its own
  operation->want_in_place = FALSE;  // the input is read again for what was taken out
  operation->opencl_support = FALSE;
  operation->cache_policy = GEGL_CACHE_POLICY_ALWAYS;  // one run for all tiles of a view
  GEGL_OPERATION_FILTER_CLASS(klass)->process = Process;

  gegl_operation_class_set_keys(
      operation, "name", "tessaline:remove-pattern", "title", "Remove Repeating Pattern", "categories",
      "enhance:noise-reduction", "description",
      "Takes repeating patterns (halftone screens, line noise, scan weave) out of the picture",
      "gimp:menu-path", "<Image>/Filters/Enhance", "gimp:menu-label", "Remove Repeating _Pattern...",
      nullptr);
}

#endif
