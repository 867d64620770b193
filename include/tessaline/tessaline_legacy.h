/* tessaline_legacy.h: takes repeating patterns (halftone screens, line noise, scan weave) out of raw images,
 * without a host program: the interface of the Windows module, kept as it always was. New programs take
 * tessaline.h, which has none of the restrictions below. C11 and C++; needs nothing but <stdint.h>. A short
 * guide: docs/programmatic-interface.md.
 *
 * Order of calls: OSAPI_CreateInstance, any number of OSAPI_Process and OSAPI_ProcessStream,
 * OSAPI_FreeInstance.
 *
 * One Process or ProcessStream at a time in a process: buffers, settings and the failed state (see
 * OSAPI_Process) are shared by all instances. A second one while the first is at work, from another thread or
 * from a dialog that is open, is refused with 2 at once, with nothing touched; nothing is waited for. An
 * instance is used by one thread at a time.
 *
 * Every run reads the user's preferences file before and writes it after (where it lies: platform/files.h). A
 * file that is missing or cannot be written is no error; one that cannot be read is left as it is. What the
 * file says counts from the SECOND run of a process on: the first starts from 60, 6 and 8.
 */
#ifndef TESSALINE_LEGACY_H
#define TESSALINE_LEGACY_H

#include <stdint.h>

/* How a function is exported or imported. The library's own build sets it (visibility on Linux, dllexport on
 * Windows); a Windows program may define it as __declspec(dllimport), every other leaves it empty. */
#ifndef TESSALINE_API
#define TESSALINE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Pixel kinds. Rows are packed, top row first; samples of one pixel stand side by side; 16-bit samples are in
 * the machine's byte order and at even addresses. RGB stands for any three channels, Lab for one. */
enum {
  TESSALINE_GRAY8 = 1,
  TESSALINE_RGB8 = 3,

  /* Levels 0..32768, the way picture editors hold 16 bits. Larger ones are taken as they are and come back as
   * 32768 at most. */
  TESSALINE_GRAY16 = -2,
  TESSALINE_RGB16 = -6,

  /* Levels 0..65535. Not for pictures: the run sees an image all of whose rows are the caller's SECOND row,
   * and the only pixels changed are that second row, which receives the last row of the result. Programs
   * depend on this. To clean a picture of that range scale it to 0..32768 and pass TESSALINE_GRAY16 or
   * TESSALINE_RGB16. */
  TESSALINE_GRAY16_SECOND_ROW = 2,
  TESSALINE_RGB16_SECOND_ROW = 6
};

/* Results of OSAPI_Process, OSAPI_ProcessStream and their other names. Any other value is a failed run's
 * code. */
enum {
  TESSALINE_DONE = 0,
  TESSALINE_REFUSED = 2,
  TESSALINE_NO_MEMORY = -108,
  TESSALINE_CANCELLED = -128 /* by the user; or, after a message, wider or higher than 7500 pixels */
};

/* Filled by OSAPI_CreateInstance, which owns both blocks until OSAPI_FreeInstance.
 *
 * parameterText is NUL-terminated and meant to be written by the caller. One parameter per line, lines ended
 * by CR LF:
 *
 *   <long>epsT,60         Pattern Frequency Acceptance, percent, whole, 0..100
 *   <doub>NoRd,6.000000   notch radius, spectrum cells, 1..16
 *   <doub>LFct,8.000000   low frequency protection radius, pixels, 1..128
 *
 * A line is read by position: the key is characters 6 to 9 (counted from 0), the value begins at character
 * 11; the tag before the key is not looked at. Lines are counted by CR, characters below 32 are dropped, and
 * only the first three lines are read. A line with an unknown key, a value outside its range or no number is
 * ignored without a word. Numbers have a point, whatever the locale. A parameter without a line has the value
 * of the settings (the last preferences read); where that leaves the protection radius at zero, all three are
 * 60, 6 and 8, and where it leaves the notch radius alone at zero, that one is 6.
 *
 * After every run the text holds all three lines with the values that the run used. */
typedef struct TessalineInstance {
  char* parameterText;   /* textCapacity bytes */
  char* description;     /* NUL-terminated: what this is, for a person */
  uint32_t reserved;     /* left alone by CreateInstance, 0 after FreeInstance */
  uint32_t textCapacity; /* 4096; 0 after FreeInstance */
} TessalineInstance;

