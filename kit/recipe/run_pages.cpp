#include "kit/recipe/run_pages.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <new>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/recipe/objects.h"
#include "kit/report/page.h"
#include "kit/report/picture_file.h"
#include "kit/report/report.h"

namespace quillon::kit::recipe {
namespace {

namespace fs = std::filesystem;

constexpr size_t kMostRows = 20'000;  // on one page
constexpr int kThumbnailWidth = 320, kThumbnailHeight = 220;

std::string NumberOf(size_t index) {
  char text[24];
  std::snprintf(text, sizeof text, "%04zu", index + 1);
  return text;
}

// The image as it was read, for as long as the inspector holds it.
Picture Source(const Inspector& inspector, std::string caption) {
  return inspector.IsColour() ? Picture(std::move(caption), &inspector.Of(kColourSlot).colour)
                              : Picture(std::move(caption), &inspector.Of(kImageSlot).picture);
}

// ---- the page of an image -----------------------------------------------------------------------

// The verdict, and a tile for each measurement.
std::string Lead(const Recipe& recipe, const ImageRecord& record) {
  const std::string verdict = NameOf(record.verdict);
  std::string html = "<p class='back'><a href='../index.html'>&larr; " + Escaped(recipe.name) +
                     "</a></p>\n<section class='judged'><p class='verdict " + verdict + "'>" +
                     Title(record.verdict) + "</p>\n";
  if (!record.error.empty()) {
    return html + "<p class='why'>" + Escaped(record.error) + "</p></section>\n";
  }
  for (size_t i = 0; i < record.values.size(); ++i) {
    const Measurement& measurement = recipe.measurements[i];
    const auto& value = record.values[i];
    const std::string limits = LimitsOf(measurement);
    const char* const state = !Passes(measurement, value) ? "fail"
                              : limits.empty()            ? "free"
                                                          : "pass";
    html += std::string("<div class='tile ") + state + "'><b>" + Escaped(measurement.name) +
            "</b><strong>" + (value ? Shown(measurement, value) : "none") + "</strong><small>" +
            (limits.empty() ? "no limits" : limits) + "</small></div>\n";
  }
  return html + "</section>\n";
}

enum LayerNumber { kBox, kRectangle, kCentre, kNumber };

void Draw(Picture& picture, const Thing& thing, int row, bool hasBox) {
  Point corners[4];
  for (size_t i = 0; i < 4; ++i) corners[i] = {thing.corners[2 * i], thing.corners[2 * i + 1]};
  if (hasBox) picture.Box({kBox, row}, thing.left, thing.top, thing.right, thing.bottom);
  picture.Polygon({kRectangle, row}, corners);
  picture.Cross({kCentre, row}, {thing.x, thing.y});
  // A match's upper left corner shows which way up it is.
  const Point at = hasBox
                       ? Point{thing.left - 0.5, thing.top - 1.0}
                       : Point{std::clamp(corners[0].x, 0.0, picture.Width() * 0.95), corners[0].y};
  picture.Label({kNumber, row}, at, std::to_string(thing.number));
}

// One row for each thing. Columns that nothing fills are left out.
Findings Rows(const std::vector<Found>& found) {
  std::vector<Kind> kinds;
  for (const Found& entry : found) {
    if (!entry.things->empty()) kinds.push_back(entry.step->operation->output);
  }
  return {.key = "things",
          .columns = ObjectColumns(kinds),
          .rows = ObjectRows(found, kinds, kMostRows)};
}

// The page of an image: a picture for each step, and each thing over the picture of its step.
class StepsPage {
 public:
  StepsPage(const Recipe& recipe, const ImageRecord& record, const Inspector& inspector)
      : recipe_(recipe), inspector_(inspector), pictures_(recipe.slots.size(), kNoPicture) {
    report_ = {.title = fs::path(record.image).filename().string(),
               .lead = Lead(recipe, record),
               .layers = {{"Outline box", Tone::kCyan},
                          {"Turned rectangle", Tone::kAmber},
                          {"Centre", Tone::kMagenta},
                          {"Number", Tone::kWhite}},
               .step = 0};
    report_.pictures.push_back(Source(inspector, "Image"));
    pictures_[kImageSlot] = pictures_[kColourSlot] = 0;
    findings_.key = "things";
    findings_.facts = {{"recipe", "Recipe", recipe.name}};
    if (record.verdict == Verdict::kError) return;  // the steps hold what they held before
    const GreyImage& image = inspector.Of(kImageSlot).picture;
    findings_.facts.push_back({"image", "File", record.image});
    findings_.facts.push_back(
        {"size", "Size", std::to_string(image.width) + " x " + std::to_string(image.height)});
    ShowSteps();
    report_.step = First(record);
  }

  std::string Render() const { return RenderReport(report_, findings_); }

 private:
  static constexpr int kNoPicture = -1;

  void ShowSteps() {
    const std::vector<Found> found = AllFound(recipe_, inspector_);
    Findings rows = Rows(found);
    size_t total = 0;
    for (const Found& entry : found) total += entry.things->size();
    findings_.facts.push_back({"things", "Found", static_cast<int64_t>(total)});
    if (total > rows.rows.size()) {
      findings_.facts.push_back(
          {"shown", "Shown, the first", static_cast<int64_t>(rows.rows.size())});
    }
    constexpr size_t kMostNumbers = 150;  // more of them hide the picture, until they are asked for
    report_.layers[kNumber].shown = rows.rows.size() <= kMostNumbers;
    const int count = static_cast<int>(rows.rows.size());
    if (count > 0) {
      findings_.columns = std::move(rows.columns);
      findings_.rows = std::move(rows.rows);
    }
    auto next = found.begin();
    int row = 0;
    for (const Step& step : recipe_.steps) {
      if (IsPicture(step.operation->output)) {
        ShowPicture(step);
      } else {
        row = ShowThings(*next++, row, count);
      }
    }
  }

