// The commands, one file for those that belong together. A function below adds them, with options
// and callbacks that run them; callbacks throw Failure. A new one is listed in commands.cpp.
#pragma once

#include "command_line.h"
#include "kit/errors.h"
#include "kit/operations/operation.h"

namespace quillon::app {

using namespace kit;  // commands speak its language

// How commands end: 0; 1 after a failure, which was thrown and is told on standard error; 2 after
// wrong usage, which the parser tells; 3 after a command that judges has done and printed all of
// its work, but not everything passed: it throws this.
struct NotAllPassed {};

// All of them.
void AddCommands(Command top);

// One for an operation of the table, by what it makes: a picture, things in one picture, or faults
// by which pictures are judged.
void AddPictureOperation(Command top, const Operation& operation);
void AddFindingOperation(Command top, const Operation& operation);
void AddJudgingOperation(Command top, const Operation& operation);

void AddTeach(Command top);
void AddCameraCalibration(Command top);
void AddFlatFieldCalibration(Command top);
void AddLensCalibration(Command top);
void AddShadingCalibration(Command top);
void AddRecipes(Command top);
void AddSample(Command top);
void AddWorkbench(Command top);
void AddList(Command top);
void AddManual(Command top);

}  // namespace quillon::app
