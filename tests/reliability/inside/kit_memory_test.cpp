// The kit while memory runs out: texts, files, images, measuring, searches, samples and pages,
// again and again, with the n-th allocation failing, and with all from the n-th on. Each call says
// that memory ended, by the kit's own error, or gives what it gives with memory, and leaves nothing
// behind.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <streambuf>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/images/image_files.h"
#include "kit/measure/caliper.h"
#include "kit/measure/fit.h"
#include "kit/report/report.h"
#include "kit/samples/dot_grid.h"
#include "kit/samples/sample_board.h"
#include "kit/samples/tray.h"
#include "kit/search/blob_search.h"
#include "kit/search/blob_shape.h"
#include "kit/search/edge_search.h"
#include "kit/search/part_search.h"
#include "kit/search/pattern_search.h"
#include "kit/text/numbers.h"
#include "kit/text/text.h"
#include "reliability/inside/failing_allocations.h"

namespace quillon::kit {
namespace {

using test::FailAllocation;
using test::FailAllocationsFrom;
using test::LiveBlocks;
using test::StopFailing;

// What one attempt came to: the result, or the message of an error of the kit's.
template <class Result>
struct Attempt {
  std::optional<Result> result;
  std::string failure;
  bool lacksMemory = false;
};

template <class Call>
auto Try(Call& call, void (*fail)(int n), int n) {
  Attempt<decltype(call())> attempt;
  std::string message(400, ' ');  // where the message finds room without asking for any
  message.clear();
  fail(n);
  try {
    attempt.result.emplace(call());
  } catch (const Failure& failure) {
    message = failure.what();
  } catch (const std::exception& error) {
    message = "not the kit's own error: ";
    message += error.what();
  }
  attempt.lacksMemory = StopFailing();
  attempt.failure = message;
  return attempt;
}

enum class But {
  kNothing,
  kKeepsMemory,   // it works on an object that lives on, and so may hold more or less than before
  kFindsNothing,  // the library's search answers as if nothing were there, and nothing tells
  kMakesJson,     // values of the JSON library were seen to leak where they could not be made
};

// Of each call so many allocations fail in turn, and of the others more and more rarely one.
#ifdef QUILLON_SANITIZED
constexpr int kAll = 5;  // each takes long there
#else
constexpr int kAll = 50;
#endif

template <class Call>
void EndsWell(const std::string& name, Call call, But but = But::kNothing) {
  const auto reference = call();
  for (auto fail : {FailAllocation, FailAllocationsFrom}) {
    for (int n = 1;; n += 1 + n / kAll) {
      const std::string where = name + ", allocation " + std::to_string(n) +
                                (fail == FailAllocation ? "" : " and all after it");
      const long before = LiveBlocks();
      bool isOver, endsWell;
      {
        const auto attempt = Try(call, fail, n);
        isOver = !attempt.lacksMemory;
        if (attempt.result) {
          const bool isForgiven =
              but == But::kFindsNothing && !isOver && *attempt.result == decltype(call())();
          endsWell = isForgiven || *attempt.result == reference;
          EXPECT_TRUE(endsWell) << where << ": " << testing::PrintToString(*attempt.result)
                                << " instead of " << testing::PrintToString(reference);
        } else {
          endsWell = !isOver && attempt.failure.find("memory") != std::string::npos;
          EXPECT_TRUE(endsWell) << where << ": " << attempt.failure;
        }
      }
      if (!endsWell) return;
      const bool mayKeep = but == But::kKeepsMemory || but == But::kMakesJson;
      if (!mayKeep && LiveBlocks() != before) {
        ADD_FAILURE() << where << ": leaks";
        return;
      }
      if (isOver) break;
    }
  }
}

// ---- results in a number each
// --------------------------------------------------------------------

template <class Things, class Value>
double Sum(const Things& things, Value value) {
  double sum = static_cast<double>(things.size());
  for (const auto& thing : things) sum += static_cast<double>(std::invoke(value, thing));
  return sum;
}

double Greys(const GreyImage& image) {
  double sum = image.width;
  for (int y = 0; image.bits && y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) sum = sum * 1.0000001 + image.rows[y][x];
  }
  return sum;
}
double Greys(const ColourImage& image) {
  double sum = image.width;
  for (int y = 0; image.bits && y < image.height; ++y) {
    for (int x = 0; x < 3 * image.width; ++x) sum = sum * 1.0000001 + image.rows[y][x];
  }
  return sum;
}

constexpr auto kX = [](const Point& point) { return point.x; };

// ---- what is worked on
// ---------------------------------------------------------------------------

class KitMemory : public testing::Test {
 protected:
  KitMemory() {
    std::filesystem::create_directories(folder);
    std::filesystem::current_path(folder);
    std::vector<DrawnPart> parts;
    DrawTray(3, 200, 150, colour, parts);
    IxColorToGray(&colour, &grey);
    DrawBracket(colourPattern);
    IxColorToGray(&colourPattern, &pattern);
    WriteImage(picture, colour);
    WriteImage("pattern.png", pattern);
    for (double at : {0.0, 1.0, 2.0, 3.0, 4.0, 5.0, 6.0}) {
      points.push_back({20 + 10 * std::cos(at), 30 + 10 * std::sin(at)});
    }
  }
  ~KitMemory() override {
    std::filesystem::current_path(before);
    std::filesystem::remove_all(folder);
  }

