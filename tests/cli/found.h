// What an operation finds in a picture, called as every front calls it.
#pragma once

#include <string>
#include <vector>

#include "kit/operations/operation.h"

namespace quillon::test {

inline std::vector<kit::Thing> Found(const GreyImage& image, const std::string& operation,
                                     const kit::Json& arguments) {
  const kit::Operation& row = *kit::FindOperation(operation);
  kit::ReadyOperation ready(row, ReadValues(row, arguments));
  kit::Content content;
  ready.Run({&image, nullptr}, {}, content);
  return std::move(content.things);
}

}  // namespace quillon::test
