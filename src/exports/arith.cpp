// Exports: pixel arithmetic, geometric transforms.
#include "arith/arithmetic.h"
#include "arith/rotation.h"
#include "arith/scaling.h"
#include "arith/translation.h"
#include "exports/guards.h"

namespace quillon {
namespace {

bool CanMap(const GreyImage* source, const GreyImage* result) {
  return IsGrey(source) && result && result->bpp == 8;
}

void Combine(PairRule rule, const GreyImage* a, const GreyImage* b, GreyImage* result) {
  if (IsGrey(b) && CanMap(a, result)) CombinePixels(BestKernels(), rule, *a, *b, *result);
}

}  // namespace

void IxImageAdd(const GreyImage* a, const GreyImage* b, GreyImage* result) {
  Combine(PairRule::kAdd, a, b, result);
}

void IxImageSub(const GreyImage* a, const GreyImage* b, GreyImage* result) {
  Combine(PairRule::kSubtract, a, b, result);
}

void IxImageMul(const GreyImage* a, const GreyImage* b, GreyImage* result) {
  Combine(PairRule::kMultiply, a, b, result);
}

void IxImageDiv(const GreyImage* a, const GreyImage* b, GreyImage* result) {
  Combine(PairRule::kDivide, a, b, result);
}

void IxImageBirwiseAND(const GreyImage* a, const GreyImage* b, GreyImage* result) {
  Combine(PairRule::kAnd, a, b, result);
}

void IxImageBirwiseOR(const GreyImage* a, const GreyImage* b, GreyImage* result) {
  Combine(PairRule::kOr, a, b, result);
}

void IxImageBirwiseXOR(const GreyImage* a, const GreyImage* b, GreyImage* result) {
  Combine(PairRule::kXor, a, b, result);
}

void IxImageEqual(const GreyImage* a, const GreyImage* b, GreyImage* result) {
  Combine(PairRule::kEqual, a, b, result);
}

void IxImageNOTEqual(const GreyImage* a, const GreyImage* b, GreyImage* result) {
  Combine(PairRule::kNotEqual, a, b, result);
}

void IxImageShiftLeft(const GreyImage* source, GreyImage* result, int bits) {
  if (CanMap(source, result)) ShiftPixelsLeft(BestKernels(), *source, *result, bits);
}

void IxImageShiftRight(const GreyImage* source, GreyImage* result, int bits) {
  if (CanMap(source, result)) ShiftPixelsRight(BestKernels(), *source, *result, bits);
}

void IxImageInvert(const GreyImage* source, GreyImage* result) {
  if (CanMap(source, result)) InvertPixels(BestKernels(), *source, *result);
}

void IxImageGainOffset(const GreyImage* source, GreyImage* result, double gain, double offset) {
  if (CanMap(source, result)) ApplyGainOffset(BestKernels(), *source, *result, gain, offset);
}

void IxImageScaling(const GreyImage* source, GreyImage* result, double scaleX, double scaleY) {
  if (CanMap(source, result)) ScaleImage(BestKernels(), *source, *result, scaleX, scaleY);
}

void IxImageTranslation(const GreyImage* source, GreyImage* result, int dx, int dy) {
  if (CanMap(source, result)) TranslateImage(*source, *result, dx, dy);
}

void IxImageRotation(const GreyImage* source, GreyImage* result, double angle) {
  if (!CanMap(source, result)) return;
  RotateImage(BestKernels(), Sampling::kNearest, *source, *result, angle);
}

void IxImageRotationBilinear(const GreyImage* source, GreyImage* result, double angle) {
  if (!CanMap(source, result)) return;
  RotateImage(BestKernels(), Sampling::kBilinear, *source, *result, angle);
}

}  // namespace quillon
