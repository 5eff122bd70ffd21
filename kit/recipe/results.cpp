#include "kit/recipe/results.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "kit/errors.h"
#include "kit/files/checksum.h"
#include "kit/files/files.h"
#include "kit/recipe/objects.h"
#include "kit/text/text.h"

namespace quillon::kit::recipe {
namespace {

// A count is written as a whole number.
Json NumberOf(double value) {
  constexpr double kExact = 9007199254740992;  // 2^53
  if (std::trunc(value) == value && std::fabs(value) < kExact) return static_cast<int64_t>(value);
  return value;
}

Verdict VerdictOf(const std::string& name) {
  for (const Verdict verdict : {Verdict::kPass, Verdict::kFail, Verdict::kUnreadable}) {
    if (name == NameOf(verdict)) return verdict;
  }
  return Verdict::kError;
}

// The name of an image. One that is not UTF-8 loses bytes in JSON: they follow in hexadecimal, so
// that two names never become one.
Json Named(const std::string& image) {
  Json json = {{"image", image}};
  if (IsUtf8(image)) return json;
  std::string digits;
  for (const char byte : image) {
    char pair[3];
    std::snprintf(pair, sizeof pair, "%02x", unsigned{static_cast<unsigned char>(byte)});
    digits += pair;
  }
  json["image_bytes"] = digits;
  return json;
}

std::string NameIn(const Json& json) {
  if (!json.contains("image_bytes")) return json.at("image").get<std::string>();
  const std::string digits = json["image_bytes"].get<std::string>();
  std::string name;
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    name += static_cast<char>(std::strtol(digits.substr(i, 2).c_str(), nullptr, 16));
  }
  return name;
}

Cell CellIn(const Json& object, const std::string& key) {
  if (!object.contains(key)) return {};
  const Json& value = object[key];
  if (value.is_string()) return value.get<std::string>();
  if (value.is_number_integer()) return value.get<int64_t>();
  return value.get<double>();
}

std::string HeadLine(const Recipe& recipe, const RunHead& head) {
  Json json = {
      {"recipe", recipe.name}, {"fingerprint", head.fingerprint}, {"quillon", QUILLON_VERSION}};
  if (head.hasObjects) json["objects"] = true;
  return JsonText(json);
}

struct Line {
  std::string text;
  size_t end;  // after its line break
};

// Whole lines only.
std::vector<Line> Lines(const std::string& text) {
  std::vector<Line> lines;
  for (size_t from = 0;;) {
    const size_t end = text.find('\n', from);
    if (end == std::string::npos) return lines;
    lines.push_back({text.substr(from, end - from), end + 1});
    from = end + 1;
  }
}

}  // namespace

std::string ToLine(const Recipe& recipe, const ImageRecord& record, bool hasObjects) try {
  Json json = Named(record.image);
  json["verdict"] = NameOf(record.verdict);
  if (!record.error.empty()) {
    json["error"] = record.error;
    return JsonText(json);
  }
  Json values = Json::object(), failed = Json::array();
  for (size_t i = 0; i < record.values.size(); ++i) {
    const Measurement& measurement = recipe.measurements[i];
    const auto& value = record.values[i];
    values[measurement.name] = value ? NumberOf(*value) : Json();
    if (!Passes(measurement, value)) failed.push_back(measurement.name);
  }
  json["measurements"] = std::move(values);
  json["failed"] = std::move(failed);
  if (!hasObjects) return JsonText(json);
  Json objects = Json::array();
  const std::vector<Column> columns = ObjectColumns(KindsOfThings(recipe));
  for (const auto& row : record.objects) objects.push_back(RowToJson(columns, row, true));
  json["objects"] = std::move(objects);
  return JsonText(json);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the line of a record");
}

ImageRecord FromLine(const Recipe& recipe, const std::string& line) try {
  const Json json = Json::parse(line);
  ImageRecord record = {.image = NameIn(json),
                        .verdict = VerdictOf(json.at("verdict").get<std::string>())};
  record.values.resize(recipe.measurements.size());
  if (json.contains("error")) {
    record.error = json.at("error").get<std::string>();
    return record;
  }
  for (size_t i = 0; i < record.values.size(); ++i) {
    const Json& value = json.at("measurements").at(recipe.measurements[i].name);
    if (!value.is_null()) record.values[i] = value.get<double>();
  }
  if (!json.contains("objects")) return record;
  const std::vector<Column> columns = ObjectColumns(KindsOfThings(recipe));
  for (const Json& object : json["objects"]) {
    std::vector<Cell>& row = record.objects.emplace_back();
    for (const Column& column : columns) row.push_back(CellIn(object, column.key));
  }
  return record;
} catch (const Json::exception&) {
  throw Failure("the line is no record of recipe '" + recipe.name + "'");
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the line of a record");
}

Counts Count(const std::vector<ImageRecord>& records) {
  Counts counts = {.images = records.size()};
  for (const ImageRecord& record : records) {
    switch (record.verdict) {
      case Verdict::kPass:
        ++counts.pass;
        break;
      case Verdict::kFail:
        ++counts.fail;
        break;
      case Verdict::kUnreadable:
        ++counts.unreadable;
        break;
      case Verdict::kError:
        ++counts.error;
        break;
    }
  }
  return counts;
}

