// quillon inspect as a user runs it: boards named one by one, and in folders.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "cli/host.h"
#include "cli/page.h"
#include "kit/images/image_files.h"
#include "kit/samples/sample_board.h"
#include "support/images.h"

namespace quillon::test {
namespace {

using kit::Difference;
using kit::DrawnDefect;
using kit::SampleBoard;
using Json = nlohmann::json;

class InspectCommand : public testing::Test {
 protected:
  // A board with two defects, one without, and the good one.
  InspectCommand() {
    const SampleBoard board(3, 400, 300);
    GreyImage image;
    board.DrawGood(image);
    kit::WriteImage(good_, image);
    board.DrawGood(image, {.x = 3, .y = -2});
    kit::WriteImage(passing_, image);
    drawn_ = board.DrawTested(2, image, {.x = -2, .y = 4});
    kit::WriteImage(failing_, image);
  }

  Scratch folder_;
  std::string good_ = folder_ / "good.png", passing_ = folder_ / "passing.png",
              failing_ = folder_ / "failing.png";
  std::vector<DrawnDefect> drawn_;
};

Answer Inspect(const std::vector<std::string>& arguments) {
  std::vector<std::string> all = {"inspect"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return Quillon(all);
}

TEST_F(InspectCommand, PrintsDefectsAndVerdict) {
  const Answer answer = Inspect({good_, passing_, failing_, "--json"});
  EXPECT_EQ(answer.exitCode, 3) << answer.err;
  const Json json = Json::parse(answer.out);
  EXPECT_EQ(json["inspected"], 2);
  EXPECT_EQ(json["passed"], 1);
  EXPECT_EQ(json["tolerance"], 3);
  ASSERT_EQ(json["found"], drawn_.size());
  ASSERT_EQ(json["defects"].size(), drawn_.size());
  for (const DrawnDefect& d : drawn_) {
    EXPECT_EQ(
        std::count_if(json["defects"].begin(), json["defects"].end(),
                      [&](const Json& f) {
                        return f["board"] == failing_ && f["left"] < d.left &&
                               f["right"] > d.right && f["top"] < d.top && f["bottom"] > d.bottom &&
                               f["kind"] == (d.kind == Difference::kMissing ? "missing" : "extra");
                      }),
        1)
        << d.name << " in " << json;
  }

  const Answer table = Inspect({good_, passing_});
  EXPECT_EQ(table.exitCode, 0);
  EXPECT_NE(table.out.find("Boards without defects"), std::string::npos) << table.out;
  const auto csv = ParseCsv(Inspect({good_, failing_, "--csv"}).out);
  ASSERT_EQ(csv.size(), drawn_.size() + 1);
  EXPECT_EQ(csv[0][0], "board");
  EXPECT_EQ(csv[1][0], failing_);

  EXPECT_EQ(Inspect({good_, failing_, "--min-area", "10000"}).exitCode, 0);
  EXPECT_EQ(Inspect({good_, failing_, "--good", failing_, "--tolerance", "3"}).exitCode, 0)
      << "what a good board shows is accepted";
}

TEST_F(InspectCommand, GoesOnAfterABoardThatCannotBeInspected) {
  const std::string broken = folder_ / "broken.png", small = folder_ / "small.png";
  WriteText(broken, "no picture");
  GreyImage image;
  Fill(image, 100, 100, Content::kNoise);
  kit::WriteImage(small, image);
  const Answer answer = Inspect({good_, broken, small, failing_, "--json"});
  EXPECT_EQ(answer.exitCode, 1);
  EXPECT_EQ(Json::parse(answer.out)["found"], drawn_.size());
  for (const char* message : {"broken.png", "small.png' is 100 x 100", "2 of 3 boards"}) {
    EXPECT_NE(answer.err.find(message), std::string::npos) << answer.err;
  }

  struct Case {
    std::vector<std::string> arguments;
    int exitCode;
    const char* message;
  };
  const Case cases[] = {
      {{good_}, 2, "TEST"},
      {{good_, good_}, 0, "good.png' is compared with itself"},
      {{broken, good_}, 1, "broken.png"},
      {{good_, good_, "--good", small}, 1, "small.png"},
      {{good_, good_, "--tolerance", "13"}, 2, "--tolerance"},
      {{good_, good_, "--min-area", "0"}, 2, "--min-area"},
      {{good_, good_, "--margin", "-1"}, 2, "--margin"},
  };
  for (const Case& c : cases) {
    const Answer wrong = Inspect(c.arguments);
    EXPECT_EQ(wrong.exitCode, c.exitCode) << c.message;
    EXPECT_NE(wrong.err.find(c.message), std::string::npos) << wrong.err;
  }
}

TEST_F(InspectCommand, ReportShowsGoodAndTestedBoards) {
  const std::string page = folder_ / "page.html";
  ASSERT_EQ(Inspect({good_, failing_, passing_, "--report", page}).exitCode, 3);
  const std::string text = ReadText(page);
  EXPECT_EQ(Count(text, "data:image/png"), 3u);
  // Each defect is boxed on the good board and on its own.
  const Json pictures = PageData(text)["pictures"];
  for (const size_t picture : {0, 1}) {
    EXPECT_EQ(CountDrawn(pictures[picture], kDrawnBox), drawn_.size());
  }
  EXPECT_EQ(CountDrawn(pictures[2], kDrawnBox), 0u);
  for (const char* layer : {"Missing", "Extra", "Missing pixels", "Extra pixels"}) {
    EXPECT_EQ(Count(text, "</i>" + std::string(layer) + "</label>"), 1u) << layer;
  }
}

TEST_F(InspectCommand, SampleBoardsShowTheirTruth) {
  ASSERT_EQ(Quillon({"sample", folder_ / "."}).exitCode, 0);
  const std::string good = folder_ / "board.png", failing = folder_ / "board-failing.png",
                    passing = folder_ / "board-passing.png", drawn = folder_ / "drawn.png";
  EXPECT_EQ(Inspect({good, passing}).exitCode, 0);
  const Answer answer = Inspect({good, failing, "--draw", drawn, "--json"});
  EXPECT_EQ(answer.exitCode, 3);
  const Json found = Json::parse(answer.out)["defects"];
  const Json truth = Json::parse(ReadText(folder_ / "board-failing.json"))["defects"];
  EXPECT_EQ(truth.size(), 8u);
  EXPECT_EQ(found.size(), truth.size());
  for (const Json& t : truth) {
    EXPECT_EQ(std::count_if(found.begin(), found.end(),
                            [&](const Json& f) {
                              return f["kind"] == t["kind"] && f["left"] < t["left"] &&
                                     f["right"] > t["right"] && f["top"] < t["top"] &&
                                     f["bottom"] > t["bottom"];
                            }),
              1)
        << t << " in " << found;
  }

  // The drawn picture is the tested one with something coloured around each defect.
  GreyImage tested;
  ColourImage picture;
  kit::ReadImage(failing, tested);
  kit::ReadImage(drawn, picture);
  ASSERT_EQ(picture.width, tested.width);
  for (const Json& f : found) {
    // The lower side of its box, one pixel outside.
    const int x = (f["left"].get<int>() + f["right"].get<int>()) / 2,
              y = f["bottom"].get<int>() + 1;
    const unsigned char* pixel = picture.rows[y] + 3 * x;
    EXPECT_NE(pixel[0], pixel[1]) << f;
  }
}

// Each pair tells what the command tells of it alone, with any number of threads and after a run
// that was cut off; a good board that cannot be read, or that has changed, is no silent pass.
TEST_F(InspectCommand, FoldersAreJudgedPairByPair) {
  const std::string good = folder_ / "good", tested = folder_ / "tested", out = folder_ / "out";
  std::filesystem::create_directories(good);
  std::filesystem::create_directories(tested);
  const std::pair<const char*, const char*> names[] = {
      {"a.png", "a.png"}, {"b.bmp", "b.png"}, {"c_good.png", "c_tested.png"}, {"d.png", "d.png"}};
  uint32_t seed = 10;
  std::vector<int64_t> counts;
  for (const auto& [goodName, testedName] : names) {
    const SampleBoard board(++seed, 300, 240);
    GreyImage image;
    board.DrawGood(image);
    kit::WriteImage(good + "/" + goodName, image);
    const int defects = static_cast<int>(seed % 3);
    board.DrawTested(defects, image, {.x = 2, .y = -1});
    kit::WriteImage(tested + "/" + testedName, image);
    const Answer alone = Inspect({good + "/" + goodName, tested + "/" + testedName, "--json"});
    counts.push_back(Json::parse(alone.out)["found"]);
    EXPECT_EQ(counts.back(), defects);
  }
  const auto judged = [](const Answer& answer) {
    std::vector<std::string> verdicts;
    std::istringstream stream(answer.out);
    for (std::string line; std::getline(stream, line);) {
      const Json json = Json::parse(line);
      const std::string file =
          std::filesystem::path(json["image"].get<std::string>()).filename().string();
      verdicts.push_back(file + ' ' + json["verdict"].get<std::string>() + ' ' +
                         (json.contains("error") ? "" : json["measurements"]["defects"].dump()));
    }
    return verdicts;
  };
  std::vector<std::string> expected;
  for (size_t i = 0; i < std::size(names); ++i) {
    expected.push_back(std::string(names[i].second) + (counts[i] ? " fail " : " pass ") +
                       std::to_string(counts[i]));
  }
  const Answer whole = Inspect({good, tested, "--json", "--out", out, "--jobs", "1"});
  EXPECT_EQ(judged(whole), expected) << whole.err;
  EXPECT_EQ(whole.exitCode, 3);
  EXPECT_EQ(Inspect({good, tested, "--json", "--jobs", "3"}).out, whole.out);
  EXPECT_EQ(FilesOf(out).count("index.html"), 1u);
  EXPECT_EQ(judged(Inspect({good + "/d.png", tested, "--json"}))[3], expected[3])
      << "one good board for all";

  EXPECT_EQ(whole.err, "");
  EXPECT_NE(Inspect({good, tested + "/a.png"}).err.find("for 3 of 4 good ones"), std::string::npos);

  const std::string results = out + "/results.jsonl", text = ReadText(results);
  WriteText(results, text.substr(0, text.size() * 2 / 3));
  EXPECT_EQ(Inspect({good, tested, "--json", "--out", out, "--resume"}).out, whole.out);
  EXPECT_EQ(ReadText(results), text);

  // A board of which none is good, or two are.
  std::filesystem::copy_file(passing_, folder_ / "other_1.png");
  struct Case {
    std::vector<std::string> arguments;
    int exitCode;
    std::string message;
  };
  std::filesystem::create_directories(folder_ / "two");
  for (const char* name : {"other_2.png", "other-3.png"}) {
    std::filesystem::copy_file(passing_, (folder_ / "two") + "/" + name);
  }
  WriteText(good + "/d.png", "no picture");
  const Case cases[] = {
      {{good, folder_ / "other_1.png"}, 1, "no good board has the name of"},
      {{tested, tested}, 1, "no good board has the name of"},  // no picture is its own good one
      {{folder_ / "two", folder_ / "other_1.png"}, 1, "two good boards could be"},
      {{good, tested, "--report", out + "/page.html"}, 2, "--report"},
      {{good, tested, "--good", good_}, 2, "--good"},
      {{good_, tested, "--resume"}, 2, "--out"},
      {{good, tested, "--out", out, "--resume"}, 1, "has changed"},
      {{good, tested}, 1, "1 of 4 boards could not be inspected"},
  };
  for (const Case& c : cases) {
    const Answer wrong = Inspect(c.arguments);
    EXPECT_EQ(wrong.exitCode, c.exitCode) << c.message;
    EXPECT_NE(wrong.err.find(c.message), std::string::npos) << wrong.err;
  }
  expected[3] = "d.png error ";
  EXPECT_EQ(judged(Inspect({good, tested, "--json"})), expected);
}

}  // namespace
}  // namespace quillon::test
