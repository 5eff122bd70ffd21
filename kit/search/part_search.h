// A part taught and found by the finder, for `quillon find`, `quillon teach` and recipes.
#pragma once

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

// `name` is that of the template's file, for messages. `mask` is null, or a picture of the same
// size that is black where the template does not count. Throws Failure, as all of these do.
PartModel TeachPart(const std::string& name, const GreyImage& pattern, finder::Way way,
                    const GreyImage* mask = nullptr);

// From a picture, which is taught, or from a model that was taught before: the content decides.
// Without a way, a picture is taught by its edges; a model that was taught in another way than the
// given one is refused.
PartModel ReadPart(const std::string& path, std::optional<finder::Way> way, const Reading& reading);
void WritePart(const std::string& path, const finder::Model& model);

// What teaching doubts, a sentence each; none where it doubts nothing.
std::vector<std::string> DoubtsOf(const finder::Model& model);

// The picture that was taught.
void TaughtPicture(const finder::Model& model, GreyImage& picture);

constexpr double kLeastPartScore = 0.1;  // that can be asked for

std::vector<finder::Match> FindParts(const GreyImage& image, const finder::Model& model,
                                     const finder::FindOptions& options);

}  // namespace quillon::kit
