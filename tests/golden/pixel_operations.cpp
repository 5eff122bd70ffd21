// Thresholds, pixel arithmetic, transforms and colour to grey.
#include <cstdio>

#include "arith/arithmetic_reference.h"
#include "arith/transform_reference.h"
#include "core/grey_reference.h"
#include "golden/golden.h"
#include "point/threshold_reference.h"
#include "pyramid/pyramid_reference.h"
#include "quillon/quillon.h"

namespace quillon::test::golden {
namespace {

// Six digits tell the parameters of one operation apart.
std::string Name(double parameter) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", parameter);
  return text;
}

// In place only; the padding stays.
template <class Export, class Plain>
Operation InPlace(const std::string& name, Export exported, Plain plain) {
  return {name,
          [=](const Picture& picture, Digest& digest) {
            GreyImage image;
            image.CopyFrom(&picture.grey);
            exported(&image);
            digest.AddStore(image);
          },
          [=](const Picture& picture, Digest& digest) {
            GreyImage image;
            image.CopyFrom(&picture.grey);
            plain(image);
            digest.AddStore(image);
          }};
}

using PairExport = void(const GreyImage*, const GreyImage*, GreyImage*);

Operation Pair(const std::string& name, PairExport* exported, PairRule rule) {
  return {name,
          [=](const Picture& picture, Digest& digest) {
            GreyImage image;
            exported(&picture.grey, &picture.second, &image);
            digest.AddStore(image);
            image.CopyFrom(&picture.second);
            exported(&picture.grey, &image, &image);
            digest.AddPixels(image);
            GreyImage same, twice;
            same.CopyFrom(&picture.grey);
            exported(&same, &same, &same);
            exported(&picture.grey, &picture.grey, &twice);
            if (!Difference(same, twice).empty()) digest.Add("another result where all are one");
          },
          [=](const Picture& picture, Digest& digest) {
            GreyImage image;
            reference::Combine(rule, picture.grey, picture.second, image);
            digest.AddStore(image);
            digest.AddPixels(image);
          }};
}

template <class Formula>
auto MapBy(Formula formula) {
  return
      [=](const GreyImage& source, GreyImage& result) { reference::Map(source, result, formula); };
}

void AddThresholds(std::vector<Operation>& all) {
  for (int bound : {-300, 0, 100, 254, 300}) {
    const std::string at = "(" + std::to_string(bound) + ")";
    all.push_back(InPlace(
        "IxThreshold" + at, [=](GreyImage* image) { IxThreshold(image, bound); },
        [=](GreyImage& image) { reference::Threshold(image, bound); }));
    all.push_back(InPlace(
        "IxDoubleThreshold" + at, [=](GreyImage* image) { IxDoubleThreshold(image, bound, 200); },
        [=](GreyImage& image) { reference::DoubleThreshold(image, bound, 200); }));
  }
  all.push_back(InPlace("IxOtsuThreshold", IxOtsuThreshold, [](GreyImage& image) {
    reference::Threshold(image, reference::Otsu(image));
  }));
}

void AddArithmetic(std::vector<Operation>& all) {
  all.push_back(Pair("IxImageAdd", IxImageAdd, PairRule::kAdd));
  all.push_back(Pair("IxImageSub", IxImageSub, PairRule::kSubtract));
  all.push_back(Pair("IxImageMul", IxImageMul, PairRule::kMultiply));
  all.push_back(Pair("IxImageDiv", IxImageDiv, PairRule::kDivide));
  all.push_back(Pair("IxImageBirwiseAND", IxImageBirwiseAND, PairRule::kAnd));
  all.push_back(Pair("IxImageBirwiseOR", IxImageBirwiseOR, PairRule::kOr));
  all.push_back(Pair("IxImageBirwiseXOR", IxImageBirwiseXOR, PairRule::kXor));
  all.push_back(Pair("IxImageEqual", IxImageEqual, PairRule::kEqual));
  all.push_back(Pair("IxImageNOTEqual", IxImageNOTEqual, PairRule::kNotEqual));
  all.push_back(FromImageToImage(
      "IxImageShiftLeft", [](auto* from, auto* to) { IxImageShiftLeft(from, to, 3); },
      MapBy([](int p) { return p << 3 & 255; })));
  all.push_back(FromImageToImage(
      "IxImageShiftRight", [](auto* from, auto* to) { IxImageShiftRight(from, to, 3); },
      MapBy([](int p) { return p >> 3; })));
  all.push_back(
      FromImageToImage("IxImageInvert", IxImageInvert, MapBy([](int p) { return 255 - p; })));
  constexpr double kLines[][2] = {{1.37, -21.5}, {-0.7, 300}, {1e300, -1e300}, {0.1, 0.3}};
  for (const auto& [gain, offset] : kLines) {
    const double g = gain, o = offset;
    all.push_back(FromImageToImage(
        "IxImageGainOffset(" + Name(g) + ")",
        [=](auto* from, auto* to) { IxImageGainOffset(from, to, g, o); },
        MapBy([=](int p) { return reference::GainOffset(p, g, o); })));
  }
}

void AddTransforms(std::vector<Operation>& all) {
  constexpr double kScales[][2] = {{2, 2}, {0.7, 1.3}, {3, 0.51}, {1.001, 5}};
  for (const auto& [scaleX, scaleY] : kScales) {
    const double x = scaleX, y = scaleY;
    all.push_back(FromImageToImage(
        "IxImageScaling(" + Name(x) + ")",
        [=](auto* from, auto* to) { IxImageScaling(from, to, x, y); },
        [=](const GreyImage& from, GreyImage& to) { reference::Scale(from, to, x, y); }));
  }
  constexpr int kDistances[][2] = {{0, 1}, {-7, 3}, {40, -33}};
  for (const auto& [distanceX, distanceY] : kDistances) {
    const int dx = distanceX, dy = distanceY;
    all.push_back(FromImageToImage(
        "IxImageTranslation(" + std::to_string(dx) + ")",
        [=](auto* from, auto* to) { IxImageTranslation(from, to, dx, dy); },
        [=](const GreyImage& from, GreyImage& to) { reference::Translate(from, to, dx, dy); }));
  }
  for (double angle : {90.0, 17.3, -133.0, 36.86989764584402}) {
    const std::string at = "(" + Name(angle) + ")";
    all.push_back(FromImageToImage(
        "IxImageRotation" + at, [=](auto* from, auto* to) { IxImageRotation(from, to, angle); },
        [=](const GreyImage& from, GreyImage& to) {
          reference::Rotate(Sampling::kNearest, from, to, angle);
        }));
    all.push_back(FromImageToImage(
        "IxImageRotationBilinear" + at,
        [=](auto* from, auto* to) { IxImageRotationBilinear(from, to, angle); },
        [=](const GreyImage& from, GreyImage& to) {
          reference::Rotate(Sampling::kBilinear, from, to, angle);
        }));
  }
}

}  // namespace

