#include <cstdio>

#include "quillon/quillon.h"

int main() {
  quillon::GreyImage image;
  image.Create(640, 480);
  for (int x = 0; x < 640; ++x) image.rows[240][x] = static_cast<unsigned char>(x % 256);
  quillon::IxThreshold(&image, 100);
  std::printf("%d %d %d\n", image.rows[240][100], image.rows[240][101], image.rows[0][0]);
}
