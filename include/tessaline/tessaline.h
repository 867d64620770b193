/* tessaline.h: takes repeating patterns (halftone screens, line noise, scan weave) out of pictures in memory.
 * C11 and C++; needs nothing but the two headers below. A guide with examples: docs/library.md.
 *
 *   TessalineEngine* engine;
 *   if (tessaline_create(0, &engine) == TESSALINE_OK) {
 *     tessaline_clean(engine, &picture, NULL, NULL, 0);
 *     puts(tessaline_findings_json(engine));
 *     tessaline_destroy(engine);
 *   }
 *
 * Threads. Any number of engines may exist and work at once, each on a thread of its own; they share nothing.
 * One engine is used by one thread at a time (not always the same one). A working call (those that return a
 * code and take an engine that is not const) on an engine that is at work, from another thread or out of its
 * own progress function, is refused with TESSALINE_ERROR_BUSY and changes nothing. Inside a call the engine
 * splits the work over threads of its own; results have the same bits for any number of them.
 *
 * Failures. A call that fails changes nothing: neither a picture nor what the engine holds. A picture is
 * either untouched or finished. No call prints, exits, reads or writes files, or depends on the locale or the
 * environment, and none lets an exception out.
 */
#ifndef TESSALINE_TESSALINE_H
#define TESSALINE_TESSALINE_H

#include <stddef.h>
#include <stdint.h>

/* How a function is exported or imported. The library's own build sets it; programs leave it empty. */
#ifndef TESSALINE_API
#define TESSALINE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* What a call returns. */
enum {
  TESSALINE_OK = 0,
  TESSALINE_ERROR_ARGUMENT = 1,  /* a null pointer, or a number out of its range */
  TESSALINE_ERROR_PICTURE = 2,   /* its size, format, channels, strides or alignment */
  TESSALINE_ERROR_SETTINGS = 3,  /* a value out of its range, or the record's size */
  TESSALINE_ERROR_ORDER = 4,     /* something has to be called first */
  TESSALINE_ERROR_SAMPLES = 5,   /* float samples that are no number, infinite or beyond 1e6 */
  TESSALINE_ERROR_NO_MEMORY = 6, /* of the system, or no threads */
  TESSALINE_ERROR_CANCELLED = 7, /* by the progress function */
  TESSALINE_ERROR_BUSY = 8       /* the engine is at work */
};

/* Samples, in the machine's byte order, at addresses that are multiples of their size. */
enum {
  TESSALINE_UINT8 = 1,         /* 0..255 */
  TESSALINE_UINT16 = 2,        /* 0..65535 */
  TESSALINE_UINT16_EDITOR = 3, /* 0..32768, the way picture editors hold 16 bits */
  TESSALINE_FLOAT32 = 4        /* 0 black, 1 white; values beyond are taken, and results may lie beyond */
};

enum {
  TESSALINE_LARGEST_SIDE = 1000000, /* pixels; beyond 7500 a picture is done in tiles */
  TESSALINE_MASK_SIDE = 512,        /* cells */
  TESSALINE_MASK_BYTES = 512 * 512
};

/* Where a picture is; the memory is the caller's and is used during the call only.
 *
 * Sample (x, y) of channel c stands at
 *
 *   planes[c]                    + x * pixelStride + y * rowStride     where planes[0] is not null,
 *   pixels + c * (sample's size) + x * pixelStride + y * rowStride     otherwise.
 *
 * Strides are in bytes, a multiple of the sample's size, and may be negative (bottom-up rows), or larger
 * across a row than across rows (a transposed picture); pixels must not overlap. 0 stands for packed: a
 * pixelStride of all channels side by side (with planes, of one sample), a rowStride of `width` pixels.
 *
 * Channels 1 to 3 are looked at together and cleaned. The fourth, alpha, is left alone. For grey with alpha
 * say 1 channel and the pixelStride of both. */
