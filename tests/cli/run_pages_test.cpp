// The pages of a run, the example recipes, and every operation of recipes against the export
// itself.
#include <gtest/gtest.h>

#include <algorithm>
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

size_t Count(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

void WriteTray(const std::string& path, uint32_t seed, int width, int height) {
  ColourImage image;
  std::vector<kit::DrawnPart> parts;
  kit::DrawTray(seed, width, height, image, parts);
  kit::WriteImage(path, image);
}

TEST(RunPages, HoldEveryImageMeasurementAndVerdict) {
  const Scratch scratch;
  const std::string folder = scratch / "trays", out = scratch / "out";
  std::filesystem::create_directories(folder);
  for (uint32_t i = 0; i < 5; ++i) {
    WriteTray(folder + "/a&b'" + std::to_string(i) + ".png", i + 1, 420, 420);
  }
  WriteText(folder + "/z.png", "this is not a picture");
  WriteText(scratch / "recipe.json", R"({
    "name": "Parts <&> 'more'", "note": "<note>",
    "steps": [
      {"name": "part <of> it", "operation": "crop", "input": "image", "left": 10, "top": 10, "width": 400, "height": 390},
      {"name": "bright", "operation": "otsu", "input": "part <of> it"},
      {"name": "parts", "operation": "blobs", "input": "bright", "min_area": 50, "max_area": 100000}],
    "measurements": [
      {"name": "parts", "input": "parts", "value": "count", "max": 8},
      {"name": "largest", "input": "parts", "value": "area", "which": "largest"}]})");
  const auto run = [&](const std::string& to, const char* jobs) {
    return Quillon({"run", scratch / "recipe.json", folder, "--out", to, "--jobs", jobs});
  };
  const Answer answer = run(out, "1");
  ASSERT_EQ(answer.exitCode, 3) << answer.err;
  const auto files = FilesOf(out);
  EXPECT_EQ(files.size(), 2u + 2 * 5)
      << "index, results, and two files for each image that was read";

  std::vector<Json> lines;
  std::istringstream stream(files.at("results.jsonl"));
  for (std::string line; std::getline(stream, line);) lines.push_back(Json::parse(line));
  lines.erase(lines.begin());
  const std::string& index = files.at("index.html");
  std::map<std::string, size_t> verdicts;
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string verdict = lines[i]["verdict"];
    ++verdicts[verdict];
    if (verdict == "unreadable") continue;
    const std::string number = "000" + std::to_string(i + 1),
                      page = "pages/" + number + "-a_b_" + std::to_string(i) + ".html";
    ASSERT_TRUE(files.contains(page)) << page;
    EXPECT_EQ(Count(index, "href='" + page + "'"), 1u);
    EXPECT_EQ(Count(index, "src='thumbs/" + number + ".jpg'"), 1u);
    EXPECT_EQ(files.at("thumbs/" + number + ".jpg").substr(0, 2), "\xff\xd8");
    const std::string& text = files.at(page);
    EXPECT_EQ(Count(text, "<p class='verdict " + verdict + "'>"), 1u);
    EXPECT_EQ(Count(text, "<tr data-row="), lines[i]["measurements"]["parts"].get<size_t>());
    const std::string largest = std::to_string(lines[i]["measurements"]["largest"].get<int>());
    EXPECT_EQ(Count(text, "<strong>" + largest + "</strong>"), 1u) << largest;
    // The image, where nothing is drawn because its pixels lie elsewhere, and the two pictures
    // that the parts were found in.
    EXPECT_EQ(Count(text, "data:image/png;base64,"), 3u);
    EXPECT_EQ(Count(text, "<g data-row='0'>"), 2u);
    EXPECT_EQ(Count(text, "part &lt;of&gt; it"), 1u);
    EXPECT_EQ(Count(text, "http"), 0u);
  }
  EXPECT_GE(verdicts.size(), 3u) << answer.out;
  for (const auto& [verdict, count] : verdicts) {
    EXPECT_EQ(Count(index, "class='card' data-verdict='" + verdict + "'"), count) << verdict;
    EXPECT_EQ(Count(index, "<b>" + std::to_string(count) + "</b> " + verdict + "<"), 1u) << verdict;
  }
  EXPECT_EQ(Count(index, "<figure class='histogram'"), 2u);
  EXPECT_EQ(Count(index, "Parts &lt;&amp;&gt; &#39;more&#39;"), 2u);
  EXPECT_EQ(Count(index, "<note>"), 0u);
  EXPECT_EQ(Count(index, "http"), 0u);

  // The same files from four threads, and from a run that was cut off.
  run(scratch / "four", "4");
  EXPECT_EQ(FilesOf(scratch / "four"), files);
  const std::string& results = files.at("results.jsonl");
  WriteText(out + "/results.jsonl", results.substr(0, results.size() / 2));
  std::filesystem::remove(out + "/index.html");
  const Answer rest = Quillon({"run", scratch / "recipe.json", folder, "--out", out, "--resume"});
  EXPECT_EQ(FilesOf(out), files) << rest.err;
}

