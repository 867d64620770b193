// The module alone has a dialog: the rooms of the other two doors are handed it here, when the module is
// loaded.
#include "dialog/preview_dialog.h"
#include "glue/api/programmatic_interface.h"
#include "glue/host/plugin_main.h"

namespace tessaline {

namespace {

RunDoor ContextWithDialog() {
  RunDoor context;
  context.openDialog = [](void*, int32_t sourceSlot, FilterParameters* parameters) {
    return RunPreviewDialog(nullptr, sourceSlot, parameters);
  };
  return context;
}

// Two pointers are stored, nothing is called: the module may be loaded by a host that only lists its filters.
const bool kDoorsAreJoined = [] {
  SetDialogOpener(RunPreviewDialog);
  SetInterfaceContext(ContextWithDialog());
  return true;
}();

}  // namespace

}  // namespace tessaline
