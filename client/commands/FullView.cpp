#include "client/commands/FullView.h"

#include "client/ask/Errors.h"
#include "client/view/View.h"

int RunView(const CommonOptions& common, const ViewOptions& options) {
  View(common.socket, common.color, options).Run();
  return kExitDone;
}
