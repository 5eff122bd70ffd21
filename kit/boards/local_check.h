// A second, closer look at the places where boards seem to differ.
//
// The comparison of whole boards asks whether edges lie within the tolerance. That overlooks a bite
// out of a thin track, whose rest still lies within it, and takes tracks and holes that moved by
// themselves for defects. So each place that the comparison suspects is laid on the good board once
// more, alone, where it fits best; a difference is what is left and has some width there, unless
// nothing is left where all edges are taken to lie a pixel farther out or in.
//
// Pictures are often cut out of larger ones, and where they were cut lies elsewhere on each: what
// comes and goes along such a straight end of all content tells nothing about the board.
#pragma once

#include <vector>

#include "quillon/quillon.h"

namespace quillon::kit {

// How many pixels of material there are in each row and column, without the frame.
struct MaterialProfiles {
  std::vector<int> rows, columns;
};

// Of a plane with 255 where there is material and `frame` pixels around what counts.
MaterialProfiles CountMaterial(const GreyImage& plane, int frame);

// Planes on the good board's places.
struct BoardPlanes {
  const GreyImage& certain;   // material of every good board
  const GreyImage& possible;  // of any good board
  const GreyImage& other;     // of the tested board
  const MaterialProfiles& certainProfiles;
  int frame;  // at least 16 pixels
};

// Replaces what `missing` and `extra` suspect by what differs after the closer look.
void CheckLocally(const BoardPlanes& planes, int tolerance, GreyImage& missing, GreyImage& extra);

}  // namespace quillon::kit
