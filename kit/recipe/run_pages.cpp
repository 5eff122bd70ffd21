#include "kit/recipe/run_pages.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/recipe/objects.h"
#include "kit/report/page.h"
#include "kit/report/picture_file.h"
#include "kit/report/report.h"
#include "kit/text/text.h"

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

// The page of an image: a picture for each step that was done, each thing over the picture of its
// step, and at the step that failed why it did.
class StepsPage {
 public:
  StepsPage(const Recipe& recipe, const ImageRecord& record, const Inspector& inspector)
      : recipe_(recipe),
        inspector_(inspector),
        image_(record.image),
        pictures_(recipe.slots.size(), kNoPicture) {
    report_ = {.title = fs::path(record.image).filename().string(),
               .lead = Lead(recipe, record),
               .step = 0};
    pictures_[kImageSlot] = pictures_[kColourSlot] = 0;
    findings_.key = "things";
    findings_.facts = {{"recipe", "Recipe", recipe.name}};
    if (!inspector.StepsDone()) return;
    report_.pictures.push_back(Source(inspector, "Image"));
    const GreyImage& image = inspector.Of(kImageSlot).picture;
    findings_.facts.push_back({"image", "File", record.image});
    findings_.facts.push_back({"size", "Size", SizeText(image.width, image.height)});
    ShowSteps();
    if (record.error.empty()) {
      report_.step = First(record);
    } else {
      ShowFailure(recipe.steps[*inspector.StepsDone()], record.error);
    }
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
    const int count = static_cast<int>(rows.rows.size());
    if (count > 0) {
      findings_.columns = std::move(rows.columns);
      findings_.rows = std::move(rows.rows);
    }
    auto next = found.begin();
    int row = 0;
    for (size_t i = 0; i < *inspector_.StepsDone(); ++i) {
      if (IsPicture(recipe_.steps[i].operation->output)) {
        ShowPicture(recipe_.steps[i]);
      } else {
        ShowThings(*next, inspector_.Done(i), row, count);
        row += static_cast<int>(next++->things->size());
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

  // The picture that the step read, and why it could not be done with it.
  void ShowFailure(const Step& step, const std::string& why) {
    const auto read = static_cast<size_t>(pictures_[static_cast<size_t>(step.inputs[0])]);
    report_.step = static_cast<int>(report_.pictures.size());
    report_.pictures.push_back(report_.pictures[read].Again(step.name + ": failed"));
    report_.pictures.back().SetFault(why);
  }

  // Over the picture that the step read, as its tool draws them, with what the tool was taught
  // beside; the rows of the step's things begin at `row`.
  void ShowThings(const Found& found, const ReadyOperation& done, int row, int end) {
    const Step& step = *found.step;
    const size_t count = found.things->size();
    const Content& source = inspector_.Of(step.inputs[0]);
    Report drawn = done.Page(image_);
    done.Draw({image_, {&source.picture, &source.colour}, step.operation->output, *found.things},
              row, drawn);
    std::vector<int> layers;
    for (const Layer& layer : drawn.layers) layers.push_back(PlaceOf(layer));

    const int read = pictures_[static_cast<size_t>(step.inputs[0])];
    const std::string caption = step.name + ": " + std::to_string(count) + " " +
                                (count == 1 ? "found" : NameOf(step.operation->output));
    pictures_[static_cast<size_t>(step.output)] = static_cast<int>(report_.pictures.size());
    report_.pictures.push_back(report_.pictures[static_cast<size_t>(read)].Again(caption));
    if (found.frame == 0 && read != 0) report_.pictures.back().SetGround(0);
    report_.pictures.back().TakeDrawings(drawn.pictures.back(), layers, end);
    for (size_t i = 0; i + 1 < drawn.pictures.size(); ++i) {
      const Picture& taught = drawn.pictures[i];
      report_.pictures.push_back(taught.Again(step.name + ": " + taught.Caption()));
      report_.pictures.back().TakeDrawings(taught, layers, end);
    }
  }

  // A layer's place in the legend; steps share those that are the same.
  int PlaceOf(const Layer& layer) {
    auto& all = report_.layers;
    const auto same = std::find_if(all.begin(), all.end(), [&](const Layer& other) {
      return other.name == layer.name && other.tone == layer.tone;
    });
    const auto place = same - all.begin();
    if (same == all.end()) all.push_back(layer);
    auto& shown = all[static_cast<size_t>(place)].shown;
    shown = shown && layer.shown;
    return static_cast<int>(place);
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
  const std::string& image_;
  std::vector<int> pictures_;  // of each slot, its place in the report
  Report report_;
  Findings findings_;
};

// The page of an image where memory is short: its numbers, without pictures.
std::string RenderPageWithoutPictures(const Recipe& recipe, const ImageRecord& record) {
  const Report report{
      .title = fs::path(record.image).filename().string(),
      .lead = Lead(recipe, record) +
              "<p class='note'>There was not enough memory for the pictures of this page.</p>\n"};
  return RenderReport(report, {.key = "things", .facts = {{"recipe", "Recipe", recipe.name}}});
}

}  // namespace

std::string Shown(const Measurement& measurement, const std::optional<double>& value) try {
  return value ? Text(*value, DecimalsOf(measurement)) : "";
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a value as text");
}

std::string LimitsOf(const Measurement& measurement) try {
  const auto& [min, max] = std::pair(measurement.min, measurement.max);
  const std::string unit = measurement.unit.mm ? " " + NameOf(measurement.unit) : "";
  if (min && max) {
    return (*min == *max ? "exactly " + Plain(*min) : Plain(*min) + " to " + Plain(*max)) + unit;
  }
  if (min) return "at least " + Plain(*min) + unit;
  return max ? "at most " + Plain(*max) + unit : "";
} catch (const std::bad_alloc&) {
  throw OutOfMemory("limits as text");
}

std::string Title(Verdict verdict) try {
  std::string title = NameOf(verdict);
  title[0] = static_cast<char>(title[0] - 'a' + 'A');
  return title;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a verdict as text");
}

Pages::Pages(const Recipe& recipe, std::string folder) try
    : recipe_(recipe), folder_(std::move(folder)) {
  for (const char* part : {"pages", "thumbs"}) {
    MakeFolder(InRun(part));
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the pages of a run");
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

bool Pages::Write(size_t index, const ImageRecord& record, const Inspector& inspector) const try {
  if (record.verdict == Verdict::kUnreadable) return true;
  const std::string path = InRun(PageOf(index, record));
  try {
    WithinMemory("page '" + path + "'", [&] {
      WriteFile(path, StepsPage(recipe_, record, inspector).Render());
      if (!inspector.StepsDone()) return;
      const auto bytes = Thumbnail(Source(inspector, ""), kThumbnailWidth, kThumbnailHeight);
      WriteFile(InRun(ThumbnailOf(index)),
                {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    });
    return true;
  } catch (const OutOfMemory&) {
    WriteFile(path, RenderPageWithoutPictures(recipe_, record));
    return false;
  }
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the page of an image");
}

void Pages::WriteIndex(const std::vector<ImageRecord>& records) const try {
  const auto ifThere = [&](const std::string& name) {
    std::error_code error;
    return fs::exists(InRun(name), error) ? name : "";
  };
  std::vector<IndexEntry> entries;
  for (size_t i = 0; i < records.size(); ++i) {
    entries.push_back({&records[i], ifThere(PageOf(i, records[i])), ifThere(ThumbnailOf(i))});
  }
  WriteFile(InRun("index.html"), RenderIndex(recipe_, entries));
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the index of a run");
}

}  // namespace quillon::kit::recipe
