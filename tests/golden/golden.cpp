#include "golden/golden.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <sstream>

namespace quillon::test::golden {
namespace {

constexpr const char* kContentNames[] = {"noise", "binary", "ramp", "flat", "extremes"};
constexpr Size kSizes[] = {{1, 1}, {3, 5}, {16, 9}, {33, 17}, {64, 48}, {131, 97}};

constexpr const char* kHeading =
    "# One line per operation, content and size: the digest of the whole result, made by the "
    "plain\n"
    "# forms in tests/. scripts/golden makes this file and checks it in other builds.\n";
constexpr const char* kMeasurementHeading =
    "# No plain form has the same last bits, or a mathematical function of the platform takes "
    "part:\n"
    "# what the exports gave, and how far others may lie from it.\n";

// Calls visit(key, digest) for every line.
template <class Visitor>
void ForEachDigest(Compute Operation::*side, const Visitor& visit) {
  const std::vector<Operation> operations = AllOperations();
  Picture picture;
  for (const Operation& operation : operations) {
    if (operation.everyPicture) continue;
    Digest digest;
    (operation.*side)(picture, digest);
    visit(operation.name + " own -", digest.Text());
  }
  for (const Size& size : kSizes) {
    for (Content content : kContents) {
      picture.Draw(size, content);
      for (const Operation& operation : operations) {
        if (!operation.everyPicture) continue;
        Digest digest;
        (operation.*side)(picture, digest);
        visit(operation.name + " " + kContentNames[static_cast<int>(content)] + " " +
                  std::to_string(size.width) + "x" + std::to_string(size.height),
              digest.Text());
      }
    }
  }
}

// Digits enough to give the same double back.
std::string Digits(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%.17g", number);
  return text;
}

// Lines "name within BOUND: numbers", as a file's reader takes them apart.
constexpr const char* kWithin = " within ";

std::string MeasurementKey(const Measurement& m) {
  return m.name + kWithin + Digits(m.bound) + ":";
}

std::string CompareNumbers(const std::string& expected, const std::vector<double>& actual,
                           double bound, double& farthest) {
  std::istringstream numbers(expected);
  std::ostringstream message;
  size_t i = 0;
  for (double wanted; numbers >> wanted; ++i) {
    if (i < actual.size()) farthest = std::max(farthest, std::abs(actual[i] - wanted));
    if (i < actual.size() && std::abs(actual[i] - wanted) <= bound) continue;
    message << "number " << i << " is " << (i < actual.size() ? Digits(actual[i]) : "missing")
            << " instead of " << Digits(wanted) << "; ";
  }
  if (i != actual.size()) message << actual.size() << " numbers instead of " << i;
  return message.str();
}

}  // namespace

std::vector<Operation> AllOperations() {
  std::vector<Operation> all;
  AddPixelOperations(all);
  AddFilters(all);
  AddMorphology(all);
  AddBlobs(all);
  AddColourSpaces(all);
  AddCalibration(all);
  AddMatching(all);
  return all;
}

void Picture::Draw(const Size& size, Content content) {
  seed = static_cast<uint32_t>(size.width * 8 + static_cast<int>(content));
  Fill(grey, size.width, size.height, content);
  Fill(second, size.width, size.height, Content::kExtremes, 5);
  Fill(colour, size.width, size.height, content, 9);
}

std::string Digest::Text() const {
  char text[17];
  std::snprintf(text, sizeof text, "%08x%08x", static_cast<unsigned>(state_ >> 32),
                static_cast<unsigned>(state_));
  return text;
}

std::string MakeFile() {
  std::map<std::string, std::string> lines;
  ForEachDigest(&Operation::plain,
                [&](const std::string& key, const std::string& digest) { lines[key] = digest; });
  std::string text = kHeading;
  for (const auto& [key, digest] : lines) text += key + " " + digest + "\n";
  text += kMeasurementHeading;
  for (const Measurement& m : Measurements()) {
    text += MeasurementKey(m);
    for (double number : m.exported()) text += " " + Digits(number);
    text += "\n";
  }
  return text;
}

Comparison CheckFile(const std::string& text) {
  std::map<std::string, std::string> digests, numbers;
  std::istringstream file(text);
  for (std::string line; std::getline(file, line);) {
    while (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    const size_t within = line.find(kWithin), colon = line.find(':'), space = line.rfind(' ');
    if (within != std::string::npos && colon != std::string::npos) {
      numbers[line.substr(0, colon + 1)] = line.substr(colon + 1);
    } else if (space != std::string::npos) {
      digests[line.substr(0, space)] = line.substr(space + 1);
    }
  }
  Comparison result;
  result.lines = digests.size() + numbers.size();
  std::vector<std::string>& differences = result.differences;
  ForEachDigest(&Operation::exported, [&](const std::string& key, const std::string& digest) {
    const auto found = digests.find(key);
    if (found == digests.end()) {
      differences.push_back(key + ": not in the file");
      return;
    }
    if (found->second != digest) {
      differences.push_back(key + ": " + digest + " instead of " + found->second);
    }
    digests.erase(found);
  });
  for (const Measurement& m : Measurements()) {
    const std::string key = MeasurementKey(m);
    const auto found = numbers.find(key);
    if (found == numbers.end()) {
      differences.push_back(key + " not in the file");
      continue;
    }
    const std::string difference =
        CompareNumbers(found->second, m.exported(), m.bound, result.farthest);
    if (!difference.empty()) differences.push_back(key + " " + difference);
    numbers.erase(found);
  }
  for (const auto& [key, digest] : digests) differences.push_back(key + ": nothing computes it");
  for (const auto& [key, values] : numbers) differences.push_back(key + " nothing computes it");
  return result;
}

}  // namespace quillon::test::golden
