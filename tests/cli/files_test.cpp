// Files, streams and signals as a machine's day brings them: full disks, kills, closed descriptors,
// two runs at once, names that somebody chose with care.
#include "kit/files/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "cli/host.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "kit/report/findings.h"
#include "kit/text/text.h"
#include "support/images.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

const char kCount[] = R"({"name": "Count", "steps": [
  {"name": "bright", "operation": "threshold", "input": "image", "above": 100},
  {"name": "parts", "operation": "blobs", "input": "bright"}],
  "measurements": [{"name": "parts", "input": "parts", "value": "count", "min": 0}]})";

// A recipe, and a folder of pictures: "$f/recipe.json", "$f/images/10.png" and on.
struct Job {
  Job(const Scratch& scratch, int count, int width = 60) : folder(scratch / "images") {
    fs::create_directories(folder);
    GreyImage image;
    for (int i = 0; i < count; ++i) {
      Fill(image, width, 40, Content::kNoise);
      kit::WriteImage(folder + "/" + std::to_string(10 + i) + ".png", image);
    }
    WriteText(recipe = scratch / "recipe.json", kCount);
  }
  std::string folder, recipe;
};

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST(Files, AnOutputIsWholeOrTheOldOneStays) {
  const Scratch scratch;
  const std::string path = scratch / "file";
  kit::WriteFile(path, "old");
  {
    kit::OutputFile file(path);
    file.Write("half of the n");
    EXPECT_EQ(kit::ReadFile(path), "old");
  }
  EXPECT_THROW(kit::ReplaceFile(path, 4, [](const std::string& name) { WriteText(name, "new"); }),
               kit::Failure);
  EXPECT_EQ(FilesOf(scratch / "."), (std::map<std::string, std::string>{{"file", "old"}}));
  kit::ReplaceFile(path, 3, [](const std::string& name) { WriteText(name, "new"); });
  EXPECT_EQ(FilesOf(scratch / "."), (std::map<std::string, std::string>{{"file", "new"}}));
#ifndef _WIN32
  // A link stays one, rights stay, and what is no file is written as it is.
  fs::permissions(path, fs::perms(0640));
  fs::create_symlink("file", scratch / "link");
  kit::WriteFile(scratch / "link", "through the link");
  EXPECT_TRUE(fs::is_symlink(scratch / "link"));
  EXPECT_EQ(kit::ReadFile(path), "through the link");
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0640));
  kit::WriteFile("/dev/null", "away");
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
  EXPECT_THROW(kit::WriteFile("/dev/full", "away"), kit::Failure);
#endif
}

TEST(Files, OneAtATimeHoldsALock) {
  const Scratch scratch;
  const Job job(scratch, 2);
  const std::string out = scratch / "out";
  fs::create_directories(out);
  const std::vector<std::string> run = {"run", job.recipe, job.folder, "--out", out, "--no-pages"};
  {
    const kit::FolderLock lock(out);
    EXPECT_THROW(kit::FolderLock second(out), kit::Failure);
    const Answer answer = Quillon(run);
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_NE(answer.err.find("'" + out + "': another program works in it"), std::string::npos)
        << answer.err;
  }
  EXPECT_TRUE(FilesOf(out).empty());
  EXPECT_EQ(Quillon(run).exitCode, 0);
  EXPECT_EQ(FilesOf(out).size(), 1u) << "the lock is gone";
}

