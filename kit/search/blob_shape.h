// What a blob is like: its moments, its convex hull and the grey values in it and around it.
#pragma once

#include <vector>

#include "quillon/image.h"

namespace quillon::kit {

struct BlobRun {
  int row, first, last;  // columns, both included
};

// The runs of all groups of ones, diagonals included, in the order of the groups' first pixels:
// that of the blobs of a whole picture. A group's runs are in the order of rows.
std::vector<std::vector<BlobRun>> RunsOfBlobs(const GreyImage& binary);

// Pixels are squares of side 1. Of central moments, mxx is the mean of (x - mean x)^2 over all that
// the squares cover, and so on. The ellipse that has the same moments has axes a >= b.
//
//   elongation  = a / b
//   circularity = area / (2 pi (mxx + myy))     1 for a disc, less for all else: Zunic, Hirota and
//                 Rosin, "A Hu moment invariant as a shape circularity measure", Pattern
//                 Recognition 43 (1), 2010
//   convexity   = area / hull, that of the convex hull of the squares
//   contrast    = mean grey, less that of the pixels around, up to 3 columns and rows away, that
//                 belong to no blob; 0 where there are none
struct BlobShape {
  double area = 0, hull = 0, x = 0, y = 0;
  double mxx = 0, mxy = 0, myy = 0;
  double elongation = 0, circularity = 0, convexity = 0;
  double axis = 0;  // direction of a, degrees clockwise, from -90 up to 90
  double mean = 0, median = 0, deviation = 0, contrast = 0;
};

// Of all blobs of the binary picture, whose grey values are in `image`; one column wider it may be.
std::vector<BlobShape> ShapesOf(const GreyImage& image, const GreyImage& binary);

}  // namespace quillon::kit
