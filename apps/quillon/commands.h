// The subcommands, one file for each family.
//
// A family adds its subcommands, with options and callbacks that run them, and names the exported
// operations that they reach. A new one is declared here and listed in families.cpp; `quillon list`
// prints what the families say.
#pragma once

#include <span>

#include "command_line.h"
#include "kit/errors.h"

namespace quillon::app {

using namespace kit;  // commands speak its language

// An exported function and the command that calls it.
struct Operation {
  const char* name;     // "IxThreshold"
  const char* command;  // "threshold IN OUT --above LEVEL"; empty: of use to programs only
  const char* summary;  // what it does, in one line
};

// How commands end: 0; 1 after a failure, which was thrown and is told on standard error; 2 after
// wrong usage, which the parser tells; 3 after a command that judges has done and printed all of
// its work, but not everything passed: it throws this.
struct NotAllPassed {};

struct Family {
  const char* name;
  void (*addCommands)(Command app);  // callbacks throw Failure
  std::span<const Operation> operations;
};

extern const Family kGrey;
extern const Family kThresholds;
extern const Family kNeighbourhoodFilters;
extern const Family kPixelArithmetic;
extern const Family kGeometricTransforms;
extern const Family kMorphology;
extern const Family kBlobs;
extern const Family kSample;
extern const Family kEdgeMatching;
extern const Family kColourSpaces;
extern const Family kFlatField;
extern const Family kLens;
extern const Family kTemplateMatching;
extern const Family kRecipes;
extern const Family kInspection;
extern const Family kGeneral;

// All of them, in the order in which help and list show them.
std::span<const Family* const> Families();

}  // namespace quillon::app