TEST(Files, WhatNoRunWroteIsNotOverwritten) {
  const Scratch scratch;
  const Job job(scratch, 2);
  const std::string results = "results.jsonl";
  struct Case {
    std::vector<std::string> runs;  // with these options, before
    std::string file;               // that is put there then
    std::string option;
    std::string words;
  };
  const Case cases[] = {
      {{}, "index.html", "", "index.html' is there already"},
      {{}, "thumbs/0001.jpg", "", "thumbs' is there already"},
      {{}, results, "--overwrite", "holds no results of a run"},
      {{}, results, "--resume", "holds no results of a run"},
      {{}, "pages/0001-a.html", "--overwrite", "pages' is there already"},
      {{""}, "index.html", "--overwrite", "index.html' was not written by a run"},
      {{""}, "pages/notes.txt", "--overwrite", "notes.txt' was not written by a run"},
      {{""}, "", "", "--resume goes on with it, --overwrite begins anew"},
      {{"", "--overwrite"}, "pages/0009-mine.html", "--overwrite", "0009-mine.html' was not"},
  };
  int number = 0;
  for (const Case& test : cases) {
    const std::string out = scratch / std::to_string(number++);
    std::vector<std::string> run = {"run", job.recipe, job.folder, "--out", out, ""};
    const auto with = [&](const std::string& option) {
      run.back() = option.empty() ? "--jobs=1" : option;
      return Quillon(run);
    };
    for (const std::string& option : test.runs) ASSERT_EQ(with(option).exitCode, 0) << number;
    if (!test.file.empty()) {
      fs::create_directories(fs::path(out + "/" + test.file).parent_path());
      WriteText(out + "/" + test.file, "{\"mine\": 1}\n");
    }
    const auto before = FilesOf(out);
    const Answer answer = with(test.option);
    EXPECT_EQ(answer.exitCode, 1) << number;
    EXPECT_NE(answer.err.find(test.words), std::string::npos) << answer.err;
    EXPECT_EQ(FilesOf(out), before) << number;
  }

  // Samples take the place of the same samples only.
  const std::string tray = scratch / "tray";
  fs::create_directories(tray);
  WriteText(tray + "/grid.csv", "mine");
  for (const auto& [options, exitCode] :
       std::vector<std::pair<std::vector<std::string>, int>>{{{"--seed=1"}, 1},
                                                             {{"--seed=1", "--overwrite"}, 0},
                                                             {{"--seed=1"}, 0},
                                                             {{"--seed=2"}, 1}}) {
    std::vector<std::string> sample = {"sample", tray};
    sample.insert(sample.end(), options.begin(), options.end());
    const auto before = FilesOf(tray);
    const Answer answer = Quillon(sample);
    EXPECT_EQ(answer.exitCode, exitCode) << answer.err;
    if (exitCode == 0) continue;
    EXPECT_NE(answer.err.find("' is there already"), std::string::npos) << answer.err;
    EXPECT_EQ(FilesOf(tray), before);
  }
}

TEST(Files, NamesReachPeopleAndProgramsUnharmed) {
  EXPECT_EQ(kit::Visible("a\x1b[31m\x7f\xc2\x9b\xff\xed\xa0\x80 \n\tGr\xc3\xb6\xc3\x9f"
                         "e\xe2\x80\xa8"),
            "a\\x1b[31m\\x7f\\xc2\\x9b\\xff\\xed\\xa0\\x80 \n\tGr\xc3\xb6\xc3\x9f"
            "e\xe2\x80\xa8");
  const Json json = {{"a\xe2\x80\xa8", "\xc2\x85\x7f\n\xe2\x80\xa9"}, {"b", "\xc3\xb6"}};
  const std::string text = kit::JsonText(json);
  EXPECT_EQ(text, "{\"a\\u2028\":\"\\u0085\\u007f\\n\\u2029\",\"b\":\"\xc3\xb6\"}");
  EXPECT_EQ(Json::parse(text), json);

  std::ostringstream csv;
  kit::PrintCsv({.key = "rows",
                 .columns = {{"=name"}, {"n"}},
                 .rows = {{"=1+1", int64_t{-3}},
                          {"+1", -0.5},
                          {"-1", kit::Cell{}},
                          {"@x", int64_t{0}},
                          {"'=1+1", int64_t{0}},
                          {"\x1b,", int64_t{0}}}},
                csv);
  EXPECT_EQ(csv.str(),
            "\"'=name\",n\n\"'=1+1\",-3\n\"'+1\",-0.5\n\"'-1\",\n\"'@x\",0\n\"''=1+1\",0\n"
            "\"\\x1b,\",0\n");
}

#ifdef _WIN32

// By its interrupt key, its closing, and the end of the session or the system. After the last three
// the system ends the program itself, with a code of its own.
TEST(Files, TheConsoleEndsARunInOrder) {
  using enum ConsoleEvent;
  for (const ConsoleEvent event : {kInterrupt, kClose, kLogOff, kShutdown}) {
    SCOPED_TRACE(static_cast<int>(event));
    const Scratch scratch;
    const Job job(scratch, 12, 600);
    const std::string out = scratch / "out", results = out + "/results.jsonl";
    const auto count = [&] {
      return fs::exists(results) ? Lines(ReadText(results)).size() : size_t{0};
    };
    const int exitCode =
        InterruptQuillon({"run", job.recipe, job.folder, "--jobs", "1", "--out", out}, event,
                         [&] { return count() >= 4; });
    EXPECT_TRUE(event == kInterrupt ? exitCode == 1 : exitCode != 0) << exitCode;
    EXPECT_LT(count(), 13u) << "the run was over before";
    EXPECT_NE(
        ReadText(out + "/index.html").find("<b>" + std::to_string(count() - 1) + "</b> images"),
        std::string::npos);
    EXPECT_EQ(Quillon({"run", job.recipe, job.folder, "--out", out, "--resume"}).exitCode, 0);
    EXPECT_EQ(count(), 13u);
  }
}