TEST(RunExamples, FindWhatTheirNotesSay) {
  const Scratch scratch;
  const auto example = [](const char* name) {
    return InProgramFolder("recipes/" + std::string(name));
  };
  for (const char* seed : {"1", "2"}) {
    const std::string folder = scratch / seed;
    ASSERT_EQ(Quillon({"sample", folder, "--seed", seed}).exitCode, 0);
    const Json truth = Json::parse(ReadText(folder + "/tray.json"))["blobs"];
    double leftmost = 1e9;
    int brackets = 0;
    for (const Json& part : truth) {
      if (part["kind"] != "bracket") continue;
      ++brackets;
      leftmost = std::min(leftmost, part["x"].get<double>());
    }
    const Json found = Json::parse(
        Quillon({"run", example("find-brackets.json"), folder + "/tray.png", "--json"}).out);
    EXPECT_EQ(found["measurements"]["brackets"], brackets);
    // The template's middle is not the bracket's centre of mass: they are some pixels apart.
    EXPECT_NEAR(found["measurements"]["leftmost"].get<double>(), leftmost, 15);
    const bool isFirst = std::string(seed) == "1";
    const Answer seats = Quillon({"run", example("presence.json"), folder + "/tray.png", "--json"});
    EXPECT_EQ(seats.exitCode, isFirst ? 0 : 3) << seats.out << seats.err;
  }
  GreyImage committed;
  ColourImage drawn;
  kit::ReadImage(example("bracket.png"), committed);
  kit::DrawBracket(drawn);
  kit::WriteImage(scratch / "bracket.png", drawn);
  GreyImage expected;
  kit::ReadImage(scratch / "bracket.png", expected);
  EXPECT_SAME_PIXELS(committed, expected);

  const char* const data = std::getenv("QUILLON_DATA");
  if (!data || !std::filesystem::exists(std::string(data) + "/photos/coins.png")) {
    GTEST_SKIP() << "QUILLON_DATA is not set: the coins are not counted";
  }
  const Answer coins = Quillon(
      {"run", example("count-coins.json"), std::string(data) + "/photos/coins.png", "--json"});
  EXPECT_EQ(Json::parse(coins.out)["measurements"]["coins"], 24);
  EXPECT_EQ(coins.exitCode, 0) << coins.out;
}

// ---- operations ---------------------------------------------------------------------------------

// What an operation must make of an image. The template and the parameters lie beside the recipe.
struct Expected {
  const char* operation;
  Json arguments;
  std::function<void(GreyImage& image, GreyImage& result)> make;
};

