// The pages of a run, and the example recipes.
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

}  // namespace
}  // namespace quillon::test
