// A part taught and found by the finder, for `quillon find`, `quillon teach` and recipes.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "finder/finder.h"
#include "kit/images/image_files.h"

namespace quillon::kit {

// The ways to look as commands and recipes name them.
constexpr const char *kByEdges = "edges", *kByGray = "gray";
const char* NameOf(finder::Way way);
finder::Way WayNamed(const std::string& name);

// Ready to be searched with, from any number of threads.
using PartModel = std::unique_ptr<const finder::Model>;

// What of a template counts: what is not black in a picture of its size, and lies inside a polygon,
// or on its boundary. Without either, all of it.
struct PartMask {
  const GreyImage* picture = nullptr;
  std::vector<std::array<int, 2>> polygon = {};  // may reach beyond the template

  bool IsGiven() const { return picture || !polygon.empty(); }
};

// `name` is that of the template's file, for messages. Throws Failure, as all of these do.
PartModel TeachPart(const std::string& name, const GreyImage& pattern, finder::Way way,
                    const PartMask& mask = {});

// From a picture, which is taught, or from a model that was taught before: the content decides.
// Without a way, a picture is taught by its edges. A model that was taught in another way than the
// given one is refused, and so is a mask for it.
PartModel ReadPart(const std::string& path, std::optional<finder::Way> way, const PartMask& mask,
                   const Reading& reading);
void WritePart(const std::string& path, const finder::Model& model);

// What teaching doubts, a sentence each; none where it doubts nothing.
std::vector<std::string> DoubtsOf(const finder::Model& model);

// The picture that was taught.
void TaughtPicture(const finder::Model& model, GreyImage& picture);

constexpr double kLeastPartScore = 0.1;  // that can be asked for

std::vector<finder::Match> FindParts(const GreyImage& image, const finder::Model& model,
                                     const finder::FindOptions& options);

}  // namespace quillon::kit