template <auto function>
std::function<void(GreyImage&, GreyImage&)> Plain() {
  return [](GreyImage& image, GreyImage& result) { function(&image, &result); };
}
template <auto function, class... Arguments>
std::function<void(GreyImage&, GreyImage&)> With(Arguments... arguments) {
  return [=](GreyImage& image, GreyImage& result) { function(&image, &result, arguments...); };
}
template <auto function, class... Arguments>
std::function<void(GreyImage&, GreyImage&)> InPlace(Arguments... arguments) {
  return [=](GreyImage& image, GreyImage& result) {
    result.CopyFrom(&image);
    function(&result, &result, arguments...);
  };
}
template <auto function, class... Arguments>
std::function<void(GreyImage&, GreyImage&)> Alone(Arguments... arguments) {
  return [=](GreyImage& image, GreyImage& result) {
    result.CopyFrom(&image);
    function(&result, arguments...);
  };
}
// Of the image and its negative.
template <auto function>
std::function<void(GreyImage&, GreyImage&)> Pair() {
  return [](GreyImage& image, GreyImage& result) {
    GreyImage negative;
    IxImageInvert(&image, &negative);
    function(&image, &negative, &result);
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
      {"add", {}, Pair<IxImageAdd>()},
      {"subtract", {}, Pair<IxImageSub>()},
      {"multiply", {}, Pair<IxImageMul>()},
      {"divide", {}, Pair<IxImageDiv>()},
      {"bitwise-and", {}, Pair<IxImageBirwiseAND>()},
      {"bitwise-or", {}, Pair<IxImageBirwiseOR>()},
      {"bitwise-xor", {}, Pair<IxImageBirwiseXOR>()},
      {"equal", {}, Pair<IxImageEqual>()},
      {"not-equal", {}, Pair<IxImageNOTEqual>()},
      {"shift-left", {{"bits", 2}}, With<IxImageShiftLeft>(2)},
      {"shift-right", {{"bits", 3}}, With<IxImageShiftRight>(3)},
      {"invert", {}, Plain<IxImageInvert>()},
      {"gain-offset", {{"gain", 1.5}, {"offset", -20}}, With<IxImageGainOffset>(1.5, -20.0)},
      {"scale", {{"x", 0.7}, {"y", 1.3}}, With<IxImageScaling>(0.7, 1.3)},
      {"translate", {{"dx", 5}, {"dy", -7}}, With<IxImageTranslation>(5, -7)},
      {"rotate", {{"angle", 33}}, With<IxImageRotation>(33.0)},
      {"rotate-bilinear", {{"angle", 33}}, With<IxImageRotationBilinear>(33.0)},
      {"pyramid", {}, Plain<IxImgPyramid>()},
      {"crop",
       {{"left", 11}, {"top", 7}, {"width", 50}, {"height", 40}},
       [](GreyImage& image, GreyImage& result) {
         result.Create(50, 40);
         for (int y = 0; y < 40; ++y) {
           for (int x = 0; x < 50; ++x) result.rows[y][x] = image.rows[y + 7][x + 11];
         }
       }},
      {"sobel", {}, Plain<IxSobel>()},
      {"prewitt", {}, Plain<IxPrewitt>()},
      {"roberts", {}, Plain<IxRobert>()},
      {"laplacian", {}, Plain<IxLaplacian>()},
      {"laplacian-sharpen", {}, Plain<IxLaplacianSharping>()},
      {"median-3x3", {}, Plain<IxMedianFilter3x3>()},
      {"median-5x5", {}, Plain<IxMedianFilter5x5>()},
      {"gaussian-3x3", {}, Plain<IxGaussianSmoothing3x3>()},
      {"gaussian-5x5", {}, Plain<IxGaussianSmoothing5x5>()},
      {"gaussian-7x7", {}, Plain<IxGaussianSmoothing7x7>()},
      {"mean", {{"size", 9}}, With<IxMeanSmoothing>(9)},
      {"mean-3x3", {}, Plain<IxMeanSmoothing3x3>()},
      {"mean-5x5", {}, Plain<IxMeanSmoothing5x5>()},
      {"mean-7x7", {}, Plain<IxMeanSmoothing7x7>()},
      {"convolution-3x3", Weights(9), With<IxArbitraryConvolution3x3>(kWeights)},
      {"convolution-5x5", Weights(25), With<IxArbitraryConvolution5x5>(kWeights)},
      {"convolution-7x7", Weights(49), With<IxArbitraryConvolution7x7>(kWeights)},
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
      {"morph-gradient", box, With<IxMorphGradient>(3, 2)},
      {"morph-gradient-diamond", radius, With<IxMorphGradientDiamond>(3)},
      {"morph-gradient-circle", radius, With<IxMorphGradientCircle>(3)},
      {"white-top-hat", box, With<IxMorphWhiteTopHat>(3, 2)},
      {"white-top-hat-diamond", radius, With<IxMorphWhiteTopHatDiamond>(3)},
      {"white-top-hat-circle", radius, With<IxMorphWhiteTopHatCircle>(3)},
      {"black-top-hat", box, With<IxMorphBlackTopHat>(3, 2)},
      {"black-top-hat-diamond", radius, With<IxMorphBlackTopHatDiamond>(3)},
      {"black-top-hat-circle", radius, With<IxMorphBlackTopHatCircle>(3)},
  };
}

