// Inspection of boards against a good one: where material is missing, and where there is more than
// there should be.
//
//   BoardInspector inspector;
//   inspector.Teach(good);
//   inspector.AddGood(another);  // as many as there are
//   const BoardInspection inspection = inspector.Inspect(tested);
//   for (const Defect& defect : inspection.defects) ...
//
// Pictures become planes of material, 255 where it is. Edges may wander by the tolerance r, and as
// the local check (local_check.h) forgives more than it overlooks, a place is suspected within
// s = r - 1 of being
//   missing   good material deeper than s where the tested board has none; or good material with
//             no tested material within s
//   extra     tested material farther than s from good material; or tested material deeper than s
//             where the good board has none
// Of each, the first sees what is small in a wide area, the second what is small across a thin
// line. Both accept every picture whose edges lie within s of where they should be.
#pragma once

#include <memory>
#include <vector>

#include "kit/boards/local_check.h"
#include "kit/boards/registration.h"
#include "kit/geometry.h"
#include "quillon/quillon.h"

namespace quillon::kit {

struct InspectionRules {
  static constexpr int kLearned = 0;
  static constexpr int kMostTolerance = 12;

  bool brightMaterial = false;
  int tolerance = kLearned;  // pixels that edges may wander
  int minArea = 14;          // pixels that differ and make a defect
  int margin = 8;            // of the boxes, around what differs
};

enum class Difference { kMissing, kExtra };
const char* Name(Difference kind);  // "missing", "extra"

// What differs, grouped. Coordinates are those of the tested picture, ends included.
struct Defect {
  int missing, extra;  // pixels that differ
  int left, top, right, bottom;
  int shiftX, shiftY;  // from the good board to here

  Difference Kind() const { return missing >= extra ? Difference::kMissing : Difference::kExtra; }
};

struct BoardInspection {
  Registration registration;
  std::vector<Defect> defects;  // from the top
};

// All of it throws Failure where something cannot be done.
class BoardInspector {
 public:
  explicit BoardInspector(const InspectionRules& rules = {});

  // Takes a good board in place of all before.
  void Teach(const GreyImage& good);

  // Accepts what this good board shows too, and learns from it how far edges wander.
  void AddGood(const GreyImage& good);

  BoardInspection Inspect(const GreyImage& tested);

  int Tolerance() const { return tolerance_; }

  // The pixels of one kind in a defect of the last inspection, in the tested picture.
  std::vector<Point> Pixels(const Defect& defect, Difference kind) const;

 private:
  void MakeMaterial(const GreyImage& picture);
  struct Brightness {
    int level;        // Otsu's: what is above it is bright
    double contrast;  // between the means of dark and bright
  };
  Brightness Measure(const GreyImage& image);
  Registration Align(const GreyImage& picture);
  bool IsBlank() const;  // the good board
  [[noreturn]] void Refuse(const Registration& registration);
  int Suspicion() const;
  void Frame(GreyImage& plane) const;
  void FrameGood();
  void FrameOther(const BoardWarp& warp);
  void Learn(int tolerance);
  void Compare();
  void ChooseRegion(const BoardWarp& warp);
  std::vector<Defect> Group(const BoardWarp& warp);

  InspectionRules rules_;
  int width_ = 0, height_ = 0;  // of the good board
  int tolerance_ = 0;
  Registrar registrar_;
  std::unique_ptr<RLERegion, void (*)(RLERegion*)> region_;
  ReducedBoard reducedGood_, reducedOther_;
  GreyImage material_, sample_;  // of the picture at hand

  // Planes on the good board's places, with a frame that repeats the border.
  GreyImage certain_, possible_;  // material of all, of any good board
  MaterialProfiles certainProfiles_;
  GreyImage deep_, reached_;  // certain_ eroded, possible_ dilated
  GreyImage other_, otherDeep_, otherReached_;
  GreyImage missing_, extra_, scratch_;
};

}  // namespace quillon::kit
