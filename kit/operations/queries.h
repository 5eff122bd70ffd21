// What the values of operations that find things ask the searches for: for commands that show more
// than an operation gives.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kit/boards/board_inspector.h"
#include "kit/operations/argument.h"
#include "kit/operations/sources.h"
#include "kit/search/blob_search.h"
#include "kit/search/edge_search.h"
#include "kit/search/part_search.h"
#include "kit/search/pattern_search.h"

namespace quillon::kit {

BlobQuery BlobQueryOf(const Values& values);

PatternQuery PatternQueryOf(const Values& values);

// A taught template, ready to be searched for. Throws Failure naming it.
template <class Image>
PatternTool TeachPattern(const std::string& name, const Image& pattern, const Values& values);

EdgeQuery EdgeQueryOf(const Values& values);

// Throws Failure naming the template.
EdgeTool TeachEdges(const std::string& name, const GreyImage& pattern, const Values& values);

finder::FindOptions PartQueryOf(const Values& values);

// A part from its picture or its model. Throws Failure naming it.
PartModel ReadPart(const std::string& name, const Values& values, const Sources& sources);

// Taught by pictures of good boards, the first of them first. Throws Failure naming the picture.
std::unique_ptr<BoardInspector> TeachBoards(const std::vector<std::string>& good,
                                            const Values& values, const Sources& sources = {});

}  // namespace quillon::kit