typedef struct TessalinePicture {
  int32_t width; /* pixels, 1..TESSALINE_LARGEST_SIDE */
  int32_t height;
  int32_t format;   /* TESSALINE_UINT8 ... */
  int32_t channels; /* 1..4 */
  void* pixels;
  void* planes[4];
  ptrdiff_t pixelStride;
  ptrdiff_t rowStride;
} TessalinePicture;

/* Begin with tessaline_settings_init. Members that a later version adds stand at the end; `recordBytes` tells
 * the library which ones the program knows, and the others have their standard values. */
typedef struct TessalineSettings {
  uint32_t recordBytes;   /* sizeof(TessalineSettings); 40 for the members up to `polish` */
  int32_t isAutomatic;    /* standard 1: the acceptance is found from the picture; 0: `acceptance` counts */
  float acceptance;       /* percent, 0..100, standard 60; higher finds more */
  float notchRadius;      /* spectrum cells, 1..16, standard 6 */
  float protectionRadius; /* pixels, 1..128, standard 8: only shorter periods are taken out */

  /* Of the automatic acceptance alone: */
  int32_t isEverywhere;    /* standard 0: only where the picture has the pattern; 1: in all of it */
  double sensitivity;      /* 0.7..1.3, standard 1; higher finds more */
  double polish;           /* 0..2, standard 1: how much of what the notches leave is smoothed; 0: nothing */
  int32_t light;           /* TESSALINE_LIGHT_AUTO ..., standard 0 */
  int32_t colours;         /* TESSALINE_COLOURS_RGB ..., standard 0: what three channels are */
  const float* lightCurve; /* light, 0..1, of levels evenly spaced from black to white, never falling; null,
                            * the standard: not known. Read during the call that is given the settings */
  int32_t lightCurveCount; /* 2..65536 where there is a curve, else 0 */
  int32_t reserved;        /* 0 */
} TessalineSettings;

/* What the notches of an automatic run work on. Dots of ink average in light, so a print filtered in its
 * coded levels comes out too dark; what was added to the levels averages there. */
enum {
  TESSALINE_LIGHT_AUTO = 0,  /* light for a dot screen where `lightCurve` tells the coding, else levels */
  TESSALINE_LIGHT_CODED = 1, /* levels as they are */
  TESSALINE_LIGHT_LINEAR = 2 /* light, by `lightCurve`, or that of sRGB without one */
};

enum {
  TESSALINE_COLOURS_RGB = 0,
  TESSALINE_COLOURS_LAB = 1 /* a lightness and two differences: polished each for itself, never in light */
};

/* For tessaline_apply and tessaline_clean, to be added up. */
enum {
  /* Whole samples; without it they are truncated, as the program does. After an automatic decision they are
   * always rounded to nearest. */
  TESSALINE_ROUND_TO_NEAREST = 1,

  /* For tessaline_apply: the picture is the one that was analysed last, unchanged since. Its padding then
   * goes on where the analysis ended, and the result is bit for bit that of tessaline_clean. Without it, or
   * with other pictures, samples may differ by a level. */
  TESSALINE_PICTURE_OF_ANALYSIS = 2
};

/* What was found. Spectrum cells are those of the mask, see tessaline_get_mask. */
typedef struct TessalineFindings {
  uint32_t recordBytes;  /* sizeof(TessalineFindings), set by the caller */
  int32_t transformSize; /* N, 1024..8192: the picture was transformed as N x N */
  int32_t isAutomatic;
  int32_t threshold;    /* by number: the level that a cell had to exceed, 0..32768; automatic: 0 */
  int32_t patternCells; /* spectrum cells taken for pattern, both halves; 0: nothing was found */
  int32_t notchCount;
  int32_t peakCount; /* automatic: all that stood out; by number: 0 */
  int32_t reserved;  /* 0 */
  double logSpan;    /* natural log of the spectrum's maximum over its minimum */
} TessalineFindings;

/* One repeating pattern, or one harmonic of it: neighbouring pattern cells, the mirror-symmetric half left
 * out. */