recipe::Recipe Parsed(const Json& json) {
  recipe::Problems problems;
  recipe::Recipe parsed = recipe::ParseRecipe(json.dump(), problems);
  EXPECT_EQ(problems, recipe::Problems{}) << json.dump();
  return parsed;
}

// With one inspector over three images, so that what stays from image to image would show.
TEST(Operations, ArePixelByPixelWhatTheExportsMake) {
  const Scratch scratch;
  WriteTray(scratch / "a.png", 3, 300, 260);
  WriteTray(scratch / "b.png", 4, 301, 270);
  const Json negative = {{"name", "negative"}, {"operation", "invert"}, {"input", "image"}};
  const Json mean = {{"name", "mean"}, {"input", "step"}, {"value", "mean"}};
  std::vector<std::string> tried;
  for (const Expected& expected : AllExpected()) {
    tried.emplace_back(expected.operation);
    const bool isPair = kit::FindOperation(expected.operation)->InputCount() == 2;
    Json step = expected.arguments.is_null() ? Json::object() : expected.arguments;
    step["name"] = "step";
    step["operation"] = expected.operation;
    step["input"] = isPair ? Json{"image", "negative"} : Json("image");
    const recipe::Recipe parsed = Parsed({{"name", "r"},
                                          {"steps", Json::array({negative, step})},
                                          {"measurements", Json::array({mean})}});
    recipe::Inspector inspector(parsed, "");
    for (const char* name : {"a.png", "b.png", "a.png"}) {
      const recipe::ImageRecord record = inspector.Inspect(scratch / name);
      ASSERT_EQ(record.error, "") << expected.operation;
      GreyImage image, result;
      kit::ReadImage(scratch / name, image);
      expected.make(image, result);
      EXPECT_SAME_PIXELS(inspector.Of(parsed.steps[1].output).picture, result)
          << expected.operation << " of " << name;
      double sum = 0;
      for (int y = 0; y < result.height; ++y) {
        for (int x = 0; x < result.width; ++x) sum += result.rows[y][x];
      }
      EXPECT_EQ(*record.values[0], sum / (double{1} * result.width * result.height));
      kit::ReadImage(scratch / name, image);
      EXPECT_SAME_PIXELS(inspector.Of(recipe::kImageSlot).picture, image)
          << expected.operation << " changes its input";
    }
  }
  // Those of other kinds are held by the commands that share their code, and below.
  for (const auto& operation : kit::Operations()) {
    const bool isPicture = operation.inputs[0] == kit::Kind::kPicture &&
                           operation.output == kit::Kind::kPicture && !operation.prepare;
    const bool isTried = std::find(tried.begin(), tried.end(), operation.name) != tried.end();
    EXPECT_TRUE(isTried || !isPicture) << operation.name << " is not held against its export";
  }
}

