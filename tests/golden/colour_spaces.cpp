// Colour spaces: the tables, every entry of them, and what is read through them.
#include "color/colour_reference.h"
#include "golden/golden.h"
#include "quillon/quillon.h"

namespace quillon::test::golden {
namespace {

constexpr size_t kColours = 1 << 24;

using TableBytes = std::vector<uint8_t>;  // three tables, one after another
using MakeTables = uint8_t(uint8_t*, uint8_t*, uint8_t*);
using Formula = void(uint32_t, uint32_t, uint32_t, uint8_t*);

Operation Tables(const std::string& name, MakeTables* make, Formula* formula) {
  return {name,
          [=](const Picture&, Digest& digest) {
            TableBytes tables(3 * kColours);
            make(tables.data(), tables.data() + kColours, tables.data() + 2 * kColours);
            digest.Add(tables.data(), tables.size());
          },
          [=](const Picture&, Digest& digest) {
            TableBytes tables(3 * kColours);
            for (uint32_t i = 0; i < kColours; ++i) {
              uint8_t entry[3];
              formula(i & 255, i >> 8 & 255, i >> 16, entry);
              for (size_t k = 0; k < 3; ++k) tables[k * kColours + i] = entry[k];
            }
            digest.Add(tables.data(), tables.size());
          },
          /*everyPicture=*/false};
}

// Tables without order, so that an entry of a wrong place shows.
uint8_t Entry(size_t table, size_t colour) {
  return static_cast<uint8_t>((colour * 2654435761u + table * 40503u) >> 11);
}

const TableBytes& UnorderedTables() {
  static const TableBytes tables = [] {
    TableBytes bytes(3 * kColours);
    for (size_t k = 0; k < 3; ++k) {
      for (size_t i = 0; i < kColours; ++i) bytes[k * kColours + i] = Entry(k, i);
    }
    return bytes;
  }();
  return tables;
}

using Conversion = uint8_t(const ColourImage*, ColourImage*, const uint8_t*, const uint8_t*,
                           const uint8_t*);

Operation Conversion3(const std::string& name, Conversion* convert) {
  return {name,
          [=](const Picture& picture, Digest& digest) {
            const uint8_t* tables = UnorderedTables().data();
            ColourImage image;
            FillStale(image, picture.colour.width, picture.colour.height);
            digest.Add(
                convert(&picture.colour, &image, tables, tables + kColours, tables + 2 * kColours));
            digest.AddStore(image);
            ColourImage inPlace;
            inPlace.CopyFrom(&picture.colour);
            convert(&inPlace, &inPlace, tables, tables + kColours, tables + 2 * kColours);
            if (!Difference(inPlace, image).empty()) digest.Add("another result in place");
          },
          [=](const Picture& picture, Digest& digest) {
            ColourImage image;
            image.Create(picture.colour.width, picture.colour.height);
            for (int y = 0; y < image.height; ++y) {
              for (int x = 0; x < image.width; ++x) {
                const uint8_t* p = picture.colour.rows[y] + 3 * x;
                for (size_t k = 0; k < 3; ++k) {
                  image.rows[y][3 * x + static_cast<int>(k)] =
                      Entry(k, p[0] + 256u * p[1] + 65536u * p[2]);
                }
              }
            }
            digest.Add(uint8_t{1});
            digest.AddStore(image);
          }};
}

using ChannelExport = uint8_t(const ColourImage*, GreyImage*, int);

Operation Channels(const std::string& name, ChannelExport* get) {
  return {name,
          [=](const Picture& picture, Digest& digest) {
            GreyImage image;
            for (int channel = -1; channel <= 3; ++channel) {
              digest.Add(get(&picture.colour, &image, channel));
              digest.AddStore(image);
            }
          },
          [=](const Picture& picture, Digest& digest) {
            GreyImage image;
            for (int channel = -1; channel <= 3; ++channel) {
              image.Create(picture.colour.width, picture.colour.height);
              for (int y = 0; y < image.height && channel >= 0 && channel < 3; ++y) {
                for (int x = 0; x < image.width; ++x) {
                  image.rows[y][x] = picture.colour.rows[y][3 * x + channel];
                }
              }
              digest.Add(uint8_t{1});
              digest.AddStore(image);
            }
          }};
}

using PointExport = uint8_t(const ColourImage*, int, int, uint8_t*);

Operation Points(const std::string& name, PointExport* get) {
  return {name,
          [=](const Picture& picture, Digest& digest) {
            for (int y = -1; y <= picture.colour.height; ++y) {
              for (int x = -1; x <= picture.colour.width; ++x) {
                uint8_t channels[3] = {1, 2, 3};
                digest.Add(get(&picture.colour, x, y, channels));
                digest.AddAll(channels);
              }
            }
          },
          [=](const Picture& picture, Digest& digest) {
            const ColourImage& image = picture.colour;
            for (int y = -1; y <= image.height; ++y) {
              for (int x = -1; x <= image.width; ++x) {
                const bool inside = x >= 0 && y >= 0 && x < image.width && y < image.height;
                const uint8_t outside[3] = {1, 2, 3};
                digest.Add(static_cast<uint8_t>(inside));
                digest.Add(inside ? image.rows[y] + 3 * x : outside, 3);
              }
            }
          }};
}

}  // namespace

void AddColourSpaces(std::vector<Operation>& all) {
  all.push_back(Tables("IxCreateCToHSI", IxCreateCToHSI, reference::Hsi));
  all.push_back(Tables("IxCreateCToLab", IxCreateCToLab, reference::Lab));
  all.push_back(Conversion3("IxColorToHSI", IxColorToHSI));
  all.push_back(Conversion3("IxColorToLab", IxColorToLab));
  all.push_back(Channels("IxGetHSI", IxGetHSI));
  all.push_back(Channels("IxGetCIELab", IxGetCIELab));
  all.push_back(Points("IxGetHSIPoint", IxGetHSIPoint));
  all.push_back(Points("IxGetCIELabPoint", IxGetCIELabPoint));
}

}  // namespace quillon::test::golden
