/* clean_picture: takes the repeating patterns out of a picture (binary PGM or PPM, 8 bits) with libtessaline.
 *
 *   clean_picture INPUT.pnm OUTPUT.pnm [ACCEPTANCE]
 *
 * ACCEPTANCE is a percentage; without it it is found from the picture. Prints what was found, as JSON. Exit
 * status: 0 done, 1 a file or the call failed, 2 wrong usage. */
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <tessaline/tessaline.h>

/* Reads "P5" or "P6", width, height and 255, then the pixels. Returns 0 when the file is anything else. */
static int ReadPnm(const char* path, TessalinePicture* picture) {
  int isRead = 0;
  char kind = 0;
  FILE* const file = fopen(path, "rb");
  if (file == NULL) return 0;
  if (fscanf(file, "P%c %d %d 255", &kind, &picture->width, &picture->height) == 3 && fgetc(file) != EOF &&
      (kind == '5' || kind == '6') && picture->width > 0 && picture->height > 0 &&
      picture->width <= INT_MAX / 3 / picture->height) {
    picture->format = TESSALINE_UINT8;
    picture->channels = kind == '5' ? 1 : 3;
    const size_t bytes = (size_t)picture->width * (size_t)picture->height * (size_t)picture->channels;
    picture->pixels = malloc(bytes);
    isRead = picture->pixels != NULL && fread(picture->pixels, 1, bytes, file) == bytes;
  }
  fclose(file);
  return isRead;
}

static int WritePnm(const char* path, const TessalinePicture* picture) {
  const size_t bytes = (size_t)picture->width * (size_t)picture->height * (size_t)picture->channels;
  int isWritten = 0;
  FILE* const file = fopen(path, "wb");
  if (file == NULL) return 0;
  isWritten = fprintf(file, "P%c\n%d %d\n255\n", picture->channels == 1 ? '5' : '6', picture->width,
                      picture->height) > 0 &&
              fwrite(picture->pixels, 1, bytes, file) == bytes;
  return fclose(file) == 0 && isWritten;
}

/* In place. Returns 0 after saying what was wrong. */
static int CleanPicture(const TessalinePicture* picture, const char* acceptance) {
  TessalineSettings settings;
  TessalineEngine* engine = NULL;
  int32_t code = tessaline_create(0, &engine);
  if (code != TESSALINE_OK) {
    fprintf(stderr, "no engine: %s\n", tessaline_code_text(code));
    return 0;
  }
  tessaline_settings_init(&settings, sizeof settings);
  if (acceptance != NULL) {
    settings.isAutomatic = 0;
    settings.acceptance = strtof(acceptance, NULL);
  }
  code = tessaline_clean(engine, picture, NULL, &settings, 0);
  if (code == TESSALINE_OK) {
    puts(tessaline_findings_json(engine));
  } else {
    fprintf(stderr, "not cleaned: %s\n", tessaline_error_text(engine));
  }
  tessaline_destroy(engine);
  return code == TESSALINE_OK;
}

int main(int argc, char** argv) {
  TessalinePicture picture = {0};
  int isDone = 0;
  if (argc < 3 || argc > 4) {
    fputs("usage: clean_picture INPUT.pnm OUTPUT.pnm [ACCEPTANCE]\n", stderr);
    return 2;
  }
  if (!ReadPnm(argv[1], &picture)) {
    fprintf(stderr, "%s: not a whole 8-bit binary PGM or PPM picture\n", argv[1]);
  } else if (CleanPicture(&picture, argc > 3 ? argv[3] : NULL)) {
    isDone = WritePnm(argv[2], &picture);
    if (!isDone) fprintf(stderr, "%s: cannot be written\n", argv[2]);
  }
  free(picture.pixels);
  return isDone ? 0 : 1;
}
