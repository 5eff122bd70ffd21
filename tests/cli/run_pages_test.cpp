// The pages of a run, and the example recipes.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>

#include "cli/host.h"
#include "cli/page.h"
#include "kit/images/image_files.h"
#include "kit/recipe/histogram.h"
#include "kit/report/spread.h"
#include "kit/samples/tray.h"
#include "quillon/quillon.h"
#include "support/images.h"

namespace quillon::test {
namespace {

using Json = nlohmann::json;
namespace recipe = kit::recipe;

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
  WriteTray(folder + "/y.png", 9, 400, 420);  // too narrow for the second step
  WriteText(folder + "/z.png", "this is not a picture");
  WriteText(scratch / "recipe.json", R"({
    "name": "Parts <&> 'more'", "note": "<note>",
    "steps": [
      {"name": "even", "operation": "median-3x3", "input": "image"},
      {"name": "part <of> it", "operation": "crop", "input": "even", "left": 10, "top": 10, "width": 400, "height": 390},
      {"name": "bright", "operation": "otsu", "input": "part <of> it"},
      {"name": "parts", "operation": "blobs", "input": "bright", "min_area": 50, "max_area": 100000}],
    "measurements": [
      {"name": "parts", "input": "parts", "value": "count", "max": 8},
      {"name": "largest", "input": "parts", "value": "area", "which": "largest"}]})");
  const auto run = [&](const std::string& to, const char* jobs) {
    return Quillon({"run", scratch / "recipe.json", folder, "--out", to, "--jobs", jobs, "--csv"});
  };
  const Answer answer = run(out, "1");
  ASSERT_EQ(answer.exitCode, 3) << answer.err;
  const auto files = FilesOf(out);
  EXPECT_EQ(files.size(), 2u + 2 * 6)
      << "index, results, and two files for each image that was read";

