#include "arguments.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>

#include "kit/errors.h"
#include "kit/search/blob_search.h"

namespace quillon::app {

using namespace kit;

namespace {

using Type = Argument::Type;

std::string Capitalised(std::string text) {
  text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text;
}

std::string InCapitals(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

Json PointOf(const std::string& text) {
  const char* const end = text.data() + text.size();
  int x = 0, y = 0;
  const auto first = std::from_chars(text.data(), end, x);
  const bool comma = first.ec == std::errc{} && first.ptr != end && *first.ptr == ',';
  const auto second = std::from_chars(comma ? first.ptr + 1 : end, end, y);
  const auto isNear = [](int at) { return at >= -kFarthest && at <= kFarthest; };
  if (!comma || second.ec != std::errc{} || second.ptr != end || !isNear(x) || !isNear(y)) {
    throw Failure("'" + text + "' is not a point X,Y of whole numbers from -32767 to 32767");
  }
  return {x, y};
}

Json ValueOf(const Argument& argument, const std::string& text) {
  switch (argument.type) {
    case Type::kWhole:
    case Type::kOdd:
    case Type::kWholeRange:
    case Type::kWholes:
    case Type::kRectangle:
      return std::strtoll(text.c_str(), nullptr, 10);
    case Type::kNumber:
    case Type::kRange:
    case Type::kBox:
    case Type::kRing:
      return std::strtod(text.c_str(), nullptr);
    case Type::kPoints:
      return PointOf(text);
    default:
      return text;
  }
}

bool IsList(const Argument& argument) {
  switch (argument.type) {
    case Type::kRange:
    case Type::kWholeRange:
    case Type::kWholes:
    case Type::kPoints:
    case Type::kRectangle:
    case Type::kBox:
    case Type::kRing:
    case Type::kFiles:
      return true;
    default:
      return false;
  }
}

}  // namespace

std::string OptionName(std::string name) {
  std::replace(name.begin(), name.end(), '_', '-');
  return "--" + name;
}

Command AddOperation(Command top, const Operation& operation) {
  const Command command =
      top.Add(operation.name, Capitalised(operation.summary)).Under(operation.family);
  if (operation.advice) command.Footer(operation.advice);
  return command;
}

void Arguments::AddByPlace(Command command, const std::string& more) {
  for (const Argument& argument : operation_.arguments) {
    if (!argument.isByPlace) continue;
    Texts& texts = texts_.emplace_back(Texts{&argument});
    command.AddFileToRead(InCapitals(argument.name), texts.byPlace, argument.Meaning() + more)
        .Required();
  }
}

void Arguments::AddOptions(Command command) {
  for (const Argument& argument : operation_.arguments) {
    const bool isWhole = argument.isByPlace && argument.type == Type::kFile;
    if (!isWhole) AddOption(command, argument);
  }
}

void Arguments::AddOption(Command command, const Argument& argument) {
  Texts& texts = texts_.emplace_back(Texts{&argument});
  const std::string name = OptionName(argument.name);
  if (argument.type == Type::kFlag) {
    command.AddFlag(name, texts.flag, argument.Meaning());
    return;
  }
  if (argument.isByPlace) {  // the first is there already
    command
        .AddFileToRead(name, texts.given,
                       "another " + InCapitals(argument.name) + ", to learn from; may be repeated")
        .ShownAs("FILE")
        .MayBeRepeated();
    return;
  }
  const bool isFile = argument.IsOfFiles();
  const Option option = isFile ? command.AddFileToRead(name, texts.given, argument.Meaning())
                               : command.AddOption(name, texts.given, argument.Meaning());
  switch (argument.type) {
    case Type::kWhole:
    case Type::kOdd:
      option.Values(1).ShownAs("INT").Within(static_cast<int>(argument.min),
                                             static_cast<int>(argument.max));
      break;
    case Type::kNumber:
      option.Values(1).ShownAs("FLOAT").Within(argument.min, argument.max);
      break;
    case Type::kChoice:
      option.Values(1).ShownAs("NAME").OneOf({argument.choices.begin(), argument.choices.end()});
      break;
    case Type::kRange:
      option.Values(2).ShownAs("LOW HIGH").Within(argument.min, argument.max);
      break;
    case Type::kWholeRange:
      option.Values(2)
          .ShownAs("LOW HIGH")
          .Within(static_cast<int>(argument.min), static_cast<int>(argument.max));
      break;
    case Type::kWholes:
      option.SeparatedBy(',')
          .Values(static_cast<int>(argument.count))
          .ShownAs("INT,INT,...")
          .Within(static_cast<int>(argument.min), static_cast<int>(argument.max));
      break;
    case Type::kPoints:
      option.Values(static_cast<int>(kFewestPoints), static_cast<int>(kMostPoints))
          .ShownAs("X,Y X,Y X,Y ...");
      break;
    case Type::kRectangle:
      option.Values(4)
          .ShownAs("LEFT TOP WIDTH HEIGHT")
          .Within(static_cast<int>(argument.min), static_cast<int>(argument.max));
      break;
    case Type::kBox:
      option.Values(5).ShownAs("X Y WIDTH HEIGHT ANGLE").Within(argument.min, argument.max);
      break;
    case Type::kRing:
      option.Values(4).ShownAs("X Y INNER OUTER").Within(argument.min, argument.max);
      break;
    case Type::kFiles:
      option.ShownAs("FILE").MayBeRepeated();
      break;
    default:
      option.Values(1).ShownAs("FILE");
  }
  if (argument.IsRequired()) option.Required();
  if (argument.HasDefault()) {
    const Json standard = Json::parse(argument.otherwise);
    option.DefaultShown(standard.is_string() ? standard.get<std::string>() : argument.otherwise);
  }
}

Values Arguments::Read() const {
  Json given = Json::object();
  for (const Texts& texts : texts_) {
    const Argument& argument = *texts.argument;
    if (texts.flag) given[argument.name] = true;
    if (!texts.byPlace.empty()) {
      given[argument.name] = IsList(argument) ? Json{texts.byPlace} : Json(texts.byPlace);
    }
    try {
      for (const std::string& text : texts.given) {
        if (IsList(argument)) {
          given[argument.name].push_back(ValueOf(argument, text));  // after the one by its place
        } else {
          given[argument.name] = ValueOf(argument, text);
        }
      }
    } catch (const Failure& failure) {
      RefuseUsage(OptionName(argument.name), failure.what());
    }
  }
  const auto find = [&](const std::string& name) {
    const auto found = given.find(name);
    return found == given.end() ? nullptr : &*found;
  };
  // Problems that name another argument name its option here.
  const auto refuse = [&](const char* name, std::string what) {
    for (const Argument& argument : operation_.arguments) {
      const std::string quoted = "'" + std::string(argument.name) + "'";
      const size_t at = what.find(quoted);
      if (at != std::string::npos) what.replace(at, quoted.size(), OptionName(argument.name));
    }
    RefuseUsage(OptionName(name), what);
  };
  return ReadValues(operation_.arguments, find, refuse);
}

void Source::Read(const std::string& path, Kind kind, const Reading& reading) {
  ReadImage(path, grey, colour, reading);
  if (kind != Kind::kColour || colour.bits) return;
  Reading again = reading;
  again.note = {};
  ReadImage(path, colour, again);
}

}  // namespace quillon::app
