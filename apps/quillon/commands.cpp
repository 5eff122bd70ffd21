#include "commands.h"

namespace quillon::app {

// In the order in which the help shows them.
void AddCommands(Command top) {
  for (const Operation& operation : Operations()) {
    if (IsPicture(operation.output)) {
      AddPictureOperation(top, operation);
    } else if (IsFault(operation.output)) {
      AddJudgingOperation(top, operation);
    } else {
      AddFindingOperation(top, operation);
    }
  }
  AddTeach(top);
  AddCameraCalibration(top);
  AddFlatFieldCalibration(top);
  AddLensCalibration(top);
  AddShadingCalibration(top);
  AddRecipes(top);
  AddSample(top);
  AddWorkbench(top);
  AddList(top);
  AddManual(top);
}

}  // namespace quillon::app