  void ShowPicture(const Step& step) {
    const Content& content = inspector_.Of(step.output);
    pictures_[static_cast<size_t>(step.output)] = static_cast<int>(report_.pictures.size());
    if (step.operation->output == Kind::kColour) {
      report_.pictures.emplace_back(step.name, &content.colour);
    } else {
      report_.pictures.emplace_back(step.name, &content.picture);
    }
  }

  // Over the picture that the step read; the rows of its things begin at `row`.
  int ShowThings(const Found& found, int row, int end) {
    const Step& step = *found.step;
    const int read = pictures_[static_cast<size_t>(step.inputs[0])];
    const size_t count = found.things->size();
    const std::string caption = step.name + ": " + std::to_string(count) + " " +
                                (count == 1 ? "found" : NameOf(step.operation->output));
    pictures_[static_cast<size_t>(step.output)] = static_cast<int>(report_.pictures.size());
    Picture& picture =
        report_.pictures.emplace_back(report_.pictures[static_cast<size_t>(read)].Again(caption));
    if (found.frame == 0 && read != 0) picture.SetGround(0);
    for (const Thing& thing : *found.things) {
      if (row == end) break;
      Draw(picture, thing, row++, HasPixelsOfItsOwn(step.operation->output));
    }
    return row;
  }

  // What is seen at first: what the first measurement that failed is of, or else the first.
  int First(const ImageRecord& record) const {
    const auto& all = recipe_.measurements;
    if (all.empty()) return 0;
    size_t which = 0;
    while (which < all.size() && Passes(all[which], record.values[which])) ++which;
    return pictures_[static_cast<size_t>(all[which == all.size() ? 0 : which].input)];
  }

  const Recipe& recipe_;
  const Inspector& inspector_;
  std::vector<int> pictures_;  // of each slot, its place in the report
  Report report_;
  Findings findings_;
};

// What is left of it where memory is short.
std::string RenderPageWithoutPictures(const Recipe& recipe, const ImageRecord& record) {
  const Report report{
      .title = fs::path(record.image).filename().string(),
      .lead = Lead(recipe, record) +
              "<p class='note'>There was not enough memory for the pictures of this page.</p>\n"};
  return RenderReport(report, {.key = "things", .facts = {{"recipe", "Recipe", recipe.name}}});
}

}  // namespace

std::string Shown(const Measurement& measurement, const std::optional<double>& value) {
  return value ? Text(*value, measurement.quantity->decimals) : "";
}

std::string LimitsOf(const Measurement& measurement) {
  const auto& [min, max] = std::pair(measurement.min, measurement.max);
  if (min && max)
    return *min == *max ? "exactly " + Plain(*min) : Plain(*min) + " to " + Plain(*max);
  if (min) return "at least " + Plain(*min);
  return max ? "at most " + Plain(*max) : "";
}

std::string Title(Verdict verdict) {
  std::string title = NameOf(verdict);
  title[0] = static_cast<char>(title[0] - 'a' + 'A');
  return title;
}

Pages::Pages(const Recipe& recipe, std::string folder)
    : recipe_(recipe), folder_(std::move(folder)) {
  for (const char* part : {"pages", "thumbs"}) {
    MakeFolder(InRun(part));
  }
}

std::string Pages::PageOf(size_t index, const ImageRecord& record) const {
  constexpr size_t kLongest = 60;
  std::string name = fs::path(record.image).stem().string().substr(0, kLongest);
  for (char& c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (!std::isalnum(byte) && c != '-' && c != '_') c = '_';
  }
  return "pages/" + NumberOf(index) + "-" + name + ".html";
}

std::string Pages::ThumbnailOf(size_t index) const { return "thumbs/" + NumberOf(index) + ".jpg"; }

bool Pages::Write(size_t index, const ImageRecord& record, const Inspector& inspector) const {
  if (record.verdict == Verdict::kUnreadable) return true;
  const std::string path = InRun(PageOf(index, record));
  try {
    WriteFile(path, StepsPage(recipe_, record, inspector).Render());
    const auto bytes = Thumbnail(Source(inspector, ""), kThumbnailWidth, kThumbnailHeight);
    WriteFile(InRun(ThumbnailOf(index)),
              {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    return true;
  } catch (const std::bad_alloc&) {
    WriteFile(path, RenderPageWithoutPictures(recipe_, record));
    return false;
  }
}

void Pages::WriteIndex(const std::vector<ImageRecord>& records) const {
  const auto ifThere = [&](const std::string& name) { return fs::exists(InRun(name)) ? name : ""; };
  std::vector<IndexEntry> entries;
  for (size_t i = 0; i < records.size(); ++i) {
    entries.push_back({&records[i], ifThere(PageOf(i, records[i])), ifThere(ThumbnailOf(i))});
  }
  WriteFile(InRun("index.html"), RenderIndex(recipe_, entries));
}

}  // namespace quillon::kit::recipe
