// compare_pictures A B: 0 when both files hold the same samples, else 1 with the number and size of the
// differences.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "testhost/host_refusal.h"
#include "testhost/pixel_file.h"

int main(int argc, char** argv) {
  using namespace tessaline::testhost;
  if (argc != 3) return 2;
  try {
    const Picture a = ReadPictureFile(argv[1]), b = ReadPictureFile(argv[2]);
    if (a.width != b.width || a.height != b.height || a.space != b.space || a.extraPlanes != b.extraPlanes ||
        a.white != b.white) {
      std::printf("%s and %s are pictures of different kinds\n", argv[1], argv[2]);
      return 1;
    }
    int largest = 0;
    size_t count = 0;
    for (size_t i = 0; i < a.samples.size(); ++i) {
      const int difference = std::abs(a.samples[i] - b.samples[i]);
      largest = std::max(largest, difference);
      count += difference != 0;
    }
    if (count == 0) return 0;
    std::printf("%s and %s: %zu of %zu samples differ, by up to %d\n", argv[1], argv[2], count,
                a.samples.size(), largest);
  } catch (const Refusal& refusal) {
    std::printf("%s\n", refusal.what());
  }
  return 1;
}