#else

// Names that are options, lists, formulas, line ends for some readers, colours for a terminal, no
// UTF-8, and what is no picture: none shifts a record, none ends the run.
TEST(Files, EveryNameInAFolderHasItsRecord) {
  const Scratch scratch;
  const Job job(scratch, 1);
  const std::string names[] = {
      "--out=zz.png",  "-x.png",        "=1+1.png",          "[a,b].png", "a\nb.png",
      "a\x1b[31m.png", "a\xc2\x85.png", "a\xe2\x80\xa8.png", "a\xfe.png", "a\xff.png",
      "a'b.png",       "b_.png",        "b\x01.png",         "b\x02.png"};
  for (const std::string& name : names) fs::copy(job.folder + "/10.png", job.folder + "/" + name);
  const std::string f = scratch / ".";
  const auto run = [&](const std::string& rest) {
    return Shell("cd '" + f + "/images'; \"$quillon\" run ../recipe.json " + rest);
  };
  const Answer all = run(". --json --out ../out");
  EXPECT_EQ(all.exitCode, 0) << all.err;
  const auto lines = Lines(all.out);
  ASSERT_EQ(lines.size(), std::size(names) + 1);
  EXPECT_EQ(FilesOf(scratch / "out").size(), 2 + 2 * lines.size());
  std::set<std::string> seen;
  for (const std::string& line : lines) {
    Json record = Json::parse(line);
    record.erase("measurements");
    seen.insert(record.dump());
    EXPECT_TRUE(std::all_of(line.begin(), line.end(),
                            [](unsigned char c) { return c >= ' ' && c != 0x7f; }));
  }
  EXPECT_EQ(seen.size(), lines.size()) << "two names became one";
  EXPECT_EQ(run(". --json --out ../out --resume").out, all.out);
  const Answer given = run("--json -- *");
  EXPECT_EQ(Lines(given.out).size(), lines.size()) << given.err;
  for (const char* form : {". ", ". --csv"}) {
    const Answer shown = run(form);
    EXPECT_EQ(shown.out.find_first_of("\x1b\x01\x02\xff"), std::string::npos) << shown.out;
  }
  EXPECT_EQ(run("$'a\\x1b[31mb.png'").err,
            "quillon: there is no image or folder 'a\\x1b[31mb.png'\n");

  // What is no file, or none that ends.
  for (const char* make : {"mkfifo fifo.png", "ln -s loop.png loop.png", "ln -s /dev/zero zero.png",
                           "ln -s nowhere dangling.png", "mkdir folder.png"}) {
    EXPECT_EQ(Shell("cd '" + job.folder + "'; " + make).exitCode, 0);
  }
  const Answer odd = run(". --json");
  EXPECT_EQ(odd.exitCode, 3);
  const auto more = Lines(odd.out);
  EXPECT_EQ(more.size(), lines.size() + 4);
  EXPECT_EQ(std::count_if(more.begin(), more.end(),
                          [](const std::string& line) {
                            return line.find("\"unreadable\"") != std::string::npos;
                          }),
            4);
  for (const char* missing : {"no-such-folder", "10.png no-such.png"}) {
    const Answer answer = run(std::string(missing) + " --json");
    EXPECT_EQ(answer.exitCode, 1);
    EXPECT_EQ(answer.out, "");
    EXPECT_NE(answer.err.find("there is no image or folder 'no-such"), std::string::npos);
  }
}

