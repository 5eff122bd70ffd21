// Flat field and lens: files, tables, corrected pixels.
#include <cstring>

#include "calib/distortion_reference.h"
#include "calib/flat_field_reference.h"
#include "golden/golden.h"
#include "quillon/quillon.h"
#include "support/temporary_file.h"

namespace quillon::test::golden {
namespace {

constexpr int kTargets[] = {-3, 0, 1, 100, 255, 999};

template <class Value>
void Append(Value value, std::vector<char>& bytes) {
  const char* p = reinterpret_cast<const char*>(&value);
  bytes.insert(bytes.end(), p, p + sizeof value);
}

std::vector<double> Gains(int target) {
  std::vector<double> gains;
  for (int level = 0; level < 256; ++level) {
    gains.push_back(static_cast<double>(std::clamp(target, 0, 255)) / level);
  }
  return gains;
}

struct Corners {
  int xStart, xEnd, yStart, yEnd;
};

Corners CornersIn(const GreyImage& image) {
  return {-2, image.width - image.width / 4, image.height / 5, image.height + 3};
}

// Of a file and of the image's gains.
void AddFlatField(const std::vector<char>& bytes, const double* gains, Digest& digest) {
  for (size_t i = 0; i < 6 && 4 * i < bytes.size(); ++i) {
    int32_t word;
    std::memcpy(&word, bytes.data() + 4 * i, 4);
    digest.Add(word);
  }
  for (size_t i = 0; 24 + 8 * i < bytes.size(); ++i) {
    double gain;
    std::memcpy(&gain, bytes.data() + 24 + 8 * i, 8);
    digest.Add(gain);
  }
  for (int i = 0; i < 256; ++i) digest.Add(gains[i]);
}

std::vector<char> FlatFieldFile(const Corners& c, const std::vector<double>& gains) {
  std::vector<char> bytes;
  for (int word : {c.yEnd - c.yStart, c.xEnd - c.xStart, c.yStart, c.yEnd, c.xStart, c.xEnd}) {
    Append(word, bytes);
  }
  for (double gain : gains) Append(gain, bytes);
  return bytes;
}

Operation FlatField() {
  return {"IxFFCParaBuild IxFFCParaLoad IxFFCCalibrate",
          [](const Picture& picture, Digest& digest) {
            const Corners c = CornersIn(picture.grey);
            const TemporaryFile file("golden-gains");
            for (int target : kTargets) {
              GreyImage image, loaded;
              image.CopyFrom(&picture.grey);
              loaded.CopyFrom(&picture.grey);
              digest.Add(
                  IxFFCParaBuild(&image, target, c.xStart, c.xEnd, c.yStart, c.yEnd, file.path()));
              AddFlatField(file.Read(), image.flatFieldTable, digest);
              int region[4] = {};
              digest.Add(IxFFCParaLoad(&loaded, region, file.path()));
              digest.AddAll(region);
              IxFFCCalibrate(&loaded, region[0], region[1], region[2], region[3]);
              digest.AddStore(loaded);
            }
          },
          [](const Picture& picture, Digest& digest) {
            const Corners c = CornersIn(picture.grey);
            for (int target : kTargets) {
              GreyImage image;
              image.CopyFrom(&picture.grey);
              const std::vector<double> gains = Gains(target);
              image.flatFieldTable = static_cast<double*>(malloc(256 * sizeof(double)));
              std::copy(gains.begin(), gains.end(), image.flatFieldTable);
              digest.Add(uint8_t{1});
              AddFlatField(FlatFieldFile(c, gains), gains.data(), digest);
              digest.Add(uint8_t{1});
              for (int side : {c.xStart, c.xEnd, c.yStart, c.yEnd}) digest.Add(side);
              reference::ApplyFlatField(image, {c.xStart, c.xEnd, c.yStart, c.yEnd});
              digest.AddStore(image);
            }
          }};
}

// 1, u, v, u^2, v^2, u v, u v^2, u^2 v, u^3, v^3, of x and of y.
constexpr double kCoefficients[10][2] = {{0.7, -0.4},    {0.98, -0.02}, {0.03, 1.01}, {1e-3, 2e-4},
                                         {-5e-4, 1e-3},  {2e-4, -1e-3}, {1e-5, 2e-6}, {-2e-6, 1e-5},
                                         {-1e-5, -3e-6}, {3e-6, -2e-5}};

// The rectangle goes beyond the image on all sides.
struct Lens {
  int centreX, centreY, xMax, xMin, yMin, yMax;
  int Width() const { return xMax - xMin + 1; }
  int Height() const { return yMax - yMin + 1; }
};

Lens LensOf(const GreyImage& image) {
  return {image.width / 2, image.height / 3, image.width + 1, -2, -1, image.height};
}

std::vector<char> LensFile(const Lens& l) {
  std::vector<char> bytes;
  for (int word : {l.Width(), l.Height(), l.xMax, l.xMin, l.yMin, l.yMax, l.centreX, l.centreY,
                   l.Width(), l.Height(), l.xMax, l.xMin}) {
    Append(word, bytes);
  }
  for (const auto& term : kCoefficients) Append(term[0], bytes), Append(term[1], bytes);
  return bytes;
}

Operation Distortion() {
  return {"IxDistortionParaLoad IxDistortionPreCalculate IxDistortionCalibrate",
          [](const Picture& picture, Digest& digest) {
            const TemporaryFile file("golden-lens");
            file.Write(LensFile(LensOf(picture.grey)));
            GreyImage image;
            image.CopyFrom(&picture.grey);
            digest.Add(IxDistortionParaLoad(&image, file.path()));
            IxDistortionPreCalculate(&image);
            digest.Add(IxDistortionCalibrate(&image));
            digest.AddStore(image);
          },
          [](const Picture& picture, Digest& digest) {
            const Lens lens = LensOf(picture.grey);
            GreyImage image;
            image.CopyFrom(&picture.grey);
            image.distortionCoefficients = static_cast<double*>(malloc(sizeof kCoefficients));
            image.distortionCoefficientRows = static_cast<double**>(malloc(10 * sizeof(double*)));
            std::memcpy(image.distortionCoefficients, kCoefficients, sizeof kCoefficients);
            for (int i = 0; i < 10; ++i) {
              image.distortionCoefficientRows[i] = image.distortionCoefficients + 2 * i;
            }
            image.centreX = lens.centreX, image.centreY = lens.centreY;
            image.xMin = lens.xMin, image.xMax = lens.xMax;
            image.yMin = lens.yMin, image.yMax = lens.yMax;
            const std::vector<uint8_t> corrected = reference::CorrectDistortion(image);
            std::copy(corrected.begin(), corrected.end(), image.bits);
            digest.Add(uint8_t{1});
            digest.Add(uint8_t{1});
            digest.AddStore(image);
          }};
}

}  // namespace

void AddCalibration(std::vector<Operation>& all) {
  all.push_back(FlatField());
  all.push_back(Distortion());
}

}  // namespace quillon::test::golden
