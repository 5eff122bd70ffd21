// The kit's rooms while memory runs out: texts, files, images, measuring, searches, calibration,
// boards, samples and reports. Each call says that memory ended, by the kit's own error, or gives
// what it gives with memory; and it leaves nothing behind.
#include <nlohmann/json.hpp>
#include <ostream>
#include <streambuf>

#include "kit/boards/board_inspector.h"
#include "kit/boards/good_boards.h"
#include "kit/calibration/camera.h"
#include "kit/calibration/dots.h"
#include "kit/calibration/flat_field.h"
#include "kit/calibration/lens.h"
#include "kit/calibration/rectifier.h"
#include "kit/calibration/shading.h"
#include "kit/files/files.h"
#include "kit/measure/caliper.h"
#include "kit/measure/contour.h"
#include "kit/measure/fit.h"
#include "kit/report/report.h"
#include "kit/samples/dot_grid.h"
#include "kit/samples/sample_board.h"
#include "kit/search/blob_search.h"
#include "kit/search/blob_shape.h"
#include "kit/search/edge_search.h"
#include "kit/search/part_search.h"
#include "kit/search/pattern_search.h"
#include "kit/text/numbers.h"
#include "kit/text/text.h"
#include "reliability/inside/kit_memory.h"

namespace quillon::kit::test {
namespace {

TEST_F(KitMemory, TextsAndFiles) {
  EndsWell("Visible", [] { return Visible("a name that is longer than a short one\x1b[0m"); });
  EndsWell("SizeText", [] { return SizeText(1'000'000'000'000, 1'000'000'000'000); });
  EndsWell("DidYouMean", [known = std::vector<std::string>{"otsu", "threshold", "a longer one"}] {
    return DidYouMean("a longer two", known);
  });
  EndsWell(
      "JsonText",
      [json = Json::parse(R"({"a": [1, 2.5, "three of them \u0001"]})")] {
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
  EndsWell("FindContours", [&] { return Sum(FindContours(grey, 124, 20), &Contour::Length); });
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
  EndsWell("FindEdges, a part", [&] { return FindEdges(grey, *edges, some).score; });
  const PatternQuery matches = {.minScore = 0.3, .angle = {-5, 5}, .scale = {1, 1}, .most = 5};
  const auto match = [&](const auto& image, const auto& taught) {
    EndsWell("FindPattern", [&] {
      const PatternTool tool = TeachPattern(name, taught, false);
      ChooseStartLevel(name, 1, {}, tool.get());
      return Sum(FindPattern(image, tool.get(), matches), &NccResult::score);
    });
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

TEST_F(KitMemory, Calibration) {
  // Three views of a board of 5 x 4 points.
  std::vector<BoardView> views;
  for (double tilt : {0.1, 0.4, -0.3}) {
    BoardView view;
    view.name = "view";
    const BoardPlace place = {{tilt, 0.2 - tilt, tilt / 3}, {-2, -1.5, 12 + tilt}};
    for (int row = 0; row < 4; ++row) {
      for (int column = 0; column < 5; ++column) {
        const Point seen = place.Seen(column, row);
        view.points.push_back({Lens{400, 400, 160, 120}.Project(seen.x, seen.y), column, row});
      }
    }
    views.push_back(view);
  }
  Camera camera = FitCamera(views, {320, 240});
  camera.square = 5;
  camera.unit = "mm";
  const std::string file = std::string("camera.json"), list = std::string("points.csv");
  WriteFile(file, CameraText(camera, views));
  std::vector<Point> centres;
  GreyImage large;
  DrawDotGrid(900, 900, large, centres);
  std::string lines;
  for (const Point& centre : centres) {
    lines += std::to_string(std::lround(centre.x)) + "," + std::to_string(std::lround(centre.y));
    lines += '\n';
  }
  WriteFile(list, lines);
  GreyImage chessboard, dots;
  chessboard.Create(140, 120);
  dots.Create(140, 120);
  for (int y = 0; y < 120; ++y) {
    for (int x = 0; x < 140; ++x) {
      const bool isInside = x >= 10 && x < 130 && y >= 10 && y < 110;
      chessboard.rows[y][x] = isInside && ((x - 10) / 20 + (y - 10) / 20) % 2 ? 30 : 220;
      dots.rows[y][x] = std::hypot((x + 5) % 20 - 9.5, (y + 5) % 20 - 9.5) < 5 ? 30 : 220;
    }
  }
  const auto x = [](const BoardPoint& point) { return point.at.x; };
  EndsWell("ViewOfChessboard",
           [&] { return Sum(ViewOfChessboard("view", chessboard, kAnyBoard).points, x); });
  EndsWell("ViewOfDots", [&] { return Sum(ViewOfDots("view", dots, kAnyBoard).points, x); });
  EndsWell("FitCamera", [&] { return FitCamera(views, {320, 240}).lens.fx; });
  EndsWell(
      "CameraText", [&] { return CameraText(camera, views); }, But::kMakesJson);
  GreyImage image;
  image.Create(320, 240);
  EndsWell(
      "Rectifier",
      [&] {
        GreyImage rectified;
        Rectifier(file).Apply(image, rectified);
        return Greys(rectified);
      },
      But::kMakesJson);
  const std::string lens = std::string("lens.dat");
  EndsWell(
      "FitLens",
      [&] {
        return FitLens(list, {.step = {kGridStep, kGridStep}, .size = {900, 900}}, lens).rms;
      },
      But::kMakesJson);
  EndsWell(
      "LensCorrection",
      [&] {
        GreyImage corrected;
        LensCorrection(lens).Apply(large, corrected);
        return Greys(corrected);
      },
      But::kMakesJson);
  EndsWell(
      "ShadingCorrection",
      [&, name = std::string("shading")] {
        MeanPicture dark, white;
        GreyImage black, corrected;
        black.Create(140, 120);
        if (!black.bits) throw OutOfMemory("the test's own picture");
        dark.Add("dark", black);
        white.Add("white", dots);
        WriteFile(name, ShadingText(FitShading(dark, white, {}).shading));
        ShadingCorrection(name).Apply(dots, corrected);
        return Greys(corrected);
      },
      But::kMakesJson);
  const std::string light = std::string("light.dat");
  EndsWell(
      "MakeFlatField",
      [&] {
        GreyImage copy;
        copy.CopyFrom(&grey);
        if (!copy.bits) throw OutOfMemory("the test's own copy");
        MakeFlatField(copy, 128, {10, 100, 10, 100}, light);
        return true;
      },
      But::kMakesJson);
  EndsWell(
      "FlatFieldCorrection",
      [&] {
        GreyImage corrected;
        FlatFieldCorrection(light).Apply(grey, corrected);
        return Greys(corrected);
      },
      But::kMakesJson);
}

TEST_F(KitMemory, BoardsAndSamples) {
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
  const SampleBoard drawn(2, 200, 200);
  GreyImage good, tested;
  drawn.DrawGood(good);
  drawn.DrawTested(2, tested, {.x = 2, .degrees = 0.3});
  const auto inspect = [&](BoardInspector& inspector) {
    inspector.Teach(good);
    inspector.AddGood(good);
    const auto [registration, defects] = inspector.Inspect(tested);
    double pixels = 0;
    for (const Defect& defect : defects) pixels += Sum(inspector.Pixels(defect, defect.Kind()), kX);
    return Sum(defects, &Defect::left) + registration.tiles + pixels;
  };
  EndsWell("BoardInspector", [&] {
    BoardInspector inspector;
    return inspect(inspector);
  });
  BoardInspector kept;
  EndsWell(
      "BoardInspector again", [&] { return inspect(kept); }, But::kKeepsMemory);
  const std::vector<std::string> paths = {"b_good.png"};
  EndsWell("GoodBoards",
           [&, name = std::string("b_tested.png")] { return GoodBoards(paths).Of(name).size(); });
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
}  // namespace quillon::kit::test
