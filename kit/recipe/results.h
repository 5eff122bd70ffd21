// What a run found, as JSON lines, as a table, and in the file that an interrupted run leaves and
// that `--resume` goes on with.
//
//   {"recipe":"Count the coins","fingerprint":"8c9f...","quillon":"0.1.0"}
//   {"image":"tray/1.png","verdict":"pass","measurements":{"coins":24},"failed":[]}
//   {"image":"tray/2.png","verdict":"unreadable","error":"cannot read image ..."}
//
// A line ends with a line feed, and holds none: control characters and the like are escaped.
#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "kit/recipe/inspector.h"
#include "kit/report/findings.h"

namespace quillon::kit::recipe {

// What the results of two runs must have in common for the one to go on with the other.
struct RunHead {
  std::string fingerprint;
  bool hasObjects = false;  // each record tells every thing that was found
};

// A record as one line, without its end; with its objects, where the run has them.
std::string ToLine(const Recipe& recipe, const ImageRecord& record, bool hasObjects = false);

// The record of such a line. Throws Failure where the line is none of this recipe.
ImageRecord FromLine(const Recipe& recipe, const std::string& line);

// The objects of all records, under the names of what is measured of them.
Findings ObjectsToFindings(const Recipe& recipe, const std::vector<ImageRecord>& records);

// All records under the names of the measurements, with the counts of verdicts as facts.
Findings ToFindings(const Recipe& recipe, const std::vector<ImageRecord>& records);

struct Counts {
  size_t images = 0, pass = 0, fail = 0, unreadable = 0, error = 0;
};
Counts Count(const std::vector<ImageRecord>& records);

// The same for recipes, with the files that they name, that give the same results.
std::string Fingerprint(const Recipe& recipe, const Sources& sources);

// The file of a run: a line about the recipe, then a record a line, in the order of the images.
class ResultsFile {
 public:
  // Begins a file, in the place of one that may be there.
  static ResultsFile Begin(const std::string& path, const Recipe& recipe, const RunHead& head);

  // Goes on with a file, or begins one where there is none. `done` receives the records in it,
  // which are those of the first images; a last line that was not written to its end is taken off.
  // Throws Failure when the file is of another recipe or of other images, or damaged.
  static ResultsFile Resume(const std::string& path, const Recipe& recipe, const RunHead& head,
                            const std::vector<std::string>& images, std::vector<ImageRecord>& done);

  // The line is in the file when this returns, whatever happens to the program then.
  void Append(const Recipe& recipe, const ImageRecord& record);

 private:
  ResultsFile(std::string path, bool hasObjects, bool isNew);
  void Write(const std::string& line);

  std::string path_;
  bool hasObjects_;
  std::ofstream file_;
};

}  // namespace quillon::kit::recipe
