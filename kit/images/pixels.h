// Pictures that are made, or OutOfMemory: an image that gets no memory keeps the size that was
// asked for, but has no pixels.
#pragma once

#include <span>
#include <string>

#include "kit/errors.h"
#include "kit/text/text.h"
#include "quillon/image.h"

namespace quillon::kit {

template <class Pixel>
void RequirePixels(const CImage<Pixel>& image) {
  if (!image.bits) throw OutOfMemory("a picture of " + SizeText(image.width, image.height));
}

// For exports to hang parameters on: an image without pixels would not release them.
inline void MakeHolder(GreyImage& image) {
  image.Create(1, 1);
  RequirePixels(image);
}

template <class Pixel>
void CopyPicture(const CImage<Pixel>& from, CImage<Pixel>& to) {
  to.CopyFrom(&from);
  RequirePixels(to);
}

// An upright part of a picture: left, top, width and height. Where it reaches beyond the picture,
// throws Failure, which calls it by `what`: "the part to crop".
void CutOut(const GreyImage& image, std::span<const int, 4> place, const std::string& what,
            GreyImage& part);

}  // namespace quillon::kit
