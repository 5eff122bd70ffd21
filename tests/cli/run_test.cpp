// quillon run: verdicts against the truth of drawn trays, order, unreadable images, and runs that
// were cut off anywhere.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "cli/host.h"
#include "kit/images/image_files.h"
#include "kit/samples/tray.h"

namespace quillon::test {
namespace {

using Json = nlohmann::json;

const char kCountParts[] = R"({
  "name": "Parts",
  "steps": [
    {"name": "bright", "operation": "threshold", "input": "image", "above": 123},
    {"name": "parts", "operation": "blobs", "input": "bright"}
  ],
  "measurements": [
    {"name": "parts", "input": "parts", "value": "count", "min": 10},
    {"name": "largest", "input": "parts", "value": "area", "which": "largest", "max": 9065},
    {"name": "all", "input": "parts", "value": "area", "which": "sum"},
    {"name": "lowest", "input": "parts", "value": "y", "which": "largest"}
  ]
})";

// Trays of several sizes under names whose order is that of the seeds, and what the recipe must
// find.
struct Trays {
  Trays(const Scratch& scratch, int count)
      : folder(std::filesystem::path(scratch / "trays").generic_string()) {
    std::filesystem::create_directories(folder);
    for (int i = 0; i < count; ++i) {
      ColourImage image;
      std::vector<kit::DrawnPart> parts;
      kit::DrawTray(static_cast<uint32_t>(i + 1), 420 + 90 * (i % 3), 420, image, parts);
      paths.push_back(folder + "/" + std::to_string(100 + i) + ".png");
      kit::WriteImage(paths.back(), image);
      Json values = {
          {"parts", parts.size()}, {"all", 0}, {"largest", nullptr}, {"lowest", nullptr}};
      for (const kit::DrawnPart& part : parts) {
        values["all"] = values["all"].get<int64_t>() + part.area;
        if (values["largest"].is_null() || part.area > values["largest"]) {
          values["largest"] = part.area;
        }
        if (values["lowest"].is_null() || part.y > values["lowest"]) values["lowest"] = part.y;
      }
      truth.push_back(values);
    }
  }
  std::string folder;
  std::vector<std::string> paths;
  std::vector<Json> truth;
};

std::vector<Json> ParseLines(const std::string& text) {
  std::vector<Json> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(Json::parse(line));
  return lines;
}

TEST(Run, MeasuresWhatWasDrawnInTheOrderOfTheImages) {
  const Scratch scratch;
  const Trays trays(scratch, 12);
  const std::string recipe = scratch / "recipe.json";
  WriteText(recipe, kCountParts);
  const Answer one = Quillon({"run", recipe, trays.folder, "--jobs", "1", "--json"});
  const auto lines = ParseLines(one.out);
  ASSERT_EQ(lines.size(), trays.paths.size()) << one.err;
  int failed = 0;
  for (size_t i = 0; i < lines.size(); ++i) {
    const Json &line = lines[i], &truth = trays.truth[i], &found = line["measurements"];
    EXPECT_EQ(line["image"], trays.paths[i]);
    for (const char* name : {"parts", "all", "largest"}) {
      EXPECT_EQ(found[name], truth[name]) << i << name;
    }
    EXPECT_NEAR(found["lowest"].get<double>(), truth["lowest"].get<double>(), 1e-9) << i;
    Json expected = Json::array();
    if (truth["parts"] < 10) expected.push_back("parts");
    if (truth["largest"] > 9065) expected.push_back("largest");
    EXPECT_EQ(line["failed"], expected) << i;
    EXPECT_EQ(line["verdict"], expected.empty() ? "pass" : "fail") << i;
    failed += !expected.empty();
  }
  EXPECT_GT(failed, 0) << "limits that nothing fails show nothing";
  EXPECT_LT(failed, 12) << one.out;
  EXPECT_EQ(one.exitCode, 3);
  for (const char* jobs : {"2", "4", "13"}) {
    const Answer other = Quillon({"run", recipe, trays.folder, "--jobs", jobs, "--json"});
    EXPECT_EQ(other.out, one.out) << jobs;
    EXPECT_EQ(other.exitCode, one.exitCode) << jobs;
  }

  // The same in the other forms.
  const auto records = ParseCsv(Quillon({"run", recipe, trays.folder, "--csv"}).out);
  ASSERT_EQ(records.size(), lines.size() + 1);
  EXPECT_EQ(records[0], (std::vector<std::string>{"image", "verdict", "parts", "largest", "all",
                                                  "lowest", "failed", "error"}));
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(records[i + 1][1], lines[i]["verdict"]);
    EXPECT_EQ(std::stod(records[i + 1][5]), lines[i]["measurements"]["lowest"].get<double>());
  }
}

