#include "kit/recipe/run_pages.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <new>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/images/image_files.h"
#include "kit/recipe/objects.h"
#include "kit/report/report.h"

namespace quillon::kit::recipe {
namespace {

namespace fs = std::filesystem;

constexpr size_t kMostRows = 1000;   // drawings on one page
constexpr size_t kMostPictures = 6;  // on one page
constexpr int kThumbnailWidth = 320, kThumbnailHeight = 220;

std::string NumberOf(size_t index) {
  char text[24];
  std::snprintf(text, sizeof text, "%04zu", index + 1);
  return text;
}

// The image as it was read.
Picture Source(const Inspector& inspector, std::string caption) {
  return inspector.IsColour() ? Picture(std::move(caption), inspector.Of(kColourSlot).colour)
                              : Picture(std::move(caption), inspector.Of(kImageSlot).picture);
}

// Each pixel the mean of those it stands for; never larger than the image.
void Reduce(const ColourImage& image, ColourImage& reduced) {
  const double factor = std::max({1.0, static_cast<double>(image.width) / kThumbnailWidth,
                                  static_cast<double>(image.height) / kThumbnailHeight});
  const auto side = [&](int length) { return std::max(1, static_cast<int>(length / factor)); };
  reduced.Create(side(image.width), side(image.height));
  if (!reduced.bits) throw std::bad_alloc();
  const auto edge = [](int i, int count, int length) {
    return static_cast<int>(int64_t{i} * length / count);
  };
  for (int y = 0; y < reduced.height; ++y) {
    const int top = edge(y, reduced.height, image.height);
    const int bottom = edge(y + 1, reduced.height, image.height);
    for (int x = 0; x < reduced.width; ++x) {
      const int left = edge(x, reduced.width, image.width);
      const int right = edge(x + 1, reduced.width, image.width);
      int64_t sums[3] = {};
      for (int v = top; v < bottom; ++v) {
        for (int i = 3 * left; i < 3 * right; ++i) sums[(i - 3 * left) % 3] += image.rows[v][i];
      }
      const int64_t count = int64_t{bottom - top} * (right - left);
      for (int c = 0; c < 3; ++c) {
        reduced.rows[y][3 * x + c] = static_cast<unsigned char>((sums[c] + count / 2) / count);
      }
    }
  }
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

void Draw(Picture& picture, const Thing& thing, int row, bool hasBox, const std::string& number) {
  Point corners[4];
  for (size_t i = 0; i < 4; ++i) corners[i] = {thing.corners[2 * i], thing.corners[2 * i + 1]};
  if (hasBox) picture.Box({kBox, row}, thing.left, thing.top, thing.right, thing.bottom);
  picture.Polygon({kRectangle, row}, corners);
  picture.Cross({kCentre, row}, {thing.x, thing.y});
  // A match's upper left corner shows which way up it is.
  const Point at = hasBox
                       ? Point{thing.left - 0.5, thing.top - 1.0}
                       : Point{std::clamp(corners[0].x, 0.0, picture.Width() * 0.95), corners[0].y};
  picture.Label({kNumber, row}, at, number);
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

// The image and pictures that things were found in, each with its frame.
std::vector<int> ShowPictures(const Recipe& recipe, const Inspector& inspector,
                              const std::vector<Found>& found, Report& report) {
  std::vector<int> frames = {0}, shown = {kImageSlot, kColourSlot};
  report.pictures.push_back(Source(inspector, "Image"));
  const auto add = [&](int number) {
    const Slot& slot = recipe.slots[static_cast<size_t>(number)];
    if (slot.kind != Kind::kPicture || report.pictures.size() == kMostPictures ||
        std::find(shown.begin(), shown.end(), number) != shown.end()) {
      return;
    }
    const GreyImage& picture = inspector.Of(number).picture;
    if (!picture.bits) return;
    shown.push_back(number);
    frames.push_back(slot.frame);
    report.pictures.emplace_back(slot.name, picture);
  };
  for (const Found& entry : found) {
    // Where the pixels came to lie first, and the picture that the step read.
    const auto& slots = recipe.slots;
    const auto first = std::find_if(slots.begin(), slots.end(), [&](const Slot& slot) {
      return slot.frame == entry.frame && slot.kind == Kind::kPicture;
    });
    add(static_cast<int>(first - slots.begin()));
    add(entry.step->inputs[0]);
  }
  for (const Measurement& measurement : recipe.measurements) add(measurement.input);
  return frames;
}

std::string RenderPage(const Recipe& recipe, const ImageRecord& record,
                       const Inspector& inspector) {
  Report report{.title = fs::path(record.image).filename().string(),
                .lead = Lead(recipe, record),
                .layers = {{"Outline box", Tone::kCyan},
                           {"Turned rectangle", Tone::kAmber},
                           {"Centre", Tone::kMagenta},
                           {"Number", Tone::kWhite}}};
  if (record.verdict == Verdict::kError) {
    report.layers.clear();
    report.pictures.push_back(Source(inspector, "Image"));
    return RenderReport(report, {.key = "things", .facts = {{"recipe", "Recipe", recipe.name}}});
  }
  const std::vector<Found> found = AllFound(recipe, inspector);
  const std::vector<int> frames = ShowPictures(recipe, inspector, found, report);
  Findings findings = Rows(found);
  size_t total = 0;
  int row = 0;
  for (const Found& entry : found) {
    total += entry.things->size();
    int n = 0;
    for (const Thing& thing : *entry.things) {
      if (row == static_cast<int>(findings.rows.size())) break;
      ++n;
      for (size_t i = 0; i < report.pictures.size(); ++i) {
        if (frames[i] != entry.frame) continue;
        Draw(report.pictures[i], thing, row, entry.step->operation->output != Kind::kMatches,
             std::to_string(n));
      }
      ++row;
    }
  }
  constexpr size_t kMostNumbers = 150;  // more of them hide the picture, until they are asked for
  report.layers[kNumber].shown = findings.rows.size() <= kMostNumbers;
  const GreyImage& image = inspector.Of(kImageSlot).picture;
  findings.facts = {
      {"recipe", "Recipe", recipe.name},
      {"image", "File", record.image},
      {"size", "Size", std::to_string(image.width) + " x " + std::to_string(image.height)},
      {"things", "Found", static_cast<int64_t>(total)}};
  if (total > findings.rows.size()) {
    findings.facts.push_back(
        {"shown", "Shown, the first", static_cast<int64_t>(findings.rows.size())});
  }
  if (findings.rows.empty()) findings.columns.clear(), report.layers.clear();
  return RenderReport(report, findings);
}

// What is left of it where memory is short.
std::string RenderPageWithoutPictures(const Recipe& recipe, const ImageRecord& record) {
  const Report report{
      .title = fs::path(record.image).filename().string(),
      .lead = Lead(recipe, record) +
              "<p class='note'>There was not enough memory for the pictures of this page.</p>\n"};
  return RenderReport(report, {.key = "things", .facts = {{"recipe", "Recipe", recipe.name}}});
}

std::vector<unsigned char> Thumbnail(const Inspector& inspector) {
  ColourImage image, reduced;
  Source(inspector, "").CopyTo(image);
  Reduce(image, reduced);
  return EncodeJpeg(reduced);
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
    WriteFile(path, RenderPage(recipe_, record, inspector));
    const auto bytes = Thumbnail(inspector);
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
