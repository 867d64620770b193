// Pictures of the dialog for people to look at, each as `name`.png in the folder TESSALINE_SCREENSHOTS. Not a
// test: what is wrong with them, only eyes can tell.
#include "tests/dialog/preview_dialog_fixture.h"
//
#include <filesystem>

#include "glue/run/removal_run.h"
#include "tests/support/picture_files.h"

#define STB_IMAGE_WRITE_IMPLEMENTATION
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#include <stb/stb_image_write.h>
#pragma GCC diagnostic pop

namespace tessaline {
namespace {

class Screenshots : public PreviewDialogTest {
 protected:
  // The dialog on a scanned picture, as a run opens it.
  void OpenOn(const char* sample, const Steps& steps) {
    const Image picture = ImageOf(ReadPicture(std::string("../../samples/") + sample));
    int32_t slot = 0;
    CreateBuffer(sample, picture.view().width, picture.view().height, picture.view().bytesPerPixel, &slot);
    CopyImage(picture.view(), ViewOf(slot));
    const Steps shoot = [&] {
      ShowWindow(Dialog(), SW_SHOWNORMAL);
      Settle();
      steps();
      Press(TESSALINE_CANCEL);
    };
    struct Call {
      HWND owner;
      const Steps* steps;
    } call = {owner_, &shoot};
    RunDoor context;
    context.user = &call;
    context.openDialog = [](void* user, int32_t source, FilterParameters* parameters) {
      const auto& [owner, inside] = *static_cast<const Call*>(user);
      int32_t result = 0;
      RunInside([&] { result = RunPreviewDialog(owner, source, parameters); }, *inside);
      return result;
    };
    FilterParameters values = {75, 6, 8, 0, 0, 0, 0, 0, 0, {}};
    RunRemoval(slot, &values, nullptr, false, context);
    ReleaseBuffer(slot);
  }

  static void Shoot(const std::string& name, HWND window = Dialog()) {
    SetForegroundWindow(window);  // without a window manager nobody is, once a dialog has closed
    Settle();
    const Shot shot = ScreenShotOf(window);
    std::vector<uint8_t> rgb;
    for (const uint32_t pixel : shot.pixels) {
      for (const int shift : {16, 8, 0}) rgb.push_back(static_cast<uint8_t>(pixel >> shift));
    }
    std::filesystem::create_directories(TESSALINE_SCREENSHOTS);
    const std::string dpi = std::to_string(GetDpiForWindow(window));
    const std::string path = TESSALINE_SCREENSHOTS "/" + name + "-" + dpi + "dpi.png";
    ASSERT_TRUE(stbi_write_png(path.c_str(), shot.width, shot.height, 3, rgb.data(), shot.width * 3)) << path;
  }

  static void ShootViews(const std::string& layout) {
    Shoot(layout);
    Press(TESSALINE_SPECTRUM_VIEW);
    Shoot(layout + "-3d");
    Press(TESSALINE_HIGHLIGHT_CYAN);
    Shoot(layout + "-3d-cyan");
    Press(TESSALINE_SPECTRUM_VIEW);
    Shoot(layout + "-cyan");
    for (int i = 0; i < 5; ++i) Press(TESSALINE_ZOOM_IN);
    Shoot(layout + "-800");
  }
};

TEST_F(Screenshots, Large) {
  OpenOn("newsprint.png", [] {
    ShootViews("large");
    PressAndEnter(TESSALINE_QUICK_GUIDE, [](HWND guide) {
      ShowWindow(guide, SW_SHOWNORMAL);
      Shoot("quick-guide", guide);
      Command(guide, IDOK);
    });
    PressAndEnter(TESSALINE_HIGHLIGHT_OTHER, [](HWND chooser) {
      const std::pair<int, UINT> green[] = {{706, 60}, {707, 220}, {708, 60}};
      for (const auto& [id, level] : green) SetDlgItemInt(chooser, id, level, FALSE);
      ShowWindow(chooser, SW_SHOWNORMAL);
      Shoot("chooser", chooser);
      Command(chooser, IDOK);
    });
    Press(TESSALINE_ZOOM_LABEL);
    Shoot("large-other");
    SetFocus(Control(TESSALINE_SPECTRUM_VIEW));
    Shoot("large-focus");
    SetFocus(Control(TESSALINE_QUICK_GUIDE));
    Shoot("large-focus-guide");
    Press(TESSALINE_PREVIEW);
    Shoot("large-untouched");
    Press(TESSALINE_PREVIEW);
    const HeldKey button(VK_LBUTTON);
    const WindowRectangle& area = previewState.proxyArea;
    Mouse(WM_LBUTTONDOWN, area.left + 300, area.top + 300);
    Mouse(WM_MOUSEMOVE, area.left + 250, area.top + 330);
    Shoot("large-dragging");
  });
}

TEST_F(Screenshots, Small) {
  const HeldKey ctrl(VK_CONTROL);
  OpenOn("rosette.png", [] { ShootViews("small"); });
}

TEST_F(Screenshots, Split) {
  const HeldKey shift(VK_SHIFT);
  OpenOn("newsprint.png", [] { Shoot("split"); });
}

}  // namespace
}  // namespace tessaline
