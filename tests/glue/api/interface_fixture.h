// An instance with clean program-wide state and preferences of its own, and a look into its runs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "buffers/buffer_table.h"
#include "glue/api/programmatic_interface.h"
#include "platform/memory.h"
#include "platform/message.h"
#include "tests/glue/scratch_folder.h"
#include "tests/support/failing_allocations.h"

namespace tessaline {

class InterfaceTest : public PreferencesTest {
 protected:
  InterfaceTest() {
    ResetInterface();
    EXPECT_EQ(0, OSAPI_CreateInstance(&instance));
    SetMessageHandler([](const char*, const char*) {});
  }
  ~InterfaceTest() override {
    ClearAllocationFailure();
    OSAPI_FreeInstance(&instance);
    SetMessageHandler(nullptr);
    ResetInterface();
  }

  // Lets the dialog answer `answer` (0: OK) after it set the acceptance to 33.5, and counts its openings.
  void OfferDialog(int32_t answer) {
    dialogAnswer = answer;
    RunDoor context;
    context.user = this;
    context.openDialog = [](void* user, int32_t, FilterParameters* parameters) {
      auto* const test = static_cast<InterfaceTest*>(user);
      ++test->dialogs;
      parameters->acceptance = 33.5f;
      return test->dialogAnswer;
    };
    SetInterfaceContext(context);
  }
  void SetText(const std::string& text) {
    text.copy(instance.parameterText, text.size());
    instance.parameterText[text.size()] = '\0';
  }
  int32_t Process(int32_t width, int32_t height, int32_t kind, void* pixels, int64_t showDialog = 0) {
    const TessalineImage image = {width, height, kind, pixels};
    return OSAPI_Process(&instance, &image, showDialog);
  }

  TessalineInstance instance{};
  int32_t dialogAnswer = 0;
  int dialogs = 0;
};

}  // namespace tessaline