// The objects are those that `quillon blobs` finds, in every form, and after a resumed run.
TEST(Run, TellsEveryObjectOnRequest) {
  const Scratch scratch;
  const Trays trays(scratch, 3);
  const std::string recipe = scratch / "recipe.json", out = scratch / "out";
  WriteText(recipe, kCountParts);
  const std::vector<std::string> run = {"run", recipe, trays.folder, "--objects"};
  const auto with = [&](std::vector<std::string> more) {
    more.insert(more.begin(), run.begin(), run.end());
    return Quillon(more).out;
  };
  const std::string json = with({"--json", "--out", out});
  const auto lines = ParseLines(json);
  const auto csv = with({"--csv"});
  const auto records = ParseCsv(csv.substr(csv.find("\n\n") + 2));
  ASSERT_EQ(records[0],
            (std::vector<std::string>{"image", "step", "n", "area", "x", "y", "width", "height",
                                      "angle", "mean", "left", "top", "right", "bottom"}));
  size_t row = 1;
  for (size_t i = 0; i < lines.size(); ++i) {
    const Json truth = QuillonJson({"blobs", trays.paths[i], "--band", "124", "255"})["blobs"];
    const Json& objects = lines[i]["objects"];
    ASSERT_EQ(objects.size(), truth.size());
    ASSERT_EQ(objects.size(), trays.truth[i]["parts"].get<size_t>());
    for (size_t k = 0; k < objects.size(); ++k, ++row) {
      EXPECT_EQ(objects[k]["step"], "parts");
      for (const char* name : {"n", "area", "left", "top", "right", "bottom"}) {
        EXPECT_EQ(objects[k][name], truth[k][name]) << name;
      }
      ASSERT_LT(row, records.size());
      for (size_t c = 2; c < records[0].size(); ++c) {
        EXPECT_EQ(std::stod(records[row][c]), objects[k][records[0][c]].get<double>());
      }
    }
  }
  EXPECT_EQ(row, records.size());
  const std::string results = out + "/results.jsonl", full = ReadText(results);
  WriteText(results, full.substr(0, full.size() / 2));
  EXPECT_EQ(with({"--json", "--out", out, "--resume"}), json);
  EXPECT_EQ(ReadText(results), full);
  const Answer without = Quillon({"run", recipe, trays.folder, "--out", out, "--resume"});
  EXPECT_EQ(without.exitCode, 1);
  EXPECT_NE(without.err.find("with --objects"), std::string::npos) << without.err;
}

TEST(Run, AnImageThatCannotBeReadOrInspectedIsCountedAndTheRunGoesOn) {
  const Scratch scratch;
  const Trays trays(scratch, 4);
  WriteText(trays.folder + "/101b.png", "this is not a picture");
  WriteText(trays.folder + "/notes.txt", "this is not meant to be one");
  WriteText(scratch / "no.png", "");
  const std::string recipe = scratch / "recipe.json";
  // Only the wider trays, 510 and 600, can be cropped.
  WriteText(recipe, R"({"name": "Crop", "steps": [
    {"name": "part", "operation": "crop", "input": "image", "left": 440, "top": 0, "width": 60, "height": 60}],
    "measurements": [{"name": "grey", "input": "part", "value": "mean", "min": 0}]})");
  for (const char* jobs : {"1", "4"}) {
    const Answer answer =
        Quillon({"run", recipe, trays.folder, scratch / "no.png", "--json", "--jobs", jobs});
    const auto lines = ParseLines(answer.out);
    ASSERT_EQ(lines.size(), 6u) << answer.err;
    const char* const verdicts[] = {"error", "pass", "unreadable", "pass", "error", "unreadable"};
    for (size_t i = 0; i < 6; ++i) EXPECT_EQ(lines[i]["verdict"], verdicts[i]) << lines[i];
    EXPECT_NE(lines[0]["error"].get<std::string>().find(
                  "step 'part': the part to crop ends at column 500"),
              std::string::npos)
        << lines[0];
    EXPECT_NE(lines[2]["error"].get<std::string>().find("101b.png"), std::string::npos);
    EXPECT_NE(lines[5]["error"].get<std::string>().find("no.png"), std::string::npos);
    EXPECT_EQ(answer.exitCode, 3);
  }
  const Answer table = Quillon({"run", recipe, trays.folder});
  EXPECT_NE(table.out.find("Images      5\n"), std::string::npos) << table.out;
  EXPECT_NE(table.out.find("Unreadable  1\n"), std::string::npos) << table.out;
}