TEST(Operations, ThatFindAndCalibrateAreWhatTheCommandsPrint) {
  const Scratch scratch;
  ASSERT_EQ(Quillon({"sample", scratch / "s"}).exitCode, 0);
  const std::string image = scratch / "s/tray.png";
  WriteTray(scratch / "other.png", 9, 500, 400);
  ASSERT_EQ(Quillon({"flatfield", "build", image, scratch / "s/field", "--target", "150"}).exitCode,
            0);
  ASSERT_EQ(
      Quillon({"flatfield", "apply", image, scratch / "s/field", scratch / "flat.png"}).exitCode,
      0);
  ASSERT_EQ(Quillon({"color", "hsi", image, scratch / "hue.png", "--channel", "hue"}).exitCode, 0);
  ASSERT_EQ(Quillon({"color", "lab", image, scratch / "b.png", "--channel", "b"}).exitCode, 0);
  const Json blobs =
      QuillonJson({"blobs", image, "--band", "124", "255", "--fill-holes", "--min-area", "3000",
                   "--max-area", "7000", "--center-x", "100", "900"})["blobs"];
  const Json matches =
      QuillonJson({"match", scratch / "s/bracket.png", image, "--angle", "-180", "180"})["matches"];
  const Json colours = QuillonJson(
      {"match", scratch / "s/bracket.png", image, "--angle", "-180", "180", "--color"})["matches"];
  const Json located =
      QuillonJson({"locate", scratch / "s/bracket.png", image, "--angle", "-40", "40"})["matches"];
  ASSERT_GT(blobs.size(), 3u);
  ASSERT_EQ(matches.size(), 4u);
  ASSERT_EQ(located.size(), 1u);

  const recipe::Recipe parsed = Parsed(Json::parse(R"({"name": "r", "steps": [
    {"name": "flat", "operation": "flat-field", "input": "image", "parameters": "field"},
    {"name": "hue", "operation": "hsi", "input": "color", "channel": "hue"},
    {"name": "b", "operation": "lab", "input": "color", "channel": "b"},
    {"name": "red", "operation": "rgb", "input": "color", "channel": "red"},
    {"name": "gray", "operation": "gray", "input": "color"},
    {"name": "blobs", "operation": "blobs", "input": "image", "band": [124, 255], "fill_holes": true, "min_area": 3000, "max_area": 7000, "center_x": [100, 900]},
    {"name": "matches", "operation": "match", "input": "image", "template": "bracket.png", "angle": [-180, 180]},
    {"name": "colours", "operation": "match-color", "input": "color", "template": "bracket.png", "angle": [-180, 180]},
    {"name": "located", "operation": "locate", "input": "image", "template": "bracket.png", "angle": [-40, 40]}],
    "measurements": [{"name": "m", "input": "blobs", "value": "mean", "which": "mean"}]})"));
  recipe::Inspector inspector(parsed, scratch / "s");
  inspector.Inspect(image);
  ASSERT_EQ(inspector.Inspect(scratch / "other.png").error, "");
  ASSERT_EQ(inspector.Inspect(image).error, "");
  const auto picture = [&](size_t step) -> const GreyImage& {
    return inspector.Of(parsed.steps[step].output).picture;
  };
  const char* const files[] = {"flat.png", "hue.png", "b.png"};
  for (size_t i = 0; i < 3; ++i) {
    GreyImage expected;
    kit::ReadImage(scratch / files[i], expected);
    EXPECT_SAME_PIXELS(picture(i), expected) << files[i];
  }
  ColourImage colour;
  kit::ReadImage(image, colour);
  GreyImage red;
  red.Create(colour.width, colour.height);
  for (int y = 0; y < red.height; ++y) {
    for (int x = 0; x < red.width; ++x) red.rows[y][x] = colour.rows[y][3 * x + 2];
  }
  EXPECT_SAME_PIXELS(picture(3), red);
  EXPECT_SAME_PIXELS(picture(4), inspector.Of(recipe::kImageSlot).picture);

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
  expectThings(5, blobs,
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
  expectThings(6, matches, match);
  expectThings(7, colours, match);
  expectThings(
      8, located,
      {{"x", &Thing::x}, {"y", &Thing::y}, {"angle", &Thing::angle}, {"score", &Thing::score}});
}

}  // namespace
}  // namespace quillon::test