typedef struct TessalineNotch {
  uint32_t recordBytes; /* sizeof(TessalineNotch), set by the caller */
  int32_t dx, dy;       /* strongest cell, from the zero frequency; dy downwards, never positive */
  int32_t cells;
  int32_t level;          /* of the strongest cell, peaks brought out, 0..32768 */
  int32_t aboveThreshold; /* level less threshold; automatic: 0 */
  double periodPixels;    /* finer than a cell */
  double angleDegrees;    /* across the pattern's lines, counter-clockwise from the x axis, 0..180 */
  double cyclesPerPixelX; /* the frequency that the two above come from */
  double cyclesPerPixelY; /* downwards */
} TessalineNotch;

/* Why a peak was left out; docs/automatic.md tells each at length. */
enum {
  TESSALINE_PEAK_USED = 0,
  TESSALINE_PEAK_TEXT_LINES = 1,
  TESSALINE_PEAK_BLOCKS = 2,
  TESSALINE_PEAK_SKIRT = 3,
  TESSALINE_PEAK_NOT_ISOLATED = 4,
  TESSALINE_PEAK_NO_LICENCE = 5,
  TESSALINE_PEAK_WINDOWS = 6
};

/* A peak of the spectrum's upper half that stood out over its surroundings. */
typedef struct TessalinePeak {
  uint32_t recordBytes; /* sizeof(TessalinePeak), set by the caller */
  int32_t dx, dy;       /* cells from the zero frequency; dy never positive */
  int32_t verdict;      /* TESSALINE_PEAK_USED ... */
  int32_t isLicensed;   /* high and isolated enough to allow removal at all */
  int32_t reserved;     /* 0 */
  double periodPixels;
  double angleDegrees; /* as of a notch */
  double height;       /* natural log over the usual magnitude nearby */
  double isolation;    /* natural log over the highest cell 4 to 12 cells away */
} TessalinePeak;

/* Told now and then, on the thread that made the call, which part of it is done: 0..1, never falling. Returns
 * 0 to go on; any other value cancels, which counts as long as no sample has been changed (in tessaline_clean
 * about the first half). Must not throw nor leave by longjmp; it may read the engine's findings, which are
 * those of before the call. */
typedef int32_t (*TessalineProgress)(void* user, double part);

typedef struct TessalineEngine TessalineEngine;

/* "3.5.0": of the library that runs, which may be newer than this header. Valid for ever. */
TESSALINE_API const char* tessaline_version(void);

/* A code in words, for any value; valid for ever. */
TESSALINE_API const char* tessaline_code_text(int32_t code);

/* A new engine, which the caller gives back by tessaline_destroy. `threads`, 1..1024, counts the caller's; 0
 * stands for the processors that this process may use. TESSALINE_OK; TESSALINE_ERROR_ARGUMENT;
 * TESSALINE_ERROR_NO_MEMORY. On an error *engine is null. */
TESSALINE_API int32_t tessaline_create(int32_t threads, TessalineEngine** engine);

/* Ends its threads and frees all that it holds. Null is allowed; an engine at work is not. */
TESSALINE_API void tessaline_destroy(TessalineEngine* engine);

/* What was wrong with the last working call and what to do about it; "" after one that was done. The
 * engine's, valid until the next working call. Refusals with TESSALINE_ERROR_BUSY do not change it. */
TESSALINE_API const char* tessaline_error_text(const TessalineEngine* engine);

/* From the next call on; null: nobody is told. */
TESSALINE_API int32_t tessaline_set_progress(TessalineEngine* engine, TessalineProgress progress, void* user);

/* An engine keeps the memory of its last picture's transforms (about 5 N x N bytes) for the next one. This
 * frees it; findings and mask stay. */
TESSALINE_API int32_t tessaline_release_memory(TessalineEngine* engine);

/* Standard values. TESSALINE_ERROR_ARGUMENT for null. `recordBytes` is sizeof(TessalineSettings). */
TESSALINE_API int32_t tessaline_settings_init(TessalineSettings* settings, uint32_t recordBytes);