void AddPixelOperations(std::vector<Operation>& all) {
  all.push_back({"IxColorToGray",
                 [](const Picture& picture, Digest& digest) {
                   GreyImage image;
                   IxColorToGray(&picture.colour, &image);
                   digest.AddStore(image);
                 },
                 [](const Picture& picture, Digest& digest) {
                   GreyImage image;
                   reference::ColorToGrey(picture.colour, image);
                   digest.AddStore(image);
                 }});
  AddThresholds(all);
  AddArithmetic(all);
  AddTransforms(all);
  all.push_back({"IxImgPyramid",
                 [](const Picture& picture, Digest& digest) {
                   GreyImage image;
                   IxImgPyramid(&picture.grey, &image);
                   digest.AddStore(image);
                   image.CopyFrom(&picture.grey);
                   IxImgPyramid(&image, &image);
                   digest.AddStore(image);
                 },
                 [](const Picture& picture, Digest& digest) {
                   GreyImage image;
                   image.Create(picture.grey.width / 16, picture.grey.height / 16);
                   if (image.bits) reference::Reduce(picture.grey, 4, image);
                   digest.AddStore(image);
                   image.CopyFrom(&picture.grey);
                   if (image.width >= 16 && image.height >= 16) {
                     reference::Reduce(picture.grey, 4, image);
                   }
                   digest.AddStore(image);
                 }});
}

}  // namespace quillon::test::golden