// A small limit on the size of files stands for a full disk: writing fails in the middle.
TEST(Files, AFullDiskLeavesTheOldFileAndExitCode1) {
  const Scratch scratch;
  const Job job(scratch, 12, 400);
  const std::string f = scratch / ".";
  const std::string cd = "cd '" + f + "'\n";
  Shell(cd +
        "for i in 1 2 3 4 5 6 7 8 9; do echo $(((i - 1) % 3 * 50 + 60)),$(((i - 1) / 3 * 50 + "
        "30)); done >p.csv\n");
  const std::string commands[] = {"gray images/10.png out.png",
                                  "gray images/10.png out.bmp",
                                  "blobs images/10.png --report out.html",
                                  "blobs images/10.png --draw out.png",
                                  "blobs images/10.png --binary out.png",
                                  "calibrate-flat-field images/10.png out.ffc --target 9",
                                  "calibrate-lens p.csv out.lens --step 50"};
  for (const std::string& command : commands) {
    std::istringstream words(command);
    std::string name;
    while (words >> name && !name.starts_with("out.")) {
    }
    WriteText(scratch / name, "old");
    const auto before = FilesOf(f);
    const Answer full = Shell(cd + "(ulimit -f 0; \"$quillon\" " + command +
                              " 2>&1 >/dev/null) | cat; exit ${PIPESTATUS[0]}");
    EXPECT_EQ(full.exitCode, 1) << command;
    EXPECT_TRUE(full.out.starts_with("quillon: cannot write '" + name + "': ")) << full.out;
    EXPECT_EQ(FilesOf(f), before) << command;
  }

  // A run that replaces another: the files of the old one stay until the new one is whole.
  const std::string run = "\"$quillon\" run recipe.json images --out out";
  ASSERT_EQ(Shell(cd + run).exitCode, 0);
  const auto old = FilesOf(scratch / "out");
  WriteText(job.recipe, std::string(kCount).replace(std::string(kCount).find("100"), 3, "200"));
  const Answer failed = Shell(cd + "ulimit -f 1; " + run + " --overwrite");
  EXPECT_EQ(failed.exitCode, 1) << failed.err;
  const Answer killed =
      Shell(cd + run + " --overwrite --jobs 1 & sleep 0.02; kill -9 $!; wait $! 2>/dev/null\n");
  for (const auto& [name, bytes] : old) {
    EXPECT_EQ(FilesOf(scratch / "out")[name], bytes) << name;
  }
  ASSERT_EQ(Shell(cd + run + " --overwrite").exitCode, 0);
  const auto anew = FilesOf(scratch / "out");
  EXPECT_NE(anew.at("results.jsonl"), old.at("results.jsonl"));
  ASSERT_EQ(Shell(cd + "\"$quillon\" run recipe.json images --out twin").exitCode, 0);
  EXPECT_EQ(FilesOf(scratch / "twin"), anew) << "nothing of the old run is left";

  // Killed between the steps in which the new files take the place of the old ones.
  for (const char* stage :
       {"mkdir finished; mv * finished 2>/dev/null; mkdir pages; echo old >index.html",
        "mkdir placing; mv index.html thumbs placing", "mkdir placing"}) {
    ASSERT_EQ(Shell(cd + "cd out; " + stage + "; exit 0").exitCode, 0);
    EXPECT_EQ(Shell(cd + run + " --resume").exitCode, 0) << stage;
    EXPECT_EQ(FilesOf(scratch / "out"), anew) << stage;
  }
}

TEST(Files, ClosedAndFullStreamsEndWithExitCode1) {
  const Scratch scratch;
  const Job job(scratch, 3);
  const std::string cd = "cd '" + (scratch / ".") + "'\n";
  struct Case {
    std::string command;
    int exitCode;
  };
  const Case cases[] = {
      {"run recipe.json images --json --out out >&-", 1},
      {"run recipe.json images --json --out out <&- >&- 2>&-", 1},
      {"run recipe.json images --json --out out >/dev/full", 1},
      {"run recipe.json images --out out >/dev/full", 1},
      {"run recipe.json images --json --out out <&- 2>&-", 0},
      {"blobs images/10.png >&-", 1},
      {"blobs images/10.png --json >/dev/full", 1},
      {"list >/dev/full", 1},
      {"--help >&-", 1},
      {"recipe schema | (exec <&-; sleep 0.1); exit ${PIPESTATUS[0]}", 1},
      {"gray images/10.png out.png <&- >&- 2>&-", 0},
  };
  for (const Case& test : cases) {
    Shell(cd + "rm -rf out out.png");
    EXPECT_EQ(Shell(cd + "\"$quillon\" " + test.command).exitCode, test.exitCode) << test.command;
    if (fs::exists(scratch / "out/results.jsonl")) {
      const size_t lines = Lines(ReadText(scratch / "out/results.jsonl")).size();
      EXPECT_TRUE(lines == 4 || (test.exitCode == 1 && lines <= 4)) << test.command << lines;
      EXPECT_TRUE(fs::exists(scratch / "out/index.html")) << test.command;
    }
  }
}