typedef struct TessalineImage {
  int32_t width; /* pixels, 1..7500 */
  int32_t height;
  int32_t kind;
  void* pixels; /* width x height pixels, the caller's; changed in place */
} TessalineImage;

/* Raw frames, one after the other, without headers. Frames are counted from 0. */
typedef struct TessalineStream {
  int32_t width; /* of every frame, as in TessalineImage */
  int32_t height;
  int32_t kind;
  int32_t firstFrame;    /* the first and the last frame that are processed and written; */
  int32_t lastFrame;     /* those before and after are dropped, not copied */
  int32_t dialogFrame;   /* the frame whose run may show the dialog; -1 for none */
  char inputPath[1024];  /* NUL-terminated within the 1024 bytes */
  char outputPath[1024]; /* likewise; nothing past its NUL is read */
} TessalineStream;

/* Gives the instance an empty parameter text and its description. 0; 2 for a null instance; -108 without
 * memory, the instance then counts as freed. */
TESSALINE_API int32_t OSAPI_CreateInstance(TessalineInstance* instance);

/* Frees both blocks, after overwriting them with "Memory has been released", and sets reserved and
 * textCapacity to 0; the two pointers keep their values and must not be followed. Nothing happens for a null
 * instance or one freed before. */
TESSALINE_API void OSAPI_FreeInstance(TessalineInstance* instance);

/* One image, in place. `showDialog` other than 0 opens the preview dialog where the library has one (it has
 * none outside its Windows module; the run is then as with 0).
 *
 * 0: done; an image in which nothing is found keeps every sample (the second-row kinds still go through their
 * scaling, there and back).
 *
 * 2: refused, pixels unchanged.
 *   - width or height below 1, an unknown kind or null pixels. THIS IS REMEMBERED: from then on every Process
 * and ProcessStream of the process returns 2, until the library is unloaded. Programs depend on it.
 *   - Refused for this call only: a call while another is at work, a null instance or image, an instance that
 * was freed, a byte size of 2^31 or more, and height 1 with the second-row kinds.
 *
 * Otherwise the code of the run, for example -128; the pixels are unchanged. */
TESSALINE_API int32_t OSAPI_Process(TessalineInstance* instance, const TessalineImage* image,
                                    int64_t showDialog);

/* Frames firstFrame to lastFrame of the input file, each as by OSAPI_Process, into the output file, which is
 * written anew. Only dialogFrame gets `showDialog`. Paths are as fopen takes them.
 *
 * 0: done, also when the input ended before lastFrame.
 *
 * 2 with no file touched: another call at work, lastFrame below firstFrame, a null instance or record, an
 * instance that was freed, a path that is not terminated, a frame of 2^31 bytes or more, height 1 with the
 * second-row kinds, the failed state, and one file under both paths.
 *
 * 2 with an EMPTY output file: width or height below 1, or an unknown kind (not remembered, other than by
 * OSAPI_Process).
 *
 * 2 with the frames before kept in the output: a frame in the range that the input's end cuts short (it is
 * neither processed nor written), or a file that cannot be read or written further. A file that cannot be
 * opened is 2 too; the output is not touched when it is the input.
 *
 * Otherwise the code of the first run that failed; the frames before are kept. */
TESSALINE_API int32_t OSAPI_ProcessStream(TessalineInstance* instance, const TessalineStream* stream,
                                          int64_t showDialog);

/* The same under a second family name. The families differ in the caller code that they record and in nothing
 * else. */
TESSALINE_API int32_t MTAPI_CreateInstance(TessalineInstance* instance);
TESSALINE_API void MTAPI_FreeInstance(TessalineInstance* instance);
TESSALINE_API int32_t MTAPI_Process(TessalineInstance* instance, const TessalineImage* image,
                                    int64_t showDialog);
TESSALINE_API int32_t MTAPI_ProcessStream(TessalineInstance* instance, const TessalineStream* stream,
                                          int64_t showDialog);

/* And under short names, underscore included: create, free, process, process stream. */
TESSALINE_API int32_t _Larch(TessalineInstance* instance);
TESSALINE_API void _Birch(TessalineInstance* instance);
TESSALINE_API int32_t _Alder(TessalineInstance* instance, const TessalineImage* image, int64_t showDialog);
TESSALINE_API int32_t _Cedar(TessalineInstance* instance, const TessalineStream* stream, int64_t showDialog);

#ifdef __cplusplus
}
#endif

#endif /* TESSALINE_LEGACY_H */
