// Image operations: the input chooses operation, images and numbers, up to four calls in a row.
#include <cmath>

#include "fuzz/input.h"
#include "quillon/quillon.h"

namespace quillon::fuzz {
namespace {

struct Arguments {
  Input& input;
  const GreyImage* a;
  const GreyImage* b;
  GreyImage* result;
  const ColourImage* colour;
  ColourImage* colourResult;
  bool inPlace;
};

using Operation = void (*)(const Arguments&);

// Results stay below some millions of pixels.
double Scale(Input& input, int side) {
  const double scale = input.Double();
  return side * scale < 3000 ? scale : 1.5;
}

template <void (*kExport)(const GreyImage*, GreyImage*)>
void FromTo(const Arguments& x) {
  kExport(x.a, x.result);
}

template <void (*kExport)(const GreyImage*, const GreyImage*, GreyImage*)>
void Pair(const Arguments& x) {
  kExport(x.a, x.b, x.result);
}

template <void (*kExport)(const GreyImage*, GreyImage*, const int*), int kCells>
void Convolve(const Arguments& x) {
  int weights[kCells];
  for (int& weight : weights) weight = x.input.Int();
  kExport(x.a, x.result, x.input.Choice(32) ? weights : nullptr);
}

template <void (*kExport)(const GreyImage*, GreyImage*, int)>
void WithInt(const Arguments& x) {
  kExport(x.a, x.result, x.input.Int());
}

template <void (*kExport)(const GreyImage*, GreyImage*, int, int)>
void WithTwoInts(const Arguments& x) {
  const int first = x.input.Int();
  kExport(x.a, x.result, first, x.input.Int());
}

// Gradients and top-hats write their source too. In place they leave an image behind by contract,
// so they are not called so.
template <void (*kExport)(GreyImage*, GreyImage*, int, int)>
void Composite(const Arguments& x) {
  GreyImage source;
  source.CopyFrom(x.a);
  const int first = x.input.Int();
  if (!x.inPlace) kExport(x.a ? &source : nullptr, x.result, first, x.input.Int());
  RequireSound(source);
}

template <void (*kExport)(GreyImage*, GreyImage*, int)>
void StarComposite(const Arguments& x) {
  GreyImage source;
  source.CopyFrom(x.a);
  if (!x.inPlace) kExport(x.a ? &source : nullptr, x.result, x.input.Int());
  RequireSound(source);
}

const Operation kOperations[] = {
    [](const Arguments& x) { IxColorToGray(x.colour, x.result); },
    [](const Arguments& x) { IxThreshold(x.result, x.input.Int()); },
    [](const Arguments& x) {
      const int low = x.input.Int();
      IxDoubleThreshold(x.result, low, x.input.Int());
    },
    [](const Arguments& x) { IxOtsuThreshold(x.result); },
    FromTo<IxSobel>,
    FromTo<IxPrewitt>,
    FromTo<IxRobert>,
    FromTo<IxLaplacian>,
    FromTo<IxLaplacianSharping>,
    FromTo<IxMedianFilter3x3>,
    FromTo<IxMedianFilter5x5>,
    Pair<IxImageAdd>,
    Pair<IxImageSub>,
    Pair<IxImageMul>,
    Pair<IxImageDiv>,
    Pair<IxImageBirwiseAND>,
    Pair<IxImageBirwiseOR>,
    Pair<IxImageBirwiseXOR>,
    Pair<IxImageEqual>,
    Pair<IxImageNOTEqual>,
    WithInt<IxImageShiftLeft>,
    WithInt<IxImageShiftRight>,
    FromTo<IxImageInvert>,
    [](const Arguments& x) {
      const double gain = x.input.Double();
      IxImageGainOffset(x.a, x.result, gain, x.input.Double());
    },
    [](const Arguments& x) {
      if (!x.a) return;
      const double scaleX = Scale(x.input, x.a->width);
      IxImageScaling(x.a, x.result, scaleX, Scale(x.input, x.a->height));
    },
    WithTwoInts<IxImageTranslation>,
    [](const Arguments& x) { IxImageRotation(x.a, x.result, x.input.Double()); },
    [](const Arguments& x) { IxImageRotationBilinear(x.a, x.result, x.input.Double()); },
    FromTo<IxGaussianSmoothing3x3>,
    FromTo<IxGaussianSmoothing5x5>,
    FromTo<IxGaussianSmoothing7x7>,
    WithInt<IxMeanSmoothing>,
    FromTo<IxMeanSmoothing3x3>,
    FromTo<IxMeanSmoothing5x5>,
    FromTo<IxMeanSmoothing7x7>,
    Convolve<IxArbitraryConvolution3x3, 9>,
    Convolve<IxArbitraryConvolution5x5, 25>,
    Convolve<IxArbitraryConvolution7x7, 49>,
    WithTwoInts<IxDilation>,
    WithTwoInts<IxErosion>,
    WithTwoInts<IxOpening>,
    WithTwoInts<IxClosing>,
    WithInt<IxDilationDiamond>,
    WithInt<IxErosionDiamond>,
    WithInt<IxOpeningDiamond>,
    WithInt<IxClosingDiamond>,
    WithInt<IxDilationCircle>,
    WithInt<IxErosionCircle>,
    WithInt<IxOpeningCircle>,
    WithInt<IxClosingCircle>,
    Composite<IxMorphGradient>,
    Composite<IxMorphWhiteTopHat>,
    [](const Arguments& x) {
      if (!x.inPlace) IxMorphBlackTopHat(x.a, x.result, x.input.Int(), 3);
    },
    StarComposite<IxMorphGradientDiamond>,
    StarComposite<IxMorphWhiteTopHatDiamond>,
    StarComposite<IxMorphGradientCircle>,
    StarComposite<IxMorphWhiteTopHatCircle>,
    [](const Arguments& x) {
      if (!x.inPlace) IxMorphBlackTopHatDiamond(x.a, x.result, x.input.Int());
    },
    [](const Arguments& x) {
      if (!x.inPlace) IxMorphBlackTopHatCircle(x.a, x.result, x.input.Int());
    },
    FromTo<IxImgPyramid>,
    [](const Arguments& x) { IxGetHSI(x.colour, x.result, x.input.Int()); },
    [](const Arguments& x) {
      uint8_t channels[3];
      const int column = x.input.Int();
      IxGetHSIPoint(x.colour, column, x.input.Int(), channels);
    },
    [](const Arguments& x) {
      static const std::vector<uint8_t> table(1 << 24, 7);
      const uint8_t* tables[3];
      for (const uint8_t*& each : tables) each = x.input.Choice(32) ? table.data() : nullptr;
      IxColorToHSI(x.colour, x.colourResult, tables[0], tables[1], tables[2]);
    },
};
constexpr int kCount = sizeof kOperations / sizeof kOperations[0];

}  // namespace

void Run(Input& input) {
  GreyImage a, b, other, empty;
  ColourImage colour, colourOther;
  input.Image(a);
  input.Image(colour);
  if (input.Choice(4)) {
    b.Create(a.width, a.height);
    input.Fill(b);
  } else {
    input.Image(b);
  }
  for (int call = 0; call < 4 && !input.Ended(); ++call) {
    const Operation operation = kOperations[input.Choice(kCount)];
    // An image of the wrong depth is one that says so.
    auto* const wrong = reinterpret_cast<GreyImage*>(&colour);
    GreyImage* const greys[] = {&a, &b, &other, &empty, nullptr, wrong, &a, &a};
    ColourImage* const colours[] = {&colour, &colourOther, &colour, nullptr};
    const GreyImage* from = greys[input.Choice(8)];
    const GreyImage* second = greys[input.Choice(8)];
    GreyImage* to = input.Choice(3) ? &other : greys[input.Choice(5)];
    const bool inPlace = to == from || to == second;
    const ReadOnly<unsigned char> first(inPlace ? nullptr : from), next(inPlace ? nullptr : second);
    operation({.input = input,
               .a = from,
               .b = second,
               .result = to,
               .colour = colours[input.Choice(4)],
               .colourResult = colours[input.Choice(2)],
               .inPlace = inPlace});
    if (from != wrong) first.RequireUnchanged();
    if (second != wrong) next.RequireUnchanged();
    for (const GreyImage* image : {&a, &b, &other, &empty}) RequireSound(*image);
    RequireSound(colour);
    RequireSound(colourOther);
    if (!empty.bits && !other.bits) other.Create(a.width, a.height);
  }
}

}  // namespace quillon::fuzz