TEST(Run, WrongUsageAndUnusableRecipesEndBeforeTheFirstImage) {
  const Scratch scratch;
  const Trays trays(scratch, 1);
  const std::string good = scratch / "good.json", bad = scratch / "bad.json",
                    lacks = scratch / "lacks.json";
  WriteText(good, kCountParts);
  WriteText(
      bad,
      R"({"name": "Bad", "steps": [{"name": "s", "operation": "mean", "input": "image", "size": 2},
                     {"name": "t", "operation": "otsu", "input": "u"}], "measurements": []})");
  WriteText(lacks,
            R"({"name": "Lacks", "steps": [{"name": "find", "operation": "match", "input": "image",
                       "template": "missing.png"}], "measurements": [{"name": "m", "input": "find", "value": "count"}]})");
  std::filesystem::create_directories(scratch / "empty");
  const std::string out = scratch / "out", image = trays.paths[0];
  struct Case {
    std::vector<std::string> arguments;
    int exitCode;
    std::vector<std::string> words;
  };
  const Case cases[] = {
      {{"run", good}, 2, {"IMAGE"}},
      {{"run", good, image, "--jobs", "0"}, 2, {"--jobs", "1", "256"}},
      {{"run", good, image, "--resume"}, 2, {"--out"}},
      {{"run", good, image, "--json", "--csv"}, 2, {"--json", "--csv"}},
      {{"run", good, image, "--out", out, "--resume", "--overwrite"},
       2,
       {"--resume", "--overwrite"}},
      {{"run", scratch / "none.json", image}, 1, {"none.json"}},
      {{"run", good, scratch / "empty"}, 1, {"no image in folder", "empty"}},
      {{"run", good, image, scratch / "missing", "--out", out}, 1, {"missing"}},
      {{"run", bad, image, "--out", out},
       1,
       {"bad.json", "step 's', field 'size': 2 is not an odd", "step 't', field 'input'",
        "field 'measurements'"}},
      {{"recipe", "check", bad}, 1, {"bad.json", "step 's', field 'size'"}},
      {{"run", lacks, image, "--out", out}, 1, {"step 'find', field 'template'", "missing.png"}},
      {{"recipe", "check", lacks}, 1, {"step 'find', field 'template'", "missing.png"}},
  };
  for (const Case& test : cases) {
    const Answer answer = Quillon(test.arguments);
    EXPECT_EQ(answer.exitCode, test.exitCode) << answer.err;
    EXPECT_EQ(answer.out, "");
    for (const std::string& word : test.words) {
      EXPECT_NE(answer.err.find(word), std::string::npos) << word << " lacks in\n" << answer.err;
    }
    EXPECT_FALSE(std::filesystem::exists(out)) << answer.err;
  }
  EXPECT_EQ(Quillon({"recipe", "check", good}).exitCode, 0);
}

