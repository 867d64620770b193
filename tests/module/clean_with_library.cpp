// clean_with_library INPUT OUTPUT ACCEPTANCE NOTCH PROTECTION: a picture through libtessaline.so. For the
// comparison of all doors, same_answer_test.
#include <cstdio>

#include "testhost/descriptor_file.h"
#include "testhost/host_refusal.h"
#include "testhost/interface_door.h"
#include "testhost/picture_document.h"

int main(int argc, char** argv) {
  using namespace tessaline::testhost;
  if (argc != 6) return 2;
  try {
    const Picture picture = ReadPictureFile(argv[1]);
    const Document document = MakeDocument(picture, {});
    const auto parameters =
        ParseDescriptor("arguments", std::string("epsT long ") + argv[3] + "\nNoRd doub " + argv[4] +
                                         "\nLFct doub " + argv[5]);
    const InterfaceReport report =
        RunInterface({OSAPI_CreateInstance, OSAPI_FreeInstance, OSAPI_Process}, document, parameters, false);
    if (report.result != TESSALINE_DONE) {
      std::fprintf(stderr, "the library answered %d\n", report.result);
      return 1;
    }
    WritePictureFile(argv[2], PictureOf(report.document, document, picture));
    return 0;
  } catch (const Refusal& refusal) {
    std::fprintf(stderr, "%s\n", refusal.what());
    return 1;
  }
}
