// What a blob is like: its moments, its convex hull and the grey values in it and around it.
#pragma once

#include <vector>

#include "kit/search/blob_search.h"
#include "quillon/image.h"

namespace quillon::kit {

struct BlobRun {
  int row, first, last;  // columns, both included
};

// The runs of all groups of ones, diagonals included, in the order of the groups' first pixels. A
// group's runs are in the order of rows.
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
  int left = 0, top = 0, right = 0, bottom = 0;  // the outermost pixels
  double area = 0, hull = 0, x = 0, y = 0;
  double mxx = 0, mxy = 0, myy = 0;
  double elongation = 0, circularity = 0, convexity = 0;
  double axis = 0;  // direction of a, degrees clockwise, from -90 up to 90
  double mean = 0, median = 0, deviation = 0, contrast = 0;
};

// Of each of the blobs of the binary picture, whose grey values are in `image`; one column wider it
// may be. Labelling numbers blobs in an order of its own, so each is known by its box, its area and
// its centre.
std::vector<BlobShape> ShapesOf(const GreyImage& image, const GreyImage& binary,
                                const std::vector<FoundBlob>& blobs);

}  // namespace quillon::kit