  std::vector<Json> lines;
  std::istringstream stream(files.at("results.jsonl"));
  for (std::string line; std::getline(stream, line);) lines.push_back(Json::parse(line));
  lines.erase(lines.begin());
  const std::string& index = files.at("index.html");
  EXPECT_EQ(PageCsv(index), answer.out);
  const Json images = PageData(index)["images"];
  std::map<std::string, size_t> verdicts;
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string verdict = lines[i]["verdict"];
    ++verdicts[verdict];
    if (verdict == "unreadable") {
      EXPECT_EQ(images[i], Json({"", "", -1, -1}));
      continue;
    }
    const bool isDone = verdict != "error";
    const std::string number = "000" + std::to_string(i + 1),
                      stem = isDone ? "a_b_" + std::to_string(i) : "y",
                      page = "pages/" + number + "-" + stem + ".html";
    ASSERT_TRUE(files.contains(page)) << page;
    EXPECT_EQ(images[i][0], page);
    EXPECT_EQ(images[i][1], "thumbs/" + number + ".jpg");
    EXPECT_EQ(files.at("thumbs/" + number + ".jpg").substr(0, 2), "\xff\xd8");
    const std::string& text = files.at(page);
    EXPECT_EQ(Count(text, "<p class='verdict " + verdict + "'>"), 1u);
    const Json data = PageData(text);
    if (!isDone) {
      // What was done before the step that failed, and the message at the step.
      EXPECT_EQ(Count(text, "data:image/png;base64,"), 2u);
      ASSERT_EQ(data["pictures"].size(), 3u);
      EXPECT_EQ(data["pictures"][2]["like"], 1);
      EXPECT_EQ(data["first"], 2);
      EXPECT_EQ(Count(text, "<figcaption class='failed'>step &#39;part &lt;of&gt; it&#39;: "), 1u);
      EXPECT_EQ(Count(text, "<span>part &lt;of&gt; it: failed</span>"), 1u);
      EXPECT_EQ(data["columns"], Json::array()) << "of the image before";
      continue;
    }
    const size_t parts = lines[i]["measurements"]["parts"];
    EXPECT_EQ(Count(PageCsv(text), "\nparts,"), parts);
    const std::string largest = std::to_string(lines[i]["measurements"]["largest"].get<int>());
    EXPECT_EQ(Count(text, "<strong>" + largest + "</strong>"), 1u) << largest;
    // The image, a picture for each step, and what was found over the one that it was found in.
    EXPECT_EQ(Count(text, "data:image/png;base64,"), 4u);
    ASSERT_EQ(data["pictures"].size(), 5u);
    for (size_t picture = 0; picture < 5; ++picture) {
      EXPECT_EQ(data["pictures"][picture]["drawings"].size(), picture == 4 ? 4 * parts : 0);
    }
    EXPECT_EQ(data["pictures"][4]["like"], 3);
    EXPECT_EQ(data["first"], 4);
    EXPECT_EQ(Count(text, "<span>part &lt;of&gt; it</span>"), 1u);
    EXPECT_EQ(Count(text, "http"), 0u);
  }
  EXPECT_GE(verdicts.size(), 3u) << answer.out;
  for (const auto& [verdict, count] : verdicts) {
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

// Bins hold values within the limits or values outside them, limits are edges, and the axis begins
// at 0 where values cannot be negative.
TEST(RunPages, HistogramsNeverMixPassAndFail) {
  struct Case {
    const char* quantity;
    std::vector<double> values;
    std::optional<double> min, max;
  };
  const Case cases[] = {
      {"count", {24, 24, 25, 23, 0}, 24, 24},
      {"count", {2, 3, 3, 7}, 2.5, {}},
      {"count", {4001, 4002, 4004}, {}, 4002},
      {"area", {3610, 3611, 3700, 4200, 9000}, 3611, 4200},
      {"area", {10, 900, 40}, {}, {}},
      {"mean", {99.5, 100.5, 100, 101.25}, 100, 100},
      {"mean", {7.25}, 7.25, {}},
      {"mean", {0.25, 0.5}, 0.75, {}},
      {"score", {0.91, 0.95, 0.99}, {}, 0.91},
      {"angle", {-12.5, 0, 170.1}, -10, 10},
      {"x", {0.1, 1e6, 5e5}, 20, 5e5},
  };
  for (const Case& c : cases) {
    recipe::Measurement measurement = {.name = c.quantity, .min = c.min, .max = c.max};
    for (const auto& quantity : kit::Quantities()) {
      if (quantity.name == std::string(c.quantity)) measurement.quantity = &quantity;
    }
    std::vector<std::optional<double>> values(c.values.begin(), c.values.end());
    values.push_back(std::nullopt);
    const recipe::Histogram histogram(measurement, values);
    std::vector<size_t> counts(histogram.Bins().size());
    for (const double value : c.values) {
      const auto bin = static_cast<size_t>(histogram.BinOf(value));
      ASSERT_LT(bin, counts.size()) << c.quantity << " " << value;
      ++counts[bin];
      const auto& [from, to, passes, count] = histogram.Bins()[bin];
      EXPECT_LE(from, value) << c.quantity;
      EXPECT_GE(to, value) << c.quantity;
      EXPECT_EQ(passes, recipe::Passes(measurement, value)) << c.quantity << " " << value;
    }
    EXPECT_EQ(histogram.BinOf({}), -1);
    for (size_t i = 0; i < counts.size(); ++i) {
      EXPECT_EQ(histogram.Bins()[i].count, counts[i]) << c.quantity << " bin " << i;
    }
    const bool beginsAtZero = histogram.Html(0).find(">0</text>") != std::string::npos ||
                              histogram.Html(0).find(">0.") != std::string::npos;
    EXPECT_EQ(beginsAtZero, std::string(c.quantity) != "angle") << histogram.Html(0);
  }
}

// By hand: of 2, 4, 4, 6 the mean is 4 and the deviation the root of 8 / 3.
TEST(RunPages, SpreadIsThatOfTheValuesThatAreThere) {
  const double deviation = std::sqrt(8.0 / 3), one = 1.0 / (3 * deviation);
  struct Case {
    std::vector<std::optional<double>> values;
    kit::Limits limits;
    std::optional<double> mean, deviation, cp, cpk;
    const char *numbers, *trend;  // a piece of each
  };
  const std::optional<double> none;
  const Case cases[] = {
      {{2, none, 4, 4, 6},
       {1, 8},
       4,
       deviation,
       3.5 * one,
       3 * one,
       "<dd>0.71</dd>",
       "L288.0 17.1"},
      {{2, 4, 4, none, 6}, {1, {}}, 4, deviation, none, 3 * one, "<dd>9.80</dd>", "V24.0M288.0"},
      {{6, 4, 4, 2}, {{}, 3}, 4, deviation, none, -one, "<dd>-0.20</dd>", "M0 45.0H320"},
      {{2, 6, 4, 4}, {-900, 900}, 4, deviation, 900 * one, 896 * one, "Cpk", "M40.0 60.0V60.0L"},
      {{5, 5}, {4, 6}, 5, 0, none, none, "<dd>0.00</dd>", "class='course'"},
      {{none, 7}, {4, 9}, 7, 0, none, none, "", ""},
      {{none}, {}, 0, 0, none, none, "", ""},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const Case& test = cases[i];
    const kit::Spread spread = kit::SpreadOf(test.values, test.limits);
    EXPECT_DOUBLE_EQ(spread.mean, *test.mean) << i;
    EXPECT_DOUBLE_EQ(spread.deviation, *test.deviation) << i;
    ASSERT_EQ(spread.cp.has_value(), test.cp.has_value()) << i;
    ASSERT_EQ(spread.cpk.has_value(), test.cpk.has_value()) << i;
    EXPECT_DOUBLE_EQ(spread.cp.value_or(0), test.cp.value_or(0)) << i;
    EXPECT_DOUBLE_EQ(spread.cpk.value_or(0), test.cpk.value_or(0)) << i;
    const std::string numbers = kit::NumbersHtml(spread, 1, ""),
                      trend = kit::TrendHtml(test.values, test.limits);
    EXPECT_EQ(numbers.empty(), spread.count < 2) << i;
    EXPECT_NE(numbers.find(test.numbers), std::string::npos) << i << numbers;
    EXPECT_NE(trend.find(test.trend), std::string::npos) << i << trend;
  }
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
    const Answer sizes =
        Quillon({"run", example("measure-brackets.json"), folder + "/tray.png", "--json"});
    EXPECT_EQ(sizes.exitCode, 0) << sizes.out << sizes.err;
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

TEST(RunExamples, DiametersOfCoinsAreStableUnderNoise) {
  const char* const data = std::getenv("QUILLON_DATA");
  if (!data || !std::filesystem::exists(std::string(data) + "/photos/coins.png")) {
    GTEST_SKIP() << "QUILLON_DATA is not set: the coins are not measured";
  }
  GreyImage coins;
  kit::ReadImage(std::string(data) + "/photos/coins.png", coins);
  const recipe::Recipe recipe = recipe::ReadRecipe(InProgramFolder("recipes/measure-coins.json"));
  recipe::Inspector inspector(recipe, {});
  constexpr int kCopies = 4;
  std::mt19937_64 random(1);
  std::normal_distribution<double> noise(0, 5);
  std::vector<std::vector<double>> diameters(24);
  for (int copy = 0; copy < kCopies; ++copy) {
    GreyImage noisy;
    noisy.CopyFrom(&coins);
    for (int y = 0; y < noisy.height; ++y) {
      for (int x = 0; x < noisy.width; ++x) {
        const double grey = std::clamp(noisy.rows[y][x] + noise(random), 0.0, 255.0);
        noisy.rows[y][x] = static_cast<unsigned char>(std::lround(grey));
      }
    }
    ASSERT_EQ(inspector.Inspect(noisy).verdict, recipe::Verdict::kPass);
    const auto& rims = inspector.Of(recipe.steps.back().output).things;
    ASSERT_EQ(rims.size(), diameters.size());
    for (size_t i = 0; i < rims.size(); ++i) diameters[i].push_back(rims[i].diameter);
  }
  std::vector<double> deviations;
  for (const std::vector<double>& coin : diameters) {
    double mean = 0, squares = 0;
    for (const double diameter : coin) mean += diameter / kCopies;
    for (const double diameter : coin) squares += (diameter - mean) * (diameter - mean);
    deviations.push_back(std::sqrt(squares / (kCopies - 1)));
  }
  std::sort(deviations.begin(), deviations.end());
  EXPECT_LT(deviations[deviations.size() / 2], 0.05);
  EXPECT_LT(deviations[deviations.size() - 3], 0.1);
  // Two of the 24 move by more than the others.
  EXPECT_LT(deviations.back(), 1);
}

}  // namespace
}  // namespace quillon::test