TEST(Files, SignalsEndARunInOrderWhereverItWaits) {
  const Scratch scratch;
  const Job job(scratch, 60);
  // Records so long that a pipe nobody reads is soon full.
  std::string recipe = kCount;
  for (int i = 0; i < 60; ++i) {
    recipe.insert(recipe.find("{\"name\": \"parts\", \"input\": \"parts\""),
                  "{\"name\": \"" + std::string(50, 'x') + std::to_string(i) +
                      "\", \"input\": \"parts\", \"value\": \"count\"},");
  }
  WriteText(job.recipe, recipe);
  const std::string cd = "cd '" + (scratch / ".") + "'\n";
  const std::string run = "\"$quillon\" run recipe.json images --jobs 2 --out out ";
  const auto outcome = [&](const std::string& script) {
    fs::remove_all(scratch / "out");
    return Shell(cd + script);
  };
  for (const char* signal : {"INT", "HUP", "TERM"}) {
    const Answer answer = outcome(
        "mkfifo pipe-" + std::string(signal) + "; exec 3<>pipe-" + signal + "\nset -m\n" + run +
        "--json >&3 &\n"
        "run=$!; for i in $(seq 500); do [ -f out/results.jsonl ] && [ $(wc -l <out/results.jsonl) "
        "-ge 8 ] && break; sleep 0.01; done; sleep 0.3\nkill -" +
        signal + " $run; wait $run");
    EXPECT_EQ(answer.exitCode, 1) << signal << answer.err;
    EXPECT_NE(answer.err.find("interrupted after "), std::string::npos) << answer.err;
    const size_t lines = Lines(ReadText(scratch / "out/results.jsonl")).size();
    EXPECT_LT(lines, 61u) << "the run was over before";
    const std::string index = ReadText(scratch / "out/index.html");
    EXPECT_NE(index.find("<b>" + std::to_string(lines - 1) + "</b> images"), std::string::npos);
    EXPECT_FALSE(fs::exists(scratch / "out/run.lock"));
    EXPECT_EQ(Shell(cd + run + "--resume").exitCode, 0);
    EXPECT_EQ(Lines(ReadText(scratch / "out/results.jsonl")).size(), 61u);
  }
  // Ignored by the parent, it stays so.
  const Answer ignoring = outcome("trap '' INT HUP\n" + run +
                                  "& run=$!; for i in 1 2 3 4 5 6; do sleep 0.01; kill -INT $run; "
                                  "kill -HUP $run; done 2>/dev/null; wait $run");
  EXPECT_EQ(ignoring.exitCode, 0) << ignoring.err;
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// Less and less memory: pages lose their pictures, images their inspection, but each has its
// record. A command says what it had no memory for.
TEST(Files, ShortMemoryNeverEndsARun) {
  const Scratch scratch;
  const Job job(scratch, 2);
  GreyImage image;
  image.Create(5000, 4000);
  kit::WriteImage(job.folder + "/11.png", image);
  const std::string cd = "cd '" + (scratch / ".") + "'\n";
  std::set<std::string> outcomes;
  for (int megabytes = 220; megabytes >= 40; megabytes -= 20) {
    fs::remove_all(scratch / "out");
    const std::string limited = cd + "ulimit -v " + std::to_string(megabytes * 1024) + "; ";
    const Answer one = Shell(limited + "\"$quillon\" blobs images/11.png --report page.html");
    EXPECT_TRUE(one.exitCode == 0 || one.err.find("memory") != std::string::npos) << one.err;
    const Answer answer =
        Shell(limited + "\"$quillon\" run recipe.json images --json --jobs 1 --out out");
    if (answer.out
            .empty()) {  // the program itself did not start, or said so before the first image
      EXPECT_NE(answer.exitCode, 0);
      continue;
    }
    const auto lines = Lines(answer.out);
    ASSERT_EQ(lines.size(), 2u) << megabytes << answer.err;
    EXPECT_EQ(Json::parse(lines[0])["verdict"], "pass") << megabytes << lines[0];
    const std::string verdict = Json::parse(lines[1])["verdict"];
    EXPECT_EQ(answer.exitCode, verdict == "pass" ? 0 : 3) << answer.err;
    EXPECT_TRUE(fs::exists(scratch / "out/index.html"));
    outcomes.insert(verdict +
                    (answer.err.find("the page of") != std::string::npos ? ", no page" : ""));
  }
  EXPECT_TRUE(outcomes.contains("pass")) << "at first there is enough";
  EXPECT_TRUE(outcomes.contains("pass, no page"));
}
#endif

#endif

}  // namespace
}  // namespace quillon::test
