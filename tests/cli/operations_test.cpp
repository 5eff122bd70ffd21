// Every operation of the table that makes a picture, as a command, as a step of a recipe and in
// memory, against the export itself; and what finds things, as a step against its command.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>

#include "cli/host.h"
#include "kit/images/image_files.h"
#include "kit/recipe/inspector.h"
#include "kit/samples/tray.h"
#include "quillon/quillon.h"
#include "support/images.h"

namespace quillon::test {
namespace {

using Json = nlohmann::json;
namespace recipe = kit::recipe;

// What an operation may work on.
struct Inputs {
  GreyImage image, negative, binary;
  ColourImage colour;
  std::string gains;  // a file of flat-field parameters

  explicit Inputs(const std::string& path, const std::string& folder) : gains(folder + "/gains") {
    kit::ReadImage(path, image, colour);
    IxImageInvert(&image, &negative);
    binary.CopyFrom(&image);
    IxOtsuThreshold(&binary);
  }
};
using Make = std::function<void(Inputs& inputs, kit::Content& result)>;

struct Expected {
  const char* operation;
  Json arguments;
  Make make;
  const char* input = "image";
};

template <auto function, class... Arguments>
Make Of(Arguments... arguments) {
  return [=](Inputs& inputs, kit::Content& result) {
    function(&inputs.image, &result.picture, arguments...);
  };
}
template <auto function, class... Arguments>
Make InPlace(Arguments... arguments) {
  return [=](Inputs& inputs, kit::Content& result) {
    result.picture.CopyFrom(&inputs.image);
    function(&result.picture, &result.picture, arguments...);
  };
}
template <auto function, class... Arguments>
Make Alone(Arguments... arguments) {
  return [=](Inputs& inputs, kit::Content& result) {
    result.picture.CopyFrom(&inputs.image);
    function(&result.picture, arguments...);
  };
}
template <auto function>
Make OfTwo() {
  return [](Inputs& inputs, kit::Content& result) {
    function(&inputs.image, &inputs.negative, &result.picture);
  };
}
// Through the tables of a colour space; one channel, or all.
template <auto build, auto convert, auto get>
Make Converted(int channel = -1) {
  return [channel](Inputs& inputs, kit::Content& result) {
    std::vector<uint8_t> tables(3u << 24);
    uint8_t *t0 = tables.data(), *t1 = t0 + (1 << 24), *t2 = t1 + (1 << 24);
    build(t0, t1, t2);
    convert(&inputs.colour, &result.colour, t0, t1, t2);
    if (channel >= 0) get(&result.colour, &result.picture, channel);
  };
}

const int kWeights[49] = {1, 2, 3, 4, -5, 6, 7, 8, 9,  1, 2, 3, 4, 5, 6, 7, -8,
                          9, 1, 2, 3, 4,  5, 6, 7, 8,  9, 1, 2, 3, 4, 5, 6, 7,
                          8, 9, 1, 2, 3,  4, 5, 6, -7, 8, 9, 1, 2, 3, 4};
Json Weights(int count) { return {{"kernel", std::vector<int>(kWeights, kWeights + count)}}; }

std::vector<Expected> AllExpected() {
  const Json box = {{"horizontal", 3}, {"vertical", 2}}, radius = {{"radius", 3}};
  return {
      {"threshold", {{"above", 90}}, Alone<IxThreshold>(90)},
      {"double-threshold", {{"between", {60, 120}}}, Alone<IxDoubleThreshold>(60, 120)},
      {"otsu", {}, Alone<IxOtsuThreshold>()},
      {"add", {}, OfTwo<IxImageAdd>()},
      {"subtract", {}, OfTwo<IxImageSub>()},
      {"multiply", {}, OfTwo<IxImageMul>()},
      {"divide", {}, OfTwo<IxImageDiv>()},
      {"bitwise-and", {}, OfTwo<IxImageBirwiseAND>()},
      {"bitwise-or", {}, OfTwo<IxImageBirwiseOR>()},
      {"bitwise-xor", {}, OfTwo<IxImageBirwiseXOR>()},
      {"equal", {}, OfTwo<IxImageEqual>()},
      {"not-equal", {}, OfTwo<IxImageNOTEqual>()},
      {"shift-left", {{"bits", 2}}, Of<IxImageShiftLeft>(2)},
      {"shift-right", {{"bits", 3}}, Of<IxImageShiftRight>(3)},
      {"invert", {}, Of<IxImageInvert>()},
      {"gain-offset", {{"gain", 1.5}, {"offset", -20}}, Of<IxImageGainOffset>(1.5, -20.0)},
      {"scale", {{"x", 0.7}, {"y", 1.3}}, Of<IxImageScaling>(0.7, 1.3)},
      {"translate", {{"dx", 5}, {"dy", -7}}, Of<IxImageTranslation>(5, -7)},
      {"rotate", {{"angle", 33}}, Of<IxImageRotation>(33.0)},
      {"rotate-bilinear", {{"angle", 33}}, Of<IxImageRotationBilinear>(33.0)},
      {"pyramid", {}, Of<IxImgPyramid>()},
      {"crop",
       {{"left", 11}, {"top", 7}, {"width", 50}, {"height", 40}},
       [](Inputs& inputs, kit::Content& result) {
         result.picture.Create(50, 40);
         for (int y = 0; y < 40; ++y) {
           for (int x = 0; x < 50; ++x) {
             result.picture.rows[y][x] = inputs.image.rows[y + 7][x + 11];
           }
         }
       }},
      {"sobel", {}, Of<IxSobel>()},
      {"prewitt", {}, Of<IxPrewitt>()},
      {"roberts", {}, Of<IxRobert>()},
      {"laplacian", {}, Of<IxLaplacian>()},
      {"laplacian-sharpen", {}, Of<IxLaplacianSharping>()},
      {"median-3x3", {}, Of<IxMedianFilter3x3>()},
      {"median-5x5", {}, Of<IxMedianFilter5x5>()},
      {"gaussian-3x3", {}, Of<IxGaussianSmoothing3x3>()},
      {"gaussian-5x5", {}, Of<IxGaussianSmoothing5x5>()},
      {"gaussian-7x7", {}, Of<IxGaussianSmoothing7x7>()},
      {"mean", {{"size", 9}}, Of<IxMeanSmoothing>(9)},
      {"mean-3x3", {}, Of<IxMeanSmoothing3x3>()},
      {"mean-5x5", {}, Of<IxMeanSmoothing5x5>()},
      {"mean-7x7", {}, Of<IxMeanSmoothing7x7>()},
      {"convolution-3x3", Weights(9), Of<IxArbitraryConvolution3x3>(kWeights)},
      {"convolution-5x5", Weights(25), Of<IxArbitraryConvolution5x5>(kWeights)},
      {"convolution-7x7", Weights(49), Of<IxArbitraryConvolution7x7>(kWeights)},
      {"dilation", box, InPlace<IxDilation>(3, 2)},
      {"dilation-diamond", radius, InPlace<IxDilationDiamond>(3)},
      {"dilation-circle", radius, InPlace<IxDilationCircle>(3)},
      {"erosion", box, InPlace<IxErosion>(3, 2)},
      {"erosion-diamond", radius, InPlace<IxErosionDiamond>(3)},
      {"erosion-circle", radius, InPlace<IxErosionCircle>(3)},
      {"opening", box, InPlace<IxOpening>(3, 2)},
      {"opening-diamond", radius, InPlace<IxOpeningDiamond>(3)},
      {"opening-circle", radius, InPlace<IxOpeningCircle>(3)},
      {"closing", box, InPlace<IxClosing>(3, 2)},
      {"closing-diamond", radius, InPlace<IxClosingDiamond>(3)},
      {"closing-circle", radius, InPlace<IxClosingCircle>(3)},
      {"morph-gradient", box, Of<IxMorphGradient>(3, 2)},
      {"morph-gradient-diamond", radius, Of<IxMorphGradientDiamond>(3)},
      {"morph-gradient-circle", radius, Of<IxMorphGradientCircle>(3)},
      {"white-top-hat", box, Of<IxMorphWhiteTopHat>(3, 2)},
      {"white-top-hat-diamond", radius, Of<IxMorphWhiteTopHatDiamond>(3)},
      {"white-top-hat-circle", radius, Of<IxMorphWhiteTopHatCircle>(3)},
      {"black-top-hat", box, Of<IxMorphBlackTopHat>(3, 2)},
      {"black-top-hat-diamond", radius, Of<IxMorphBlackTopHatDiamond>(3)},
      {"black-top-hat-circle", radius, Of<IxMorphBlackTopHatCircle>(3)},
      {"gray",
       {},
       [](Inputs& in, kit::Content& out) { IxColorToGray(&in.colour, &out.picture); },
       "color"},
      {"rgb",
       {{"channel", "red"}},
       [](Inputs& in, kit::Content& out) { IxGetHSI(&in.colour, &out.picture, 2); },
       "color"},
      {"hsi",
       {{"channel", "saturation"}},
       Converted<IxCreateCToHSI, IxColorToHSI, IxGetHSI>(1),
       "color"},
      {"lab", {{"channel", "b"}}, Converted<IxCreateCToLab, IxColorToLab, IxGetCIELab>(2), "color"},
      {"color-to-hsi", {}, Converted<IxCreateCToHSI, IxColorToHSI, IxGetHSI>(), "color"},
      {"color-to-lab", {}, Converted<IxCreateCToLab, IxColorToLab, IxGetCIELab>(), "color"},
      {"fill-holes",
       {},
       [](Inputs& in, kit::Content& out) {
         out.picture.CopyFrom(&in.binary);
         RLERegion* const region = CreateRLERegion();
         IxBinaryFillUp(&out.picture, region, 255);
         DestroyRLERegion(region);
       },
       "binary"},
      {"flat-field",
       {{"parameters", "gains"}},
       [](Inputs& in, kit::Content& out) {
         int region[4];
         IxFFCParaLoad(&in.image, region, in.gains.c_str());
         IxFFCCalibrate(&in.image, region[0], region[1], region[2], region[3]);
         out.picture.CopyFrom(&in.image);
       }},
  };
}

// {"size": 9} as --size 9, {"kernel": [1, 2]} as --kernel=1,2, {"between": [1, 2]} as two values.
void AddOptions(const Json& arguments, const std::string& folder,
                std::vector<std::string>& command) {
  for (const auto& item : arguments.items()) {
    const Json& value = item.value();
    std::string text;
    if (item.key() == "kernel") {
      for (const Json& weight : value) text += (text.empty() ? "" : ",") + weight.dump();
      command.push_back("--kernel=" + text);
      continue;
    }
    command.push_back("--" + item.key());
    if (item.key() == "parameters") {
      command.push_back(folder + "/" + value.get<std::string>());
    } else if (value.is_array()) {
      for (const Json& each : value) command.push_back(each.dump());
    } else {
      command.push_back(value.is_string() ? value.get<std::string>() : value.dump());
    }
  }
}

recipe::Recipe Parsed(const Json& json) {
  recipe::Problems problems;
  recipe::Recipe parsed = recipe::ParseRecipe(json.dump(), problems);
  EXPECT_EQ(problems, recipe::Problems{}) << json.dump();
  return parsed;
}

void WriteTray(const std::string& path, uint32_t seed, int width, int height) {
  ColourImage image;
  std::vector<kit::DrawnPart> parts;
  kit::DrawTray(seed, width, height, image, parts);
  kit::WriteImage(path, image);
}

void ExpectSame(const kit::Content& content, const kit::Content& expected,
                const std::string& what) {
  if (expected.picture.bits) {
    EXPECT_SAME_PIXELS(content.picture, expected.picture) << what;
  } else {
    EXPECT_SAME_PIXELS(content.colour, expected.colour) << what;
  }
}

// The steps with one inspector over three images, so that what stays from image to image would
// show; the second one from memory.
TEST(Operations, MakeWhatTheExportsMake) {
  const Scratch scratch;
  const std::string folder = scratch / ".", out = scratch / "out.png";
  WriteTray(scratch / "a.png", 3, 300, 260);
  WriteTray(scratch / "b.png", 4, 301, 270);
  const Inputs first(scratch / "a.png", folder);
  const std::map<std::string, std::string> files = {{"image", scratch / "a.png"},
                                                    {"color", scratch / "a.png"},
                                                    {"binary", scratch / "binary.png"}};
  kit::WriteImage(scratch / "negative.png", first.negative);
  kit::WriteImage(scratch / "binary.png", first.binary);
  ASSERT_EQ(Quillon({"calibrate-flat-field", scratch / "a.png", scratch / "gains", "--target",
                     "150", "--region", "10", "200", "20", "220"})
                .exitCode,
            0);
  std::filesystem::remove(scratch / "gains.json");  // for pictures of any size with the region
  std::vector<std::string> tried;
  for (const Expected& expected : AllExpected()) {
    const std::string name = tried.emplace_back(expected.operation);
    const kit::Operation* const operation = kit::FindOperation(name);
    ASSERT_TRUE(operation) << name;
    const bool isPair = operation->InputCount() == 2;

    Json step = expected.arguments.is_null() ? Json::object() : expected.arguments;
    std::vector<std::string> command = {name, files.at(expected.input), out};
    if (isPair) command.insert(command.begin() + 2, scratch / "negative.png");
    AddOptions(step, folder, command);
    const Answer answer = Quillon(command);
    ASSERT_EQ(answer.exitCode, 0) << name << answer.err;
    Inputs inputs(scratch / "a.png", folder);
    kit::Content made, written;
    expected.make(inputs, made);
    kit::ReadImage(out, written.picture, written.colour);
    ExpectSame(written, made, "quillon " + name);

    step.update({{"name", "step"}, {"operation", name}, {"input", expected.input}});
    if (isPair) step["input"] = {"image", "negative"};
    const recipe::Recipe parsed =
        Parsed({{"name", "r"},
                {"steps",
                 {{{"name", "negative"}, {"operation", "invert"}, {"input", "image"}},
                  {{"name", "binary"}, {"operation", "otsu"}, {"input", "image"}},
                  step}},
                {"measurements",
                 Json::array({{{"name", "mean"}, {"input", "image"}, {"value", "mean"}}})}});
    recipe::Inspector inspector(parsed, folder);
    for (const char* file : {"a.png", "b.png", "a.png"}) {
      Inputs source(scratch / file, folder);
      const auto record =
          file[0] == 'b' ? inspector.Inspect(source.colour) : inspector.Inspect(scratch / file);
      ASSERT_EQ(record.error, "") << name;
      EXPECT_SAME_PIXELS(inspector.Of(recipe::kImageSlot).picture, source.image)
          << name << " changes its input";
      kit::Content result;
      expected.make(source, result);
      ExpectSame(inspector.Of(parsed.steps.back().output), result, name + " of " + file);
    }
  }
  // Corrections of a lens, of a camera and of shading have tests of their own.
  tried.insert(tried.end(), {"undistort", "rectify", "shading"});
  for (const auto& operation : kit::Operations()) {
    const bool isTried = std::find(tried.begin(), tried.end(), operation.name) != tried.end();
    EXPECT_TRUE(isTried || !IsPicture(operation.output))
        << operation.name << " is not held against its export";
  }
}

TEST(Operations, GrayLeavesAGreyPictureAsItIs) {
  const Scratch scratch;
  GreyImage image, written;
  Fill(image, 37, 19, Content::kNoise);
  kit::WriteImage(scratch / "grey.png", image);
  ASSERT_EQ(Quillon({"gray", scratch / "grey.png", scratch / "out.png"}).exitCode, 0);
  kit::ReadImage(scratch / "out.png", written);
  EXPECT_SAME_PIXELS(written, image) << "the command";
  for (const char* input : {"color", "image"}) {
    const recipe::Recipe parsed =
        Parsed({{"name", "r"},
                {"steps", {{{"name", "g"}, {"operation", "gray"}, {"input", input}}}},
                {"measurements", {{{"name", "m"}, {"input", "g"}, {"value", "mean"}}}}});
    recipe::Inspector inspector(parsed, {});
    inspector.Inspect(image);
    EXPECT_SAME_PIXELS(inspector.Of(parsed.steps.back().output).picture, image) << input;
  }
}

TEST(Operations, ThatFindThingsGiveWhatTheCommandsPrint) {
  const Scratch scratch;
  ASSERT_EQ(Quillon({"sample", scratch / "s"}).exitCode, 0);
  const std::string image = scratch / "s/tray.png";
  WriteTray(scratch / "other.png", 9, 500, 400);
  const Json blobs =
      QuillonJson({"blobs", image, "--band", "124", "255", "--fill-holes", "--min-area", "3000",
                   "--max-area", "7000", "--center-x", "100", "900"})["blobs"];
  const Json matches =
      QuillonJson({"match", scratch / "s/bracket.png", image, "--angle", "-180", "180"})["matches"];
  const Json colours = QuillonJson(
      {"match-color", scratch / "s/bracket.png", image, "--angle", "-180", "180"})["matches"];
  const Json located =
      QuillonJson({"locate", scratch / "s/bracket.png", image, "--angle", "-40", "40"})["matches"];
  ASSERT_EQ(Quillon({"teach", scratch / "s/bracket.png", scratch / "s/bracket.model"}).exitCode, 0);
  const Json found = QuillonJson({"find", scratch / "s/bracket.model", image, "--region", "100",
                                  "50", "1000", "500", "--max", "3"})["matches"];
  ASSERT_GT(blobs.size(), 3u);
  ASSERT_EQ(matches.size(), 4u);
  ASSERT_EQ(located.size(), 1u);
  ASSERT_GT(found.size(), 1u);

  const recipe::Recipe parsed = Parsed(Json::parse(R"({"name": "r", "steps": [
    {"name": "blobs", "operation": "blobs", "input": "image", "band": [124, 255], "fill_holes": true, "min_area": 3000, "max_area": 7000, "center_x": [100, 900]},
    {"name": "matches", "operation": "match", "input": "image", "template": "bracket.png", "angle": [-180, 180]},
    {"name": "colours", "operation": "match-color", "input": "color", "template": "bracket.png", "angle": [-180, 180]},
    {"name": "located", "operation": "locate", "input": "image", "template": "bracket.png", "angle": [-40, 40]},
    {"name": "found", "operation": "find", "input": "image", "template": "bracket.model", "region": [100, 50, 1000, 500], "max": 3}],
    "measurements": [{"name": "m", "input": "blobs", "value": "mean", "which": "mean"}]})"));
  recipe::Inspector inspector(parsed, scratch / "s");
  inspector.Inspect(image);
  ASSERT_EQ(inspector.Inspect(scratch / "other.png").error, "");
  ASSERT_EQ(inspector.Inspect(image).error, "");
  const auto expectThings = [&](size_t step, const Json& rows,
                                const std::map<std::string, double kit::Thing::*>& members) {
    const auto& things = inspector.Of(parsed.steps[step].output).things;
    ASSERT_EQ(things.size(), rows.size()) << parsed.steps[step].name;
    for (size_t i = 0; i < things.size(); ++i) {
      for (const auto& [name, member] : members) {
        // The command prints single-precision numbers by their shortest form.
        EXPECT_NEAR(things[i].*member, rows[i][name].get<double>(), 1e-4)
            << parsed.steps[step].name << i << name;
      }
    }
  };
  using kit::Thing;
  expectThings(0, blobs,
               {{"area", &Thing::area},
                {"x", &Thing::x},
                {"y", &Thing::y},
                {"width", &Thing::width},
                {"height", &Thing::height},
                {"angle", &Thing::angle},
                {"mean", &Thing::mean}});
  const std::map<std::string, double Thing::*> match = {{"x", &Thing::x},
                                                        {"y", &Thing::y},
                                                        {"angle", &Thing::angle},
                                                        {"scale", &Thing::scale},
                                                        {"score", &Thing::score}};
  expectThings(1, matches, match);
  expectThings(2, colours, match);
  expectThings(
      3, located,
      {{"x", &Thing::x}, {"y", &Thing::y}, {"angle", &Thing::angle}, {"score", &Thing::score}});
  expectThings(4, found, match);
}

// A row that says no more than its things: what commands print and draw of them.
TEST(Operations, ThingsAreToldPlainly) {
  using namespace kit;
  const Operation operation = {
      .name = "found",
      .family = "",
      .summary = "",
      .output = Kind::kMatches,
      .run = [](const Call& call) {
        call.result.things.push_back(
            {.x = 3, .y = 4, .score = 0.5, .corners = {1, 2, 5, 2, 5, 6, 1, 6}});
      }};
  ReadyOperation ready(operation, {});
  GreyImage image;
  Fill(image, 12, 10, Content::kFlat);
  kit::Content found;
  ready.Run({.grey = &image}, {}, found);
  const Searched searched = {"a/b.png", {.grey = &image}, operation.output, found.things};
  EXPECT_EQ(
      ToJson(ready.Tell(searched)).dump(),
      R"({"matches":[{"n":0,"x":3.0,"y":4.0,"width":0.0,"height":0.0,"angle":0.0,"scale":0.0,)"
      R"("score":0.5,"left":1.0,"top":2.0,"right":5.0,"bottom":6.0}]})");
  Report report = ready.Page(searched.name);
  EXPECT_EQ(report.title, "What was found in b.png");
  ready.Draw(searched, 7, report);
  ASSERT_EQ(report.pictures.size(), 1u);
  const std::vector<Drawing>& drawings = report.pictures[0].Drawings();
  ASSERT_EQ(drawings.size(), report.layers.size());
  for (size_t i = 0; i < drawings.size(); ++i) {
    EXPECT_EQ(drawings[i].mark.layer, static_cast<int>(i));
    EXPECT_EQ(drawings[i].mark.row, 7);
  }
  EXPECT_EQ(drawings[0].points.size(), 4u);
}

TEST(Operations, ARecipeFailsABoardByItsDefects) {
  const Scratch scratch;
  ASSERT_EQ(Quillon({"sample", scratch / "s"}).exitCode, 0);
  WriteText(scratch / "s/recipe.json", R"({"name": "r", "steps": [
    {"name": "board", "operation": "inspect", "input": "image", "good": ["board.png"]}],
    "measurements": [{"name": "defects", "input": "board", "value": "count", "max": 0},
                     {"name": "missing", "input": "board", "value": "missing", "which": "sum"},
                     {"name": "first", "input": "board", "value": "x"}]})");
  const Answer run = Quillon({"run", scratch / "s/recipe.json", scratch / "s/board-passing.png",
                              scratch / "s/board-failing.png", "--json", "--out", scratch / "run"});
  EXPECT_EQ(run.exitCode, 3) << run.err;
  const Json passing = Json::parse(run.out.substr(0, run.out.find('\n')));
  const Json failing = Json::parse(run.out.substr(run.out.find('\n') + 1));
  EXPECT_EQ(passing["verdict"], "pass");
  EXPECT_EQ(failing["verdict"], "fail");
  const Answer command =
      Quillon({"inspect", scratch / "s/board.png", scratch / "s/board-failing.png", "--json"});
  const Json defects = Json::parse(command.out)["defects"];
  int missing = 0;
  for (const Json& defect : defects) missing += defect["missing"].get<int>();
  EXPECT_EQ(failing["measurements"]["defects"], defects.size());
  EXPECT_EQ(failing["measurements"]["missing"], missing);
  EXPECT_EQ(failing["measurements"]["first"], defects[0]["x"]);
}

}  // namespace
}  // namespace quillon::test