  // Names are short, and so take no memory where the test itself copies them.
  const std::filesystem::path before = std::filesystem::current_path();
  const std::string folder = testing::TempDir() + "quillon_kit_memory";
  const std::string picture = "tray.png";
  ColourImage colour, colourPattern;
  GreyImage grey, pattern;
  std::vector<Point> points;
};

TEST_F(KitMemory, TextsAndFiles) {
  EndsWell("Visible", [] { return Visible("a name that is longer than a short one\x1b[0m"); });
  EndsWell("SizeText", [] { return SizeText(1'000'000'000'000, 1'000'000'000'000); });
  EndsWell("DidYouMean", [known = std::vector<std::string>{"otsu", "threshold", "a longer one"}] {
    return DidYouMean("a longer two", known);
  });
  EndsWell(
      "JsonText",
      [json = nlohmann::ordered_json::parse(R"({"a": [1, 2.5, "three of them \u0001"]})")] {
        return JsonText(json, 2);
      },
      But::kMakesJson);
  EndsWell("ShortestDigits", [] { return ShortestDigits(-1.2345678901234567e-200); });
  EndsWell("ReadFile", [&] { return ReadFile(picture); });
  EndsWell("RequireRegularFile", [&] { return RequireRegularFile(picture), true; });
  EndsWell("WriteFile",
           [&, name = std::string("text.txt")] { return WriteFile(name, "what is in it"), true; });
  const std::vector<std::string> inputs = {picture},
                                 outputs = {std::string("x.png"), std::string("y.png")};
  EndsWell("CheckOutputs", [&] { return CheckOutputs(inputs, outputs), true; });
  EndsWell("MakeFolder", [name = std::string("one/other")] { return MakeFolder(name), true; });
  EndsWell("FolderLock", [&] { return FolderLock("."), true; });
  for (const auto& entry : std::filesystem::directory_iterator(".")) {
    EXPECT_NE(entry.path().extension(), ".part") << "a file that was not written is left behind";
    EXPECT_NE(entry.path().extension(), ".lock");
  }
}

TEST_F(KitMemory, Images) {
  EndsWell("ReadImage, grey", [&] {
    GreyImage image;
    ReadImage(picture, image);
    return Greys(image);
  });
  EndsWell("ReadImage, colour", [&] {
    ColourImage image;
    ReadImage(picture, image);
    return Greys(image);
  });
  for (const char* ending : {"out.png", "out.bmp"}) {
    EndsWell("WriteImage",
             [&, name = std::string(ending)] { return WriteImage(name, grey), true; });
    EndsWell("WriteImage",
             [&, name = std::string(ending)] { return WriteImage(name, colour), true; });
  }
  EndsWell("EncodePng", [&] { return EncodePng(grey); });
  EndsWell("EncodeJpeg", [&] { return EncodeJpeg(colour); });
}

TEST_F(KitMemory, Measuring) {
  const TurnedBox box = {{100, 75, 10}, 180, 40};
  const EdgeRule one = {.minStrength = 5, .order = EdgeOrder::kStrongest};
  EndsWell("FindEdges", [&] { return Sum(FindEdges(grey, box, {}), &Edge::position); });
  EndsWell("FindEdgePairs", [&] { return Sum(FindEdgePairs(grey, box, {}), &EdgePair::Width); });
  EndsWell("EdgesAcross", [&] { return Sum(EdgesAcross(grey, box, 5, one), kX); });
  EndsWell("EdgesAround", [&] {
    return Sum(EdgesAround(grey, {{90, 70}, 5, 60}, 12, 5, one), kX);
  });
  EndsWell("FitLine", [&] { return FitLine(points, 3)->length; });
  EndsWell("FitCircle", [&] { return FitCircle(points, 3)->width; });
  EndsWell("FitEllipse", [&] { return FitEllipse(points, 3)->width; });
}

TEST_F(KitMemory, Searching) {
  BlobQuery query;
  query.fillHoles = true;
  query.selection.area.min = 20;
  const auto area = [](const FoundBlob& blob) { return blob.feature.area; };
  EndsWell("BlobFinder", [&] { return Sum(BlobFinder().Find(grey, query), area); });
  BlobFinder finder;
  EndsWell(
      "BlobFinder again", [&] { return Sum(finder.Find(grey, query), area); }, But::kKeepsMemory);
  const std::vector<FoundBlob> blobs = finder.Find(grey, query);
  EndsWell("ShapesOf",
           [&] { return Sum(ShapesOf(grey, finder.Binary(), blobs), &BlobShape::hull); });
  EndsWell("OtsuLevel", [&] {
    GreyImage binary;
    return OtsuLevel(grey, binary);
  });
  const std::string name = "template";
  EndsWell("TeachEdges", [&] { return TeachEdges(name, pattern, 20, 60) != nullptr; });
  const EdgeTool edges = TeachEdges(name, pattern, 20, 60);
  const EdgeQuery some = {.minScore = 0.3, .greediness = 0.8, .lowest = -5, .highest = 5};
  EndsWell(
      "FindEdges, a part", [&] { return FindEdges(grey, *edges, some).score; }, But::kFindsNothing);
  const PatternQuery matches = {.minScore = 0.3, .angle = {-5, 5}, .scale = {1, 1}, .most = 5};
  const auto match = [&](const auto& image, const auto& taught) {
    EndsWell(
        "FindPattern",
        [&] {
          const PatternTool tool = TeachPattern(name, taught, false);
          ChooseStartLevel(name, 1, {}, tool.get());
          return Sum(FindPattern(image, tool.get(), matches), &NccResult::score);
        },
        But::kFindsNothing);
  };
  match(grey, pattern);
  match(colour, colourPattern);
  PartMask mask;
  mask.polygon = {{5, 5}, {90, 5}, {5, 90}};
  for (const finder::Way way : {finder::Way::kEdges, finder::Way::kGrey}) {
    const std::string model = std::string(NameOf(way)) + ".model";
    EndsWell("TeachPart", [&] {
      const PartModel taught = TeachPart(name, pattern, way, mask);
      WritePart(model, *taught);
      return Sum(DoubtsOf(*taught), &std::string::size);
    });
    EndsWell("FindParts", [&] {
      const PartModel taught = ReadPart(model, way, {}, {});
      GreyImage image;
      TaughtPicture(*taught, image);
      return Sum(FindParts(grey, *taught, {.angleLow = -10, .angleHigh = 10}),
                 &finder::Match::score);
    });
  }
}

TEST_F(KitMemory, Samples) {
  EndsWell("SampleBoard", [] {
    GreyImage board;
    const auto defects = SampleBoard(2, 200, 200).DrawTested(2, board);
    return Greys(board) + Sum(defects, &DrawnDefect::left);
  });
  EndsWell("DrawTray", [] {
    ColourImage tray;
    std::vector<DrawnPart> parts;
    DrawTray(3, 120, 90, tray, parts);
    return Greys(tray);
  });
  EndsWell("DrawDotGrid", [] {
    GreyImage grid;
    std::vector<Point> centres;
    DrawDotGrid(120, 90, grid, centres);
    return Greys(grid) + Sum(centres, kX);
  });
}

// Takes a text of some length without asking for memory.
class FixedText : public std::streambuf {
 public:
  FixedText() { setp(text_, text_ + sizeof text_); }
  std::ptrdiff_t Length() const { return pptr() - pbase(); }