// Cut anywhere, in the middle of lines too, the file becomes the same as if nothing had happened.
TEST(Run, ResumesFromAnyPrefixOfTheResults) {
  const Scratch scratch;
  const Trays trays(scratch, 5);
  WriteText(trays.folder + "/102b.png", "this is not a picture");
  const std::string recipe = scratch / "recipe.json", out = scratch / "out";
  WriteText(recipe, kCountParts);
  const Answer whole = Quillon({"run", recipe, trays.folder, "--json", "--out", out, "--no-pages"});
  const std::string results = out + "/results.jsonl", full = ReadText(results);
  ASSERT_EQ(ParseLines(full).size(), 7u);
  EXPECT_EQ(full.substr(full.find('\n') + 1), whole.out);

  std::vector<size_t> cuts = {0, 1, full.size() - 1, full.size()};
  for (size_t at = full.find('\n'); at != std::string::npos; at = full.find('\n', at + 1)) {
    cuts.insert(cuts.end(), {at, at + 1, at + 30});
  }
  for (const size_t cut : cuts) {
    WriteText(results, full.substr(0, cut));
    const Answer answer = Quillon({"run", recipe, trays.folder, "--json", "--out", out, "--resume",
                                   "--jobs", cut % 2 ? "4" : "1"});
    EXPECT_EQ(ReadText(results), full) << cut;
    EXPECT_EQ(answer.out, whole.out) << cut;
    EXPECT_EQ(answer.exitCode, 3) << cut << answer.err;
  }
  // Bytes that a failing disk left behind a half-written line.
  WriteText(results, full.substr(0, full.size() / 2) + std::string(40, '\0') + "\n");
  Quillon({"run", recipe, trays.folder, "--out", out, "--resume"});
  EXPECT_EQ(ReadText(results), full);

  // What must not be gone on with, and stays as it is.
  const auto refuses = [&](const std::vector<std::string>& images,
                           const std::vector<std::string>& options, const char* words) {
    std::vector<std::string> arguments = {"run", recipe};
    arguments.insert(arguments.end(), images.begin(), images.end());
    arguments.insert(arguments.end(), {"--out", out});
    arguments.insert(arguments.end(), options.begin(), options.end());
    const std::string before = ReadText(results);
    const Answer answer = Quillon(arguments);
    EXPECT_EQ(answer.exitCode, 1) << answer.out;
    EXPECT_NE(answer.err.find(words), std::string::npos) << answer.err;
    EXPECT_EQ(ReadText(results), before);
  };
  refuses({trays.folder}, {}, "--overwrite");
  refuses({trays.paths[1], trays.paths[0]}, {"--resume"}, "of other images: image 1");
  refuses({trays.paths[0]}, {"--resume"}, "there are fewer");
  std::string damaged = full;
  damaged[full.find("measurements")] = 'M';
  WriteText(results, damaged);
  refuses({trays.folder}, {"--resume"}, "damaged in line 2");
  WriteText(results, "{\"something\": \"else\"}\n");
  refuses({trays.folder}, {"--resume"}, "no results of a run");
  WriteText(results, full);
  std::string changed = kCountParts;
  changed.replace(changed.find("9065"), 4, "9066");
  WriteText(recipe, changed);
  refuses({trays.folder}, {"--resume"}, "changed");
  const Answer anew = Quillon({"run", recipe, trays.folder, "--out", out, "--overwrite"});
  EXPECT_EQ(anew.exitCode, 3) << anew.err;
  // More images after those of the file are gone on with; notes and spaces change nothing.
  std::filesystem::copy_file(trays.paths[0], trays.folder + "/200.png");
  changed.insert(changed.find("\"name\""), "\n\n \"note\": \"no change\", ");
  WriteText(recipe, changed);
  EXPECT_EQ(Quillon({"run", recipe, trays.folder, "--out", out, "--resume"}).exitCode, 3);
  EXPECT_EQ(ParseLines(ReadText(results)).size(), 8u);
}

#ifndef _WIN32  // the shell that starts and kills the run is a POSIX one
TEST(Run, AKilledRunLosesNothing) {
  const Scratch scratch;
  const Trays trays(scratch, 16);
  ColourImage bracket;
  kit::DrawBracket(bracket);
  kit::WriteImage(scratch / "bracket.png", bracket);
  const std::string recipe = scratch / "recipe.json", out = scratch / "out",
                    twin = scratch / "twin";
  WriteText(
      recipe,
      R"({"name": "Brackets", "steps": [{"name": "find", "operation": "match", "input": "image",
    "template": "bracket.png", "angle": [-180, 180], "min_score": 0.5}],
    "measurements": [{"name": "count", "input": "find", "value": "count", "max": 1},
                     {"name": "score", "input": "find", "value": "score"}]})");
  const Answer whole =
      Quillon({"run", recipe, trays.folder, "--json", "--out", twin, "--no-pages", "--jobs", "4"});
  ASSERT_EQ(ParseLines(whole.out).size(), 16u) << whole.err;

  const std::string results = out + "/results.jsonl";
  const std::string script = "'" + InProgramFolder("quillon") + "' run '" + recipe + "' '" +
                             trays.folder + "' --out '" + out +
                             "' --no-pages --jobs 2 >/dev/null 2>&1 & run=$!\n"
                             "for i in $(seq 2000); do [ -f '" +
                             results + "' ] && [ $(wc -l <'" + results +
                             "') -ge 6 ] && break; sleep 0.005; done\n"
                             "kill -9 $run; wait $run 2>/dev/null\n";
  WriteText(scratch / "script", script);
  std::ignore = std::system(("sh '" + scratch / "script" + "'").c_str());
  const size_t done =
      ParseLines(ReadText(results).substr(0, ReadText(results).rfind('\n') + 1)).size();
  ASSERT_GE(done, 6u);
  ASSERT_LT(done, 17u) << "the run was over before it was killed";
  const Answer rest = Quillon({"run", recipe, trays.folder, "--json", "--out", out, "--resume",
                               "--no-pages", "--jobs", "4"});
  EXPECT_EQ(rest.out, whole.out);
  EXPECT_EQ(ReadText(results), ReadText(twin + "/results.jsonl"));
}
#endif

}  // namespace
}  // namespace quillon::test
