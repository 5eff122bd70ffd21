#include "commands.h"

namespace quillon::app {

// In the order in which the help shows them.
void AddCommands(Command top) {
  AddOperations(top);
  AddBlobs(top);
  AddMatch(top);
  AddLocate(top);
  AddFind(top);
  AddInspect(top);
  AddCalibration(top);
  AddRecipes(top);
  AddSample(top);
  AddList(top);
  AddManual(top);
}

}  // namespace quillon::app
