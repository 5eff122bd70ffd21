// The page of a correction: the picture before and after it, side by side.
#pragma once

#include <string>

#include "quillon/image.h"
#include "table.h"

namespace quillon::app {

void WriteBeforeAfter(const std::string& path, const std::string& title, const GreyImage& before,
                      const GreyImage& after, const Findings& findings);

}  // namespace quillon::app