 private:
  char text_[2000];
};

TEST_F(KitMemory, Reports) {
  Findings findings{.key = "things",
                    .facts = {{"size", "Size", std::string("200 x 150 of a picture")}},
                    .columns = {{"n", "n"}, {"x", "a heading of some length"}},
                    .rows = {{int64_t{1}, 2.5}, {int64_t{2}, std::string("=1+1, with a comma")}}};
  EndsWell("PrintText", [&] {
    FixedText text;
    std::ostream out(&text);
    PrintText(findings, out);
    PrintCsv(findings, out);
    return text.Length();
  });
  Report report;
  report.layers = {{"Outline", Tone::kCyan}};
  report.pictures.emplace_back("A tray", colour).Box({0, 0}, 1, 2, 30, 40);
  report.pictures.push_back(report.pictures[0].Again("The same"));
  EndsWell("Picture", [&] {
    Picture drawn("A tray", colour);
    drawn.Polygon({0, 1}, points);
    drawn.Dots({0, 1}, points);
    drawn.Cross({0, 1}, {5, 6});
    drawn.Arrow({0, 1}, {5, 6}, {50, 60});
    drawn.Score({0, 1}, {5, 6}, 0.5);
    return drawn.Again("The same").Png();
  });
  EndsWell("WriteDrawnPicture",
           [&, name = std::string("drawn.png")] { return WriteDrawnPicture(name, report), true; });
  EndsWell(
      "RenderReport", [&] { return RenderReport(report, findings); }, But::kMakesJson);
}

}  // namespace
}  // namespace quillon::kit
