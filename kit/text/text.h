// Texts from outside - names of files, words of recipes - on their way to people and programs.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::kit {

// The text as a terminal may see it: control characters, and bytes that are not UTF-8, as "\x1b".
// Line ends and tabs stay.
std::string Visible(std::string_view text);

// "640 x 480", as all messages and pages have it.
std::string SizeText(int64_t width, int64_t height);

bool IsUtf8(std::string_view text);

// JSON on one line, or indented. Control characters, and what some readers take for the end of a
// line, are escaped, so that a line of JSON is one line to everyone. Bytes that are not UTF-8
// become U+FFFD.
std::string JsonText(const nlohmann::ordered_json& json, int indent = -1);

// Whether the field is there and is this text. The JSON library's == would make a value of the
// text, and end the program where there is no memory for it.
bool Says(const nlohmann::ordered_json& object, const char* field, std::string_view text);

// "; did you mean 'otsu'?" where one of the words is near; nothing otherwise.
std::string DidYouMean(std::string_view word, const std::vector<std::string>& known);

}  // namespace quillon::kit