/* --- All in one ---
 *
 * Analyses `from`, decides by `settings` (null: the standard ones) and applies the mask. `to` null, or with
 * the very memory and strides of `from`: in place. Otherwise the result goes to `to`, which has the same
 * width, height, format and channels, its own strides, and does not overlap `from`; a fourth channel is
 * copied, and `from` is only read.
 *
 * Where nothing is found every sample stays as it is. Findings and mask are then as after tessaline_decide.
 */
TESSALINE_API int32_t tessaline_clean(TessalineEngine* engine, const TessalinePicture* from,
                                      const TessalinePicture* to, const TessalineSettings* settings,
                                      uint32_t flags);

/* --- Step by step ---
 *
 * A look that changes nothing ends after tessaline_decide; frames that share one decision only apply. */

/* The picture's spectrum, summed over its channels, in place of the one that the engine held. The picture is
 * only read. */
TESSALINE_API int32_t tessaline_analyse(TessalineEngine* engine, const TessalinePicture* picture);

/* Adds another picture's spectrum: parts of a large scan, frames of a film. TESSALINE_ERROR_ORDER before
 * tessaline_analyse; TESSALINE_ERROR_PICTURE when its transform has another size. */
TESSALINE_API int32_t tessaline_analyse_more(TessalineEngine* engine, const TessalinePicture* picture);

/* Which cells of the spectrum are pattern, and the mask that takes them out, in place of the findings and
 * mask that the engine held. May be called again with other settings, and decides as tessaline_clean
 * does: the engine keeps tiles of the pictures, up to 400 of 128 x 128, to see whether a pattern is visible.
 * TESSALINE_ERROR_ORDER before an analysis. */
TESSALINE_API int32_t tessaline_decide(TessalineEngine* engine, const TessalineSettings* settings);

/* The mask: 512 rows of 512 bytes, row by row, the zero frequency at column 256 of row 256; a cell r cells
 * from it stands for a period of 512 / r pixels. 255 takes the frequency out, 0 keeps it. Getting:
 * TESSALINE_ERROR_ORDER when there is none. Setting: copies; any bytes will do (a cell and the one opposite
 * count by their mean, for the result is real). The findings stay those of the last decision. */
TESSALINE_API int32_t tessaline_get_mask(const TessalineEngine* engine, uint8_t* cells);
TESSALINE_API int32_t tessaline_set_mask(TessalineEngine* engine, const uint8_t* cells);

/* Takes out of the picture what the engine's mask says; pictures and flags as of tessaline_clean. The mask of
 * an automatic decision is used with that decision's `isEverywhere` and `polish`, one that was set as it
 * stands. A mask of zeros changes no sample. TESSALINE_ERROR_ORDER without a mask. Cancelling counts before
 * the first sample changes: the progress function is asked once, told later. */
TESSALINE_API int32_t tessaline_apply(TessalineEngine* engine, const TessalinePicture* from,
                                      const TessalinePicture* to, uint32_t flags);

/* --- Findings ---
 *
 * Of the last tessaline_decide or tessaline_clean. TESSALINE_ERROR_ORDER when there was none,
 * TESSALINE_ERROR_ARGUMENT for null, another `recordBytes` and an index out of range. */
TESSALINE_API int32_t tessaline_get_findings(const TessalineEngine* engine, TessalineFindings* findings);

/* Index 0 .. notchCount - 1, strongest first; 0 .. peakCount - 1, highest first. */
TESSALINE_API int32_t tessaline_get_notch(const TessalineEngine* engine, int32_t index,
                                          TessalineNotch* notch);
TESSALINE_API int32_t tessaline_get_peak(const TessalineEngine* engine, int32_t index, TessalinePeak* peak);

/* All of it as one JSON object, members as in docs/report.md ("A run", without `seconds` and `linesPerInch`).
 * The engine's, valid until its next working call; null when there was no decision. */
TESSALINE_API const char* tessaline_findings_json(const TessalineEngine* engine);

#ifdef __cplusplus
}
#endif

#endif /* TESSALINE_TESSALINE_H */
