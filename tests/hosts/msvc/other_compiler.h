// What the two halves of the test share: plain functions of the half that is compiled with the
// Microsoft class layout.
#pragma once

#include "quillon/quillon.h"

extern "C" {
// An image that the other compiler constructed, with a ramp of x + y in it.
quillon::GreyImage* OtherMakeImage(int width, int height);
void OtherDeleteImage(quillon::GreyImage* image);
// Calls the virtual operations of an image whoever constructed it: blits it into `to`.
int OtherDraw(quillon::GreyImage* image, HDC to);
HDC OtherGetMemoryDC(quillon::GreyImage* image);
void OtherReleaseMemoryDC(quillon::GreyImage* image);
// Passes the image to the library.
void OtherThreshold(quillon::GreyImage* image, int threshold);
int OtherSize();
}
