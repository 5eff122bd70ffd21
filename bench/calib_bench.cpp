// Flat field, lens distortion and colour spaces beside OpenCV, or beside the plain loop where
// OpenCV has no such operation.
#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "calib/distortion.h"
#include "calib/flat_field.h"
#include "color/colour_convert.h"
#include "color/colour_formulas.h"
#include "color/colour_tables.h"
#include "families.h"
#include "support/operation.h"

namespace quillon::bench {
namespace {

struct Tables {
  std::vector<uint8_t> table[3] = {std::vector<uint8_t>(kColours), std::vector<uint8_t>(kColours),
                                   std::vector<uint8_t>(kColours)};
};

std::shared_ptr<void> HsiTables() {
  static const auto tables = [] {
    auto made = std::make_shared<Tables>();
    BuildHsiTables(made->table[0].data(), made->table[1].data(), made->table[2].data());
    return made;
  }();
  return tables;
}

// Three reads and three stores a pixel.
void PlainConversion(PeerFrame& f) {
  const auto& tables = *static_cast<const Tables*>(f.state.get());
  f.result.create(f.colour.size(), CV_8UC3);
  for (int y = 0; y < f.colour.rows; ++y) {
    const uint8_t* from = f.colour.ptr(y);
    uint8_t* to = f.result.ptr(y);
    for (int x = 0; x < f.colour.cols; ++x) {
      const uint8_t* p = from + 3 * x;
      const uint32_t i = p[0] + 256u * p[1] + 65536u * p[2];
      for (int k = 0; k < 3; ++k) to[3 * x + k] = tables.table[k][i];
    }
  }
}

std::string SameColours(const Frame& frame, const PeerFrame& peer) {
  return cv::norm(ToMat(frame.colourResult), peer.result, cv::NORM_INF) == 0 ? ""
                                                                             : "colours differ";
}

// A camera's colours: a photograph a channel, shifted against each other.
void DrawColourPhotograph(ColourImage& image) {
  GreyImage grey;
  grey.Create(image.width, image.height);
  DrawPhotograph(grey);
  for (int y = 0; y < image.height; ++y) {
    for (int x = 0; x < image.width; ++x) {
      const int value = grey.rows[y][x];
      image.rows[y][3 * x] = static_cast<uint8_t>(value * 3 / 4);
      image.rows[y][3 * x + 1] = static_cast<uint8_t>(value);
      image.rows[y][3 * x + 2] = static_cast<uint8_t>(255 - value / 2);
    }
  }
}

void AddFlatField() {
  Add({.name = "flat_field",
       .prepare = [](Frame& f) { BuildFlatFieldTable(f.source, 128, {}, nullptr); },
       .ours =
           [](Frame& f) {
             ApplyFlatField(f.kernels, f.source, {0, f.source.width, 0, f.source.height});
           },
       .preparePeer =
           [](PeerFrame& f) {
             f.other = cv::Mat(1, 256, CV_8UC1);
             for (int i = 0; i < 256; ++i) f.other.at<uint8_t>(i) = static_cast<uint8_t>(128 - i);
           },
       .peer = [](PeerFrame& f) { cv::LUT(f.source, f.other, f.result); }});
}

// A barrel over the whole frame.
void PrepareDistortion(Frame& f) {
  std::vector<int32_t> points;
  const int step = f.source.height / 10;
  for (int row = -5; row <= 5; ++row) {
    for (int column = -5; column <= 5; ++column) {
      const double x = column * step, y = row * step;
      const double bend = 1 - 0.05 * (x * x + y * y) / (25.0 * step * step);
      points.push_back(static_cast<int32_t>(std::lround(f.source.width / 2 + x * bend)));
      points.push_back(static_cast<int32_t>(std::lround(f.source.height / 2 + y * bend)));
    }
  }
  const auto pitch = static_cast<float>(step);
  BuildDistortionModel(f.source, points.data(), 121, {pitch, pitch, 1e4f, 1e4f}, nullptr);
  BuildDistortionMap(f.source);
}

void AddDistortion() {
  Add({.name = "undistort",
       .prepare = PrepareDistortion,
       .ours = [](Frame& f) { ApplyDistortionMap(f.kernels, f.source); },
       .preparePeer =
           [](PeerFrame& f) {
             cv::Mat x(f.source.size(), CV_32F), y(f.source.size(), CV_32F), fixed, unused;
             const double cx = f.source.cols / 2.0, cy = f.source.rows / 2.0;
             for (int j = 0; j < x.rows; ++j) {
               for (int i = 0; i < x.cols; ++i) {
                 const double u = (i - cx) / cy, v = (j - cy) / cy;
                 const double bend = 1 - 0.05 * (u * u + v * v);
                 x.at<float>(j, i) = static_cast<float>(cx + (i - cx) * bend);
                 y.at<float>(j, i) = static_cast<float>(cy + (j - cy) * bend);
               }
             }
             cv::convertMaps(x, y, fixed, unused, CV_16SC2, /*nninterpolation=*/true);
             f.other = fixed;
           },
       .peer =
           [](PeerFrame& f) {
             cv::remap(f.source, f.result, f.other, cv::noArray(), cv::INTER_NEAREST);
           }});
}

void AddConversion() {
  for (const bool photograph : {true, false}) {
    Add({.name = photograph ? "colour_tables_photo" : "colour_tables_noise",
         .bytesPerPixel = 6,
         .prepare =
             [=](Frame& f) {
               if (photograph) DrawColourPhotograph(f.colour);
               f.state = HsiTables();
             },
         .ours =
             [](Frame& f) {
               const auto& tables = *static_cast<const Tables*>(f.state.get());
               ConvertByColourTables(f.kernels, f.colour, f.colourResult, tables.table[0].data(),
                                     tables.table[1].data(), tables.table[2].data());
             },
         .preparePeer = [](PeerFrame& f) { f.state = HsiTables(); },
         .peer = PlainConversion,
         .check = SameColours});
  }
  Add({.name = "colour_channel",
       .bytesPerPixel = 4,
       .ours = [](Frame& f) { CopyChannel(f.kernels, f.colour, f.result, 1); },
       .peer = [](PeerFrame& f) { cv::extractChannel(f.colour, f.result, 1); },
       .check = PixelsWithin(0)});
}

template <ColourEntry (*Formula)(int, int, int)>
void PlainTables(PeerFrame& f) {
  auto& tables = *static_cast<Tables*>(f.state.get());
  for (uint32_t i = 0; i < kColours; ++i) {
    const ColourEntry entry = Formula(i & 255, i >> 8 & 255, static_cast<int>(i >> 16));
    for (int k = 0; k < 3; ++k) tables.table[k][i] = entry.channel[k];
  }
}

std::string SameTables(const Frame& frame, const PeerFrame& peer) {
  const auto& ours = *static_cast<const Tables*>(frame.state.get());
  const auto& plain = *static_cast<const Tables*>(peer.state.get());
  return std::ranges::equal(ours.table, plain.table) ? "" : "tables differ";
}

// Beside the double formulas in a plain loop. The size in the name is that of a picture with every
// colour once.
template <ColourEntry (*Formula)(int, int, int), class Build>
void AddTables(const char* name, const Build& build) {
  Add({.name = name,
       .bytesPerPixel = 3,
       .prepare = [](Frame& f) { f.state = std::make_shared<Tables>(); },
       .ours =
           [=](Frame& f) {
             auto& table = static_cast<Tables*>(f.state.get())->table;
             build(f.kernels, table[0].data(), table[1].data(), table[2].data());
           },
       .preparePeer = [](PeerFrame& f) { f.state = std::make_shared<Tables>(); },
       .peer = PlainTables<Formula>,
       .check = SameTables,
       .sizes = {{4096, 4096}}});
}

}  // namespace

void AddCalibration() {
  AddFlatField();
  AddDistortion();
  AddConversion();
  AddTables<HsiOf>("hsi_tables", [](const Kernels&, auto*... table) { BuildHsiTables(table...); });
  AddTables<LabOf>("lab_tables", BuildLabTables);
}

}  // namespace quillon::bench
