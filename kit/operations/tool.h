// What an operation keeps from image to image, and how it tells what it found in the last one.
#pragma once

#include <string>
#include <vector>

#include "kit/operations/sources.h"
#include "kit/operations/things.h"
#include "kit/report/findings.h"
#include "kit/report/report.h"

namespace quillon::kit {

// Something that an operation can tell besides its result.
struct Detail {
  const char* key;
  const char* heading;
  double value;
};

// The picture of the last search, and what was found in it.
struct Searched {
  std::string name;     // its file, as messages call it
  PictureView picture;  // in grey, or in colour, or both where the file has colours
  Kind kind;            // of the things
  const std::vector<Thing>& things;
};

// A taught template, parameters, scratch memory. An operation that finds things may tell more of
// them than a Thing holds, for what commands print and draw; these are the plain forms.
struct Tool {
  virtual ~Tool() = default;
  // Of the last image.
  virtual std::vector<Detail> Details() const { return {}; }
  // A row for each thing.
  virtual Findings Tell(const Searched& searched) const;
  // Title, layers and what was taught: the report of a picture, or of several, before it is drawn.
  virtual Report Page(const std::string& picture) const;
  // Adds the picture with the things over it; the first of them is this row of the findings.
  virtual void Draw(const Searched& searched, int firstRow, Report& report) const;
  // The picture that Operation::aside names, as a file shows it. Throws Failure.
  virtual void Aside(GreyImage& picture) const;
};

std::vector<Point> CornersOf(const Thing& thing);

// A picture without drawings, in colour where it has any.
Picture& AddPicture(const std::string& caption, PictureView view, Report& report);

}  // namespace quillon::kit
