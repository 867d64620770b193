// The preview dialog's window and what belongs to it: tooltips, Quick Guide, colour chooser, manual. Windows
// only.
#pragma once

#include <cstdint>

#include "dialog/preview_state.h"
#include "dialog/spectrum_painting.h"
#include "dialog/window_types.h"
#include "glue/parameters/filter_parameters.h"

namespace tessaline {

constexpr int32_t kDialogAccepted = 1;       // result of the dialog after OK
constexpr int32_t kDialogCancelled = 2;      // and after Cancel
constexpr int32_t kDialogWithoutMemory = 3;  // when it could not be set up

// The one open dialog: its window (null while there is none) and what it shows. Program-wide.
extern WindowHandle previewWindow;
extern PreviewState previewState;

// Runs the dialog modally on the buffer in `sourceSlot`, over `owner` (the host's window; null or a window
// that is gone: over this program's own front window, or none). The large layout is taken on a screen of at
// least 1000 x 800 pixels at 96 per inch, in proportion at others; holding Ctrl asks for the small one.
// Holding Shift splits the picture: filtered above, untouched below.
//
// Returns 0 after OK; kUserCancelled after Cancel and when no dialog could be opened; kOutOfMemory when there
// was no memory to set it up. The three values in `values` are those of the dialog in both cases; its
// highlight fields change with OK alone. A record without a highlight (all four fields 0) opens with the one
// that this module's last dialog was left with by OK.
int32_t RunPreviewDialog(void* owner, int32_t sourceSlot, FilterParameters* values);

// The number of the template for a screen. `dpiSum` is horizontal plus vertical pixels per inch.
int32_t ChooseDialogTemplate(int32_t screenWidth, int32_t screenHeight, int32_t dpiSum, bool isCtrlHeld);

// The dialog procedure; lParam of WM_INITDIALOG is a PreviewDialogRequest. Nonzero when it handled the
// message. Nothing is thrown into the system that calls it: without memory a dialog that is being set up
// ends, and any other message is as if it had not come.
intptr_t PreviewDialogProc(WindowHandle window, uint32_t message, uintptr_t wParam, intptr_t lParam);

// One tooltip for every row of the table of tips.
void CreateTooltips(WindowHandle dialog);

// Gives the pictures of the preview dialog the size that goes with the screen's dots per inch.
void ScalePictures(WindowHandle dialog);

// For WM_DESTROY: frees the bitmaps that a dialog's controls show. The controls of Windows
// do so when they go, those of Wine do not.
void ReleasePictures(WindowHandle dialog);

// Opens the Quick Guide modally over the dialog or, when it is open, brings it to the top.
void ShowQuickGuide();
// Asks an open Quick Guide to close.
void CloseQuickGuide();

// The system's colour chooser. False, and the colour as it was, when the user cancels.
bool ChooseHighlightColor(WindowHandle owner, HighlightColor* color);

// Opens the manual at the page on the filter, where a manual and a program for it are installed.
void OpenManual(WindowHandle owner);

// The module that this code lies in, an HINSTANCE: the one with the dialog's resources.
void* OwnModule();

}  // namespace tessaline