Findings ToFindings(const Recipe& recipe, const std::vector<ImageRecord>& records) try {
  const Counts counts = Count(records);
  const auto whole = [](size_t count) { return static_cast<int64_t>(count); };
  Findings findings{.key = "images",
                    .facts = {{"recipe", "Recipe", recipe.name},
                              {"count", "Images", whole(counts.images)},
                              {"pass", "Pass", whole(counts.pass)},
                              {"fail", "Fail", whole(counts.fail)}},
                    .columns = {{"image", "image"}, {"verdict", "verdict"}}};
  if (counts.unreadable) {
    findings.facts.push_back({"unreadable", "Unreadable", whole(counts.unreadable)});
  }
  if (counts.error) findings.facts.push_back({"error", "Errors", whole(counts.error)});
  for (const Measurement& measurement : recipe.measurements) {
    findings.columns.push_back({measurement.name, measurement.name, DecimalsOf(measurement)});
  }
  findings.columns.push_back({"failed", "failed"});
  findings.columns.push_back({"error", "error"});
  for (const ImageRecord& record : records) {
    std::vector<Cell> row = {record.image, std::string(NameOf(record.verdict))};
    std::string failed;
    for (size_t i = 0; i < record.values.size(); ++i) {
      const auto& value = record.values[i];
      row.emplace_back();
      if (value) row.back() = *value;
      const bool isJudged = record.error.empty();
      if (isJudged && !Passes(recipe.measurements[i], value)) {
        failed += (failed.empty() ? "" : "; ") + recipe.measurements[i].name;
      }
    }
    row.insert(row.end(), {failed, record.error});
    findings.rows.push_back(std::move(row));
  }
  return findings;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the table of a run");
}

Findings ObjectsToFindings(const Recipe& recipe, const std::vector<ImageRecord>& records) try {
  Findings findings{.key = "objects", .columns = ObjectColumns(KindsOfThings(recipe))};
  findings.columns.insert(findings.columns.begin(), {"image", "image"});
  for (const ImageRecord& record : records) {
    for (const auto& object : record.objects) {
      std::vector<Cell>& row = findings.rows.emplace_back(object);
      row.insert(row.begin(), record.image);
    }
  }
  return findings;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the table of a run");
}

std::string Fingerprint(const Recipe& recipe, const Sources& sources) try {
  Checksum sum;
  sum.Add(recipe.canonical);
  for (const Step& step : recipe.steps) {
    for (const Argument& argument : step.operation->arguments) {
      std::vector<std::string> files;
      if (!step.values.Has(argument.name)) continue;
      if (argument.type == Argument::Type::kFile) files = {step.values.Text(argument.name)};
      if (argument.type == Argument::Type::kFiles) {
        files = step.values.List<std::string>(argument.name);
      }
      for (const std::string& file : files) sum.Add(ReadFile(sources.File(file)));
    }
  }
  if (sources.reading.depth > 0) sum.Add(std::to_string(sources.reading.depth));
  return sum.Text();
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the fingerprint of a recipe");
}

ResultsFile::ResultsFile(std::string path, bool hasObjects, bool isNew)
    : path_(std::move(path)),
      hasObjects_(hasObjects),
      file_(path_, isNew ? std::ios::binary : std::ios::binary | std::ios::app) {
  if (!file_) throw Failure("cannot write '" + path_ + "'");
}

void ResultsFile::Write(const std::string& line) {
  file_ << line << '\n';
  if (!file_.flush()) throw Failure("cannot write '" + path_ + "'");
}

void ResultsFile::Append(const Recipe& recipe, const ImageRecord& record) try {
  Write(ToLine(recipe, record, hasObjects_));
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the line of a record");
}

ResultsFile ResultsFile::Begin(const std::string& path, const Recipe& recipe,
                               const RunHead& head) try {
  ResultsFile file(path, head.hasObjects, true);
  file.Write(HeadLine(recipe, head));
  return file;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the results of a run");
}

ResultsFile ResultsFile::Resume(const std::string& path, const Recipe& recipe, const RunHead& head,
                                const std::vector<std::string>& images,
                                std::vector<ImageRecord>& done) try {
  done.clear();
  std::error_code error;
  if (!std::filesystem::exists(path, error)) return Begin(path, recipe, head);
  const std::vector<Line> lines = Lines(ReadFile(path));
  // The run before was killed before it had written the first line.
  if (lines.empty()) return Begin(path, recipe, head);
  const Json written = Json::parse(lines[0].text, nullptr, false);
  if (!written.is_object() || !written.contains("fingerprint")) {
    throw Failure("'" + path + "' holds no results of a run");
  }
  if (!Says(written, "fingerprint", head.fingerprint)) {
    throw Failure("'" + path +
                  "' holds the results of another recipe, or this one or a file that it names "
                  "has changed: --overwrite begins anew");
  }
  if (written.contains("objects") != head.hasObjects) {
    throw Failure("'" + path + "' holds results " + (head.hasObjects ? "without" : "with") +
                  " objects: --resume goes on " + (head.hasObjects ? "without" : "with") +
                  " --objects, --overwrite begins anew");
  }
  size_t end = lines[0].end;
  for (size_t i = 1; i < lines.size(); ++i) {
    try {
      done.push_back(FromLine(recipe, lines[i].text));
    } catch (const OutOfMemory&) {
      throw;
    } catch (const Failure&) {
      if (i + 1 == lines.size()) break;  // half-written: this image is inspected again
      throw Failure("'" + path + "' is damaged in line " + std::to_string(i + 1) +
                    ": --overwrite begins anew");
    }
    if (done.size() > images.size() || done.back().image != images[done.size() - 1]) {
      throw Failure(
          "'" + path + "' is of other images: image " + std::to_string(done.size()) + " is '" +
          done.back().image + "' there, and here " +
          (done.size() > images.size() ? "there are fewer" : "'" + images[done.size() - 1] + "'"));
    }
    end = lines[i].end;
  }
  std::filesystem::resize_file(path, end, error);
  if (error) throw Failure("cannot write '" + path + "': " + error.message());
  return {path, head.hasObjects, false};
} catch (const std::bad_alloc&) {
  throw OutOfMemory("the results of a run");
}

}  // namespace quillon::kit::recipe
