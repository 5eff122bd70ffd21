// The pages of a run: one for each image, and an index over all of them. They need no network; the
// folder can be carried anywhere.
//
//   index.html           verdicts, a histogram for each measurement, thumbnails
//   pages/0012-part.html one image, what was measured and what was found, drawn over it
//   thumbs/0012.jpg
#pragma once

#include <string>
#include <vector>

#include "kit/recipe/inspector.h"

namespace quillon::kit::recipe {

class Pages {
 public:
  // Makes the folders in `folder`; throws Failure.
  Pages(const Recipe& recipe, std::string folder);

  // The page and the thumbnail of the image that the inspector has inspected last. May be called by
  // several threads, for different images. An image that was not read gets none. False when memory
  // was too short for pictures: the page says so then.
  bool Write(size_t index, const ImageRecord& record, const Inspector& inspector) const;

  // The index, of records from the first image on.
  void WriteIndex(const std::vector<ImageRecord>& records) const;

 private:
  std::string PageOf(size_t index, const ImageRecord& record) const;  // relative to the folder
  std::string ThumbnailOf(size_t index) const;
  std::string InRun(const std::string& name) const { return folder_ + "/" + name; }

  const Recipe& recipe_;
  std::string folder_;
};

// "24", "12.5": a value as pages show it; nothing for none.
std::string Shown(const Measurement& measurement, const std::optional<double>& value);
// "at least 24", "800 to 3500"; nothing without limits.
std::string LimitsOf(const Measurement& measurement);
// "Pass", "Fail", "Unreadable", "Error"
std::string Title(Verdict verdict);

// The whole index as text. `links` and `thumbnails` are empty where there are none.
struct IndexEntry {
  const ImageRecord* record;
  std::string link, thumbnail;
};
std::string RenderIndex(const Recipe& recipe, const std::vector<IndexEntry>& entries);

}  // namespace quillon::kit::recipe
