#include "kit/text/text.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "kit/errors.h"

namespace quillon::kit {
namespace {

unsigned char ByteAt(std::string_view text, size_t at) {
  return static_cast<unsigned char>(text[at]);
}

// The length of the UTF-8 sequence at this place, 0 where there is none. Longer forms than needed,
// halves of pairs and what lies beyond the last character are none.
size_t SequenceAt(std::string_view text, size_t at) {
  const unsigned char first = ByteAt(text, at);
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4) return 0;
  const size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (at + length > text.size()) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((ByteAt(text, at + i) & 0xC0) != 0x80) return 0;
  }
  const unsigned char second = ByteAt(text, at + 1);
  const bool isRefused = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                         (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
  return isRefused ? 0 : length;
}

// Of the first 256 characters, those that a terminal obeys instead of showing them.
bool IsControl(std::string_view sequence) {
  const unsigned char first = ByteAt(sequence, 0);
  if (sequence.size() == 1) return first < 0x20 || first == 0x7F;
  return first == 0xC2 && ByteAt(sequence, 1) < 0xA0;
}

// The separators of lines and paragraphs, U+2028 and U+2029.
bool IsSeparator(std::string_view sequence) {
  return sequence == "\xE2\x80\xA8" || sequence == "\xE2\x80\xA9";
}

// Letters that are added, left out or changed, and neighbours that are swapped, count one each.
size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> before, row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    const std::vector<size_t> above = row;
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (a[i - 1] != b[j - 1])});
      const bool areSwapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (areSwapped) row[j] = std::min(row[j], before[j - 2] + 1);
    }
    before = above;
  }
  return row[b.size()];
}

}  // namespace

std::string SizeText(int64_t width, int64_t height) try {
  return std::to_string(width) + " x " + std::to_string(height);
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a size as text");
}

bool IsUtf8(std::string_view text) {
  for (size_t at = 0; at < text.size();) {
    const size_t length = SequenceAt(text, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

std::string Visible(std::string_view text) try {
  std::string visible;
  for (size_t at = 0; at < text.size();) {
    const size_t length = std::max<size_t>(1, SequenceAt(text, at));
    const std::string_view sequence = text.substr(at, length);
    const bool isSeen =
        sequence == "\n" || sequence == "\t" || (SequenceAt(text, at) > 0 && !IsControl(sequence));
    if (isSeen) visible += sequence;
    for (size_t i = 0; i < length && !isSeen; ++i) {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", unsigned{ByteAt(sequence, i)});
      visible += escaped;
    }
    at += length;
  }
  return visible;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a visible text");
}

std::string JsonText(const nlohmann::ordered_json& json, int indent) try {
  const std::string text =
      json.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  std::string escaped;
  for (size_t at = 0; at < text.size();) {
    const size_t length = SequenceAt(text, at);
    const std::string_view sequence = std::string_view(text).substr(at, length);
    // Of one byte only DEL is left to escape: line ends here are those between values.
    if (IsSeparator(sequence) || sequence == "\x7F" || (length > 1 && IsControl(sequence))) {
      const unsigned last = ByteAt(sequence, length - 1);
      char code[7];
      std::snprintf(code, sizeof code, "\\u%04x", length == 3 ? 0x2000 + (last & 0x3F) : last);
      escaped += code;
    } else {
      escaped += sequence;
    }
    at += length;
  }
  return escaped;
} catch (const std::bad_alloc&) {
  throw OutOfMemory("JSON");
}

bool Says(const nlohmann::ordered_json& object, const char* field, std::string_view text) {
  if (!object.is_object()) return false;
  const auto found = object.find(field);
  return found != object.end() && found->is_string() &&
         found->get_ref<const std::string&>() == text;
}

std::string DidYouMean(std::string_view word, const std::vector<std::string>& known) try {
  constexpr size_t kLongest = 60;
  const std::string* best = nullptr;
  size_t least = 3;
  if (word.size() > kLongest) return "";
  for (const std::string& name : known) {
    const size_t distance = EditDistance(word, name);
    if (distance < least && distance < name.size()) least = distance, best = &name;
  }
  return best ? "; did you mean '" + *best + "'?" : "";
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a message");
}

}  // namespace quillon::kit
