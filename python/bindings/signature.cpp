#include "signature.h"

#include <algorithm>
#include <cctype>

namespace quillon::python {
namespace {

using kit::Argument;
using kit::Json;

std::string Joined(const std::vector<std::string>& parts) {
  std::string text = "(";
  for (const std::string& part : parts) {
    if (&part != parts.data()) text += ", ";
    text += part;
  }
  text += ')';
  return text;
}

std::string Literal(const Json& value) {
  if (value.is_null()) return "None";
  if (value.is_boolean()) return value.get<bool>() ? "True" : "False";
  if (!value.is_array()) return value.dump();
  std::vector<std::string> items;
  for (const Json& item : value) items.push_back(Literal(item));
  return Joined(items);
}

std::string Default(const Argument& argument) {
  return argument.IsRequired() ? "" : Literal(Json::parse(argument.otherwise));
}

std::string TypeOf(const Argument& argument) {
  switch (argument.type) {
    case Argument::Type::kWhole:
    case Argument::Type::kOdd:
      return "int";
    case Argument::Type::kNumber:
      return "float";
    case Argument::Type::kFlag:
      return "bool";
    case Argument::Type::kChoice: {
      std::string names;
      for (const char* choice : argument.choices) {
        if (!names.empty()) names += ", ";
        names.append("\"").append(choice).append("\"");
      }
      return "Literal[" + names + "]";
    }
    case Argument::Type::kFile:
      return "Source";
    case Argument::Type::kFiles:
      return "Union[Source, Sequence[Source]]";
    case Argument::Type::kRange:
    case Argument::Type::kBox:
    case Argument::Type::kRing:
      return "Sequence[float]";
    case Argument::Type::kWholeRange:
    case Argument::Type::kRectangle:
      return "Sequence[int]";
    case Argument::Type::kWholes:
      return "Kernel";
    case Argument::Type::kPoints:
      return "Points";
  }
  return "";
}

std::string Sentence(std::string text) {
  text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  return text + ".";
}

std::string Typed(const Argument& argument) {
  const bool isOptional = !argument.IsRequired() && !argument.HasDefault();
  const std::string type = TypeOf(argument);
  std::string text = argument.name;
  text.append(": ").append(isOptional ? "Optional[" + type + "]" : type);
  if (!argument.IsRequired()) text.append(" = ").append(Default(argument));
  return text;
}

// "{"size": size}"
std::string ValuesOf(const Signature& signature) {
  std::string text = "{";
  for (const Argument* argument : signature.arguments) {
    if (text.size() > 1) text += ", ";
    text.append("\"").append(argument->name).append("\": ").append(argument->name);
  }
  return text + "}";
}

// The parameters. What things are chosen by is given by name.
std::string ParametersOf(const Signature& signature) {
  std::vector<std::string> parts;
  for (const char* image : signature.images) parts.push_back(std::string(image) + ": Image");
  bool isByName = false;
  for (const Argument* argument : signature.arguments) {
    if (!isByName && !argument->IsRequired() && !signature.MakesPicture()) {
      parts.emplace_back("*");
      isByName = true;
    }
    parts.push_back(Typed(*argument));
  }
  if (signature.MakesPicture()) {
    parts.insert(parts.end(),
                 {"*", "out: Optional[Image] = None", "layout: Layout = \"contiguous\""});
  }
  return Joined(parts);
}

}  // namespace

std::string Signature::Description() const {
  std::string text = Sentence(operation->summary) + "\n";
  for (const Argument* argument : arguments) {
    text += "\n" + std::string(argument->name) + ": " + argument->Meaning() + " (" +
            argument->Expected() + ")";
  }
  if (!arguments.empty()) text += "\n";
  if (!operation->exports.empty()) {
    text += "\nCalls";
    for (const kit::Export& row : operation->exports) {
      text += (&row == operation->exports.data() ? " " : ", ") + std::string(row.name);
    }
    text += ".";
  }
  return text;
}

std::string Signature::Definition() const {
  std::string pictures = "(";
  for (const char* image : images) pictures += std::string(image) + ",";
  pictures += ")";
  std::string description;
  for (const char c : Description()) {
    if (c != '\n' && description.ends_with('\n')) description += "    ";
    description += c;
  }
  while (description.back() == '\n') description.pop_back();
  const std::string given = "(\"" + name + "\", " + pictures + ", " + ValuesOf(*this);
  return "def " + name + ParametersOf(*this) + " -> " + (MakesPicture() ? "Image" : "Things") +
         ":\n    \"\"\"" + description + "\n    \"\"\"\n    return " +
         (MakesPicture() ? "_quillon.picture" + given + ", out, layout)"
                         : "Things.of(_quillon.things" + given + "), " + images[0] + ")") +
         "\n";
}

Signature SignatureOf(const kit::Operation& operation) {
  Signature signature;
  signature.name = operation.name;
  signature.operation = &operation;
  std::replace(signature.name.begin(), signature.name.end(), '-', '_');
  signature.images = {"image"};
  if (operation.InputCount() == 2) signature.images = {"a", "b"};
  for (const Argument& argument : operation.arguments) signature.arguments.push_back(&argument);
  std::stable_partition(signature.arguments.begin(), signature.arguments.end(),
                        [](const Argument* argument) { return argument->IsRequired(); });
  return signature;
}

const std::vector<Signature>& Signatures() {
  static const std::vector<Signature> signatures = [] {
    std::vector<Signature> all;
    for (const kit::Operation& operation : kit::Operations()) all.push_back(SignatureOf(operation));
    return all;
  }();
  return signatures;
}

}  // namespace quillon::python
