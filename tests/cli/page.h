// What the pages hold for their scripts.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace quillon::test {

// The data of a page: columns, pictures and their drawings, or the images of an index.
nlohmann::json PageData(const std::string& html);

// Its rows as CSV.
std::string PageCsv(const std::string& html);

// How many drawings of a kind are on the picture: all of them, or those of one row.
enum DrawnKind { kDrawnBox, kDrawnPolygon, kDrawnDots, kDrawnCross, kDrawnLabel };
size_t CountDrawn(const nlohmann::json& picture, DrawnKind kind, int row = -2);

// How often a part is in a text.
size_t Count(const std::string& text, const std::string& part);

}  // namespace quillon::test
