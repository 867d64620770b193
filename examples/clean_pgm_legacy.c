/* clean_pgm_legacy: takes a repeating pattern out of a grey picture (binary PGM, 8 bits) with libtessaline.
 *
 *   clean_pgm_legacy INPUT.pgm OUTPUT.pgm [ACCEPTANCE [NOTCH_RADIUS [PROTECTION_RADIUS]]]
 *
 * Prints the values that were used. Exit status: 0 done, 1 a file or the run failed, 2 wrong usage. */
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <tessaline/tessaline_legacy.h>

typedef struct Picture {
  int width;
  int height;
  unsigned char* pixels;
} Picture;

/* Reads "P5", width, height and 255, then the pixels. Returns 0 when the file is anything else. */
static int ReadPgm(const char* path, Picture* picture) {
  int isRead = 0;
  FILE* const file = fopen(path, "rb");
  if (file == NULL) return 0;
  if (fscanf(file, "P5 %d %d 255", &picture->width, &picture->height) == 2 && fgetc(file) != EOF &&
      picture->width > 0 && picture->height > 0 && picture->width <= INT_MAX / picture->height) {
    const size_t bytes = (size_t)picture->width * (size_t)picture->height;
    picture->pixels = malloc(bytes);
    isRead = picture->pixels != NULL && fread(picture->pixels, 1, bytes, file) == bytes;
  }
  fclose(file);
  return isRead;
}

static int WritePgm(const char* path, const Picture* picture) {
  const size_t bytes = (size_t)picture->width * (size_t)picture->height;
  int isWritten = 0;
  FILE* const file = fopen(path, "wb");
  if (file == NULL) return 0;
  isWritten = fprintf(file, "P5\n%d %d\n255\n", picture->width, picture->height) > 0 &&
              fwrite(picture->pixels, 1, bytes, file) == bytes;
  return fclose(file) == 0 && isWritten;
}

/* Takes the pattern out of the picture, in place. Returns the library's result. */
static int CleanPicture(Picture* picture, const char* acceptance, const char* notchRadius,
                        const char* protectionRadius) {
  TessalineInstance instance;
  TessalineImage image;
  int32_t result = OSAPI_CreateInstance(&instance);
  if (result != TESSALINE_DONE) return result;

  snprintf(instance.parameterText, instance.textCapacity,
           "<long>epsT,%s\r\n<doub>NoRd,%s\r\n<doub>LFct,%s\r\n", acceptance, notchRadius, protectionRadius);
  image.width = picture->width;
  image.height = picture->height;
  image.kind = TESSALINE_GRAY8;
  image.pixels = picture->pixels;
  result = OSAPI_Process(&instance, &image, 0);
  if (result == TESSALINE_DONE) fputs(instance.parameterText, stdout);

  OSAPI_FreeInstance(&instance);
  return result;
}

int main(int argc, char** argv) {
  Picture picture = {0, 0, NULL};
  int result = 0;
  if (argc < 3 || argc > 6) {
    fputs("usage: clean_pgm_legacy INPUT.pgm OUTPUT.pgm [ACCEPTANCE [NOTCH_RADIUS [PROTECTION_RADIUS]]]\n",
          stderr);
    return 2;
  }
  if (!ReadPgm(argv[1], &picture)) {
    fprintf(stderr, "%s: not a whole 8-bit binary PGM picture\n", argv[1]);
    free(picture.pixels);
    return 1;
  }
  result =
      CleanPicture(&picture, argc > 3 ? argv[3] : "60", argc > 4 ? argv[4] : "6", argc > 5 ? argv[5] : "8");
  if (result != TESSALINE_DONE) {
    fprintf(stderr, "%s: the run failed with %d\n", argv[1], result);
  } else if (!WritePgm(argv[2], &picture)) {
    fprintf(stderr, "%s: cannot be written\n", argv[2]);
    result = 1;
  }
  free(picture.pixels);
  return result == TESSALINE_DONE ? 0 : 1;
}
