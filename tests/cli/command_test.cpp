// What the host answers to wrong usage, files that cannot be read or written, and what it lists.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "cli/host.h"
#include "kit/images/image_files.h"
#include "kit/operations/operation.h"
#include "support/images.h"

namespace quillon::test {
namespace {

TEST(Commands, ErrorsNameWhatIsWrongAndItsLimit) {
  const Scratch scratch;
  GreyImage image;
  Fill(image, 2, 9, Content::kNoise);
  const std::string tiny = scratch / "tiny.png";
  kit::WriteImage(tiny, image);
  Fill(image, 20, 10, Content::kNoise);
  const std::string in = scratch / "in.png", out = scratch / "out.png";
  kit::WriteImage(in, image);
  const std::string missing = scratch / "missing.png";
  const std::string nowhere = scratch / "no-such-folder/out.png";

  struct Case {
    std::vector<std::string> arguments;
    int exitCode;
    std::vector<std::string> words;  // of the message
  };
  const Case cases[] = {
      {{}, 2, {}},
      {{"nonsense"}, 2, {"nonsense", "--help"}},
      {{"blbos", in}, 2, {"'blbos'", "did you mean 'blobs'?"}},
      {{"recipe", "chek", in}, 2, {"'chek'", "did you mean 'check'?", "quillon recipe --help"}},
      {{"--versoin"}, 2, {"'--versoin'", "did you mean '--version'?"}},
      {{"blobs", in, "--min-aera=3"}, 2, {"'--min-aera'", "did you mean '--min-area'?"}},
      {{"blobs", in, "--mxa-area=3"}, 2, {"did you mean '--max-area'?"}},
      {{"blobs", "--bnad"}, 2, {"'--bnad'", "did you mean '--band'?"}},
      {{"blobs"}, 2, {"IMAGE"}},
      {{"blobs", in, "--nonsense"}, 2, {"--nonsense"}},
      {{"blobs", in, "--band", "3"}, 2, {"--band", "2", "1"}},
      {{"blobs", in, "--band", "3", "256"}, 2, {"--band", "256", "255"}},
      {{"blobs", in, "--band", "3", "x"}, 2, {"--band", "x"}},
      {{"blobs", in, "--band", "1", "2", "--dark"}, 2, {"--band", "--dark"}},
      {{"blobs", in, "--json", "--csv"}, 2, {"--json", "--csv"}},
      {{"blobs", in, "--min-area", "-1"}, 2, {"--min-area", "-1", "0"}},
      {{"blobs", in, "--min-area", "9", "--max-area", "8"},
       2,
       {"--min-area", "9", "--max-area, 8"}},
      {{"blobs", in, "--min-width", "9", "--max-width", "8"}, 2, {"--min-width", "9", "8"}},
      {{"blobs", in, "--polygon", "1,2", "3,4"}, 2, {"--polygon", "3", "2"}},
      {{"blobs", in, "--polygon", "1,2", "3,4", "5;6"}, 2, {"--polygon", "'5;6'", "32767"}},
      {{"blobs", in, "--polygon", "1,2", "3,4", "5,6x"}, 2, {"--polygon", "'5,6x'"}},
      {{"blobs", in, "--polygon", "1,2", "3,4", "5,-32768"}, 2, {"'5,-32768'", "-32767"}},
      {{"blobs", in, "--center-x", "9", "8"}, 2, {"--center-x", "[9,8]"}},
      {{"threshold", in, out}, 2, {"--above"}},
      {{"threshold", in, out, "--above", "256"}, 2, {"--above", "256", "255"}},
      {{"double-threshold", in, out, "--between", "-1", "9"}, 2, {"--between", "-1", "255"}},
      {{"double-threshold", in, out, "--between", "9", "8"}, 2, {"--between", "[9,8]", "above"}},
      {{"mean", in, out, "--size", "4"}, 2, {"--size", "4", "odd"}},
      {{"mean", in, out, "--size", "0x5"}, 2, {"--size", "'0x5'", "whole number from 1 to 32767"}},
      {{"mean", in, out, "--size", "5.0"}, 2, {"--size", "'5.0'", "whole number"}},
      {{"rotate", in, out, "--angle", "nan"}, 2, {"--angle", "'nan'", "number from -360 to 360"}},
      {{"rotate", in, out, "--angle", "4,5"}, 2, {"--angle", "'4,5'"}},
      {{"run", in, in, "--jobs", "0b1"}, 2, {"--jobs", "'0b1'"}},
      {{"dilation", in, out, "--horizontal", "1"}, 2, {"--vertical"}},
      {{"dilation-circle", in, out, "--radius", "32768"}, 2, {"--radius", "32768", "32767"}},
      {{"match", in, in, "--scale", "2", "1"}, 2, {"--scale", "[2.0,1.0]"}},
      {{"add", in, tiny, out}, 1, {"20 x 10", "2 x 9"}},
      {{"morph-gradient-diamond", tiny, out, "--radius", "1"}, 1, {tiny, "2 x 9", "3 x 3"}},
      {{"dilation-circle", tiny, out, "--radius", "1"}, 1, {tiny, "2 x 9", "3 x 3"}},
      {{"blobs", in, "--polygon", "30,0", "40,0", "40,9"}, 1, {"no pixel", "20 x 10"}},
      {{"completion", "csh"}, 2, {"csh", "bash"}},
      {{"blobs", missing}, 1, {missing}},
      {{"gray", missing, out}, 1, {missing}},
      {{"gray", scratch / ".", out}, 1, {"cannot"}},
      {{"gray", in, scratch / "out.gif"}, 1, {"out.gif", ".png", ".bmp"}},
      {{"gray", in, nowhere}, 1, {nowhere}},
      // Before the picture is read: it would be complained of otherwise.
      {{"blobs", missing, "--report", nowhere}, 1, {nowhere, "no folder"}},
      {{"blobs", missing, "--binary", nowhere}, 1, {nowhere, "no folder"}},
      {{"blobs", missing, "--draw", scratch / "out.gif"}, 1, {"out.gif", ".png", ".bmp"}},
      {{"blobs", missing, "--report", scratch / "."}, 1, {"it is a folder"}},
      {{"blobs", in, "--report", in}, 1, {in, "it is read by this command"}},
      {{"gray", in, scratch / "./in.png"}, 1, {"in.png", "it is read by this command"}},
      {{"blobs", in, "--draw", out, "--binary", out}, 1, {out, "two outputs"}},
      {{"sample", in + "/folder"}, 1, {in + "/folder"}},
      {{"list", "no operation is called that"}, 1, {"no operation is called that"}},
  };
  for (const Case& test : cases) {
    std::string line = "quillon";
    for (const std::string& argument : test.arguments) line += " " + argument;
    const Answer answer = Quillon(test.arguments);
    EXPECT_EQ(answer.exitCode, test.exitCode) << line << '\n' << answer.err;
    for (const std::string& word : test.words) {
      EXPECT_NE(answer.err.find(word), std::string::npos) << line << "\nlacks " << word << ":\n"
                                                          << answer.err;
    }
    EXPECT_FALSE(std::filesystem::exists(out)) << line;
  }
  // Digits are decimal, zeros before them or not.
  EXPECT_EQ(
      Quillon({"crop", in, out, "--left", "+01", "--top", "00", "--width", "010", "--height", "08"})
          .exitCode,
      0);
  GreyImage part;
  kit::ReadImage(out, part);
  EXPECT_EQ(part.width, 10);
  EXPECT_EQ(part.height, 8);
  EXPECT_EQ(Quillon({"--help"}).exitCode, 0);
  EXPECT_EQ(Quillon({}).out, Quillon({"--help"}).out);
  EXPECT_EQ(Quillon({"--version"}).out, QUILLON_VERSION "\n");
}

TEST(Commands, DamagedPicturesAreRefusedByName) {
  const Scratch scratch;
  GreyImage image;
  Fill(image, 90, 70, Content::kNoise);
  kit::WriteImage(scratch / "good.png", image);
  kit::WriteImage(scratch / "good.bmp", image);
  const std::string png = ReadText(scratch / "good.png"), bmp = ReadText(scratch / "good.bmp");
  std::string huge = png;
  huge.replace(16, 8, "\x7f\xff\xff\xff\x7f\xff\xff\xff", 8);  // width and height of the header

  const std::pair<const char*, std::string> files[] = {
      {"empty.png", ""},
      {"letter.png", "x"},
      {"signature.png", png.substr(0, 8)},
      {"header.png", png.substr(0, 33)},
      {"half.png", png.substr(0, png.size() / 2)},
      {"huge.png", huge},
      {"header.bmp", bmp.substr(0, 30)},
      {"text.jpg", "this is not a picture"},
      {"header.jpg", "\xFF\xD8\xFF\xE0"},
      {"short.pgm", "P5 1000000000 1000000000 255 x"},
      {"broken.pgm", "P5 10"},
  };
  for (const auto& [name, bytes] : files) {
    WriteText(scratch / name, bytes);
    const Answer answer = Quillon({"blobs", scratch / name});
    EXPECT_EQ(answer.exitCode, 1) << name << '\n' << answer.out;
    EXPECT_NE(answer.err.find(name), std::string::npos) << answer.err;
    EXPECT_EQ(answer.out, "") << name;
  }

  // A byte that is wrong may pass unseen, but never ends the program.
  Random random(1);
  for (int i = 0; i < 24; ++i) {
    std::string bytes = i % 2 ? png : bmp;
    const int last = std::min(static_cast<int>(bytes.size()) - 1, i < 12 ? 60 : 5000);
    for (int n = 0; n < 3; ++n) bytes[random.Within(0, last)] = static_cast<char>(random.Next());
    WriteText(scratch / "flipped", bytes);
    const int exitCode = Quillon({"gray", scratch / "flipped", scratch / "out.png"}).exitCode;
    EXPECT_TRUE(exitCode == 0 || exitCode == 1) << exitCode << " for file " << i;
  }
}

// Every exported function and operation is listed, and what is listed is exported and has a
// command.
TEST(Commands, ListNamesEveryExportedFunctionAndCommandsThatExist) {
  const std::string exported = ReadText(InProgramFolder("quillon.def"));
  const std::string help = Quillon({"--help"}).out;
  const auto operations = QuillonJson({"list"})["operations"];
  std::set<std::string> functions, commands;
  for (const auto& operation : operations) {
    const std::string name = operation["operation"], command = operation["command"];
    if (!name.empty()) functions.insert(name);
    EXPECT_TRUE(name.empty() || exported.find("\n  " + name) != std::string::npos) << name;
    if (command == "(for programs)") continue;
    const std::string first = command.substr(0, command.find(' '));
    commands.insert(first);
    EXPECT_NE(help.find("\n  " + first + " "), std::string::npos) << "no command " << first;
  }
  std::istringstream lines(exported);
  int names = 0;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("  ") || line.starts_with("  ;")) continue;
    ++names;
    const std::string name = line.substr(2, line.find_first_of(" \r", 2) - 2);
    EXPECT_TRUE(functions.contains(name)) << name << " is missing";
  }
  EXPECT_EQ(names, 117);
  for (const kit::Operation& operation : kit::Operations()) {
    EXPECT_TRUE(commands.contains(operation.name)) << operation.name << " is missing";
  }
  EXPECT_EQ(QuillonJson({"list", "otsuTHRESHOLD"})["operations"].size(), 1u);
}

TEST(Commands, DocumentsNameThemAll) {
  const std::string page = ReadText(InProgramFolder("command-line.md"));
  EXPECT_NE(page.find(Quillon({"man", "--markdown"}).out), std::string::npos)
      << "renew its list: scripts/operations";
  const std::string manual = Quillon({"man"}).out, bash = Quillon({"completion", "bash"}).out;
  const std::string zsh = Quillon({"completion", "zsh"}).out;
  const std::string fish = Quillon({"completion", "fish"}).out;
  const std::string help = Quillon({"--help"}).out;
  for (const kit::Operation& operation : kit::Operations()) {
    const std::string name = operation.name;
    std::string inManual = "\n.SS " + name;
    for (size_t at = 0; (at = inManual.find('-', at)) != std::string::npos; at += 2) {
      inManual.insert(at, "\\");
    }
    EXPECT_NE(manual.find(inManual), std::string::npos) << name;
    EXPECT_NE(bash.find("\n      '" + name + "') "), std::string::npos) << name;
    EXPECT_NE(zsh.find("\n  '" + name + "') "), std::string::npos) << name;
    EXPECT_NE(fish.find(" -a " + name + " -d "), std::string::npos) << name;
    EXPECT_NE(help.find("\n  " + name + " "), std::string::npos) << name;
  }
}

}  // namespace
}  // namespace quillon::test
