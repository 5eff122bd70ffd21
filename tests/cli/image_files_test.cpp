// Image files of every kind, made here byte by byte: what they become, and why others are refused.
#include <gtest/gtest.h>

#include <algorithm>

#include "cli/host.h"
#include "kit/errors.h"
#include "kit/images/image_files.h"
#include "support/images.h"

namespace quillon::test {
namespace {

using std::string;

// Numbers of several bytes, the least or the greatest byte first.
string Little(uint64_t value, int bytes) {
  string text;
  for (; bytes > 0; --bytes, value >>= 8) text += static_cast<char>(value & 255);
  return text;
}
string Big(uint64_t value, int bytes) {
  const string text = Little(value, bytes);
  return {text.rbegin(), text.rend()};
}
string FromBytes(std::initializer_list<int> bytes) {
  string text;
  for (const int byte : bytes) text += static_cast<char>(byte);
  return text;
}

uint32_t Crc(const string& bytes) {
  uint32_t crc = ~0u;
  for (const unsigned char byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320 : 0);
  }
  return ~crc;
}

// One stored block.
string Zlib(const string& bytes) {
  uint32_t first = 1, second = 0;
  for (const unsigned char byte : bytes) {
    first = (first + byte) % 65521;
    second = (second + first) % 65521;
  }
  const auto size = static_cast<uint32_t>(bytes.size());
  return FromBytes({0x78, 1, 1}) + Little(size, 2) + Little(~size, 2) + bytes +
         Big(second << 16 | first, 4);
}

// One block of the fixed codes: a zero, then `runs` times 258 more, without the sum.
string ZlibOfZeros(int runs) {
  string bits = "11000110000";  // the last block, by the fixed codes; a zero
  for (int i = 0; i < runs; ++i) bits += "1100010100000";
  bits += "0000000";
  string bytes = "\x78\x01" + string(bits.size() / 8 + 1, '\0');
  for (size_t i = 0; i < bits.size(); ++i) {
    if (bits[i] == '1') bytes[2 + i / 8] = static_cast<char>(bytes[2 + i / 8] | 1 << i % 8);
  }
  return bytes;
}

string Chunk(const string& name, const string& content) {
  return Big(content.size(), 4) + name + content + Big(Crc(name + content), 4);
}

// The rows with their filter bytes; `before` comes between the header and the data.
string Png(int width, int height, int depth, int colour, const string& rows,
           const string& before = "") {
  return "\x89PNG\r\n\x1A\n" +
         Chunk("IHDR", Big(width, 4) + Big(height, 4) + FromBytes({depth, colour, 0, 0, 0})) +
         before + Chunk("IDAT", Zlib(rows)) + Chunk("IEND", "");
}

struct Field {
  int tag;
  std::vector<uint32_t> values;  // of 32 bits
};

// A TIFF file whose directory comes first, then what its fields point to, then its parts.
string Tiff(std::vector<Field> fields, const std::vector<string>& parts, bool isLittle = true) {
  const auto number = [&](uint64_t value, int bytes) {
    return isLittle ? Little(value, bytes) : Big(value, bytes);
  };
  const bool areTiles = std::any_of(fields.begin(), fields.end(),
                                    [](const Field& field) { return field.tag == 322; });
  size_t at = 8 + 2 + 12 * (fields.size() + 2) + 4;
  size_t data = at + (parts.size() > 1 ? 8 * parts.size() : 0);
  for (const Field& field : fields) {
    if (field.values.size() > 1) data += 4 * field.values.size();
  }
  Field offsets = {areTiles ? 324 : 273, {}}, sizes = {areTiles ? 325 : 279, {}};
  string content;
  for (const string& part : parts) {
    offsets.values.push_back(static_cast<uint32_t>(data + content.size()));
    sizes.values.push_back(static_cast<uint32_t>(part.size()));
    content += part;
  }
  fields.insert(fields.end(), {offsets, sizes});
  string entries, lists;
  for (const Field& field : fields) {
    entries +=
        number(static_cast<uint64_t>(field.tag), 2) + number(4, 2) + number(field.values.size(), 4);
    entries += number(field.values.size() == 1 ? field.values[0] : at + lists.size(), 4);
    if (field.values.size() == 1) continue;
    for (const uint32_t value : field.values) lists += number(value, 4);
  }
  return (isLittle ? "II" : "MM") + number(42, 2) + number(8, 4) + number(fields.size(), 2) +
         entries + number(0, 4) + lists + content;
}

std::vector<Field> Grey(uint32_t width, uint32_t height, uint32_t bits, uint32_t compression) {
  return {{256, {width}}, {257, {height}}, {258, {bits}}, {259, {compression}}, {262, {1}}};
}

std::vector<Field> With(std::vector<Field> fields, std::initializer_list<Field> more) {
  for (const Field& field : more) {
    std::erase_if(fields, [&](const Field& old) { return old.tag == field.tag; });
    fields.push_back(field);
  }
  return fields;
}

string Bmp(int width, int height, int bits, int compression, const string& after) {
  const bool hasTable = bits <= 8;
  return "BM" + Little(0, 8) + Little(hasTable ? 62 : 54, 4) + Little(40, 4) +
         Little(static_cast<uint32_t>(width), 4) + Little(static_cast<uint32_t>(height), 4) +
         Little(1, 2) + Little(bits, 2) + Little(compression, 4) + Little(0, 12) +
         Little(hasTable ? 2 : 0, 8) + after;
}

string Jpeg(int width, int height) {
  ColourImage image;
  Fill(image, width, height, Content::kNoise);
  const auto bytes = kit::EncodeJpeg(image);
  return {bytes.begin(), bytes.end()};
}

std::span<const unsigned char> BytesOf(const string& file) {
  return {reinterpret_cast<const unsigned char*>(file.data()), file.size()};
}

// Rows of grey values, or of blue,green,red; then the notes.
string Decode(const string& file, const kit::Reading& how = {}) {
  GreyImage grey;
  ColourImage colour;
  string text, notes;
  kit::Reading reading = how;
  reading.note = [&](const string& note) { notes += "\n" + note; };
  try {
    kit::DecodeImage(BytesOf(file), "FILE", grey, colour, reading);
  } catch (const kit::Failure& failure) {
    return failure.what();
  }
  for (int y = 0; y < grey.height; ++y) {
    if (y > 0) text += " / ";
    for (int x = 0; x < grey.width; ++x) {
      if (x > 0) text += ' ';
      if (!colour.bits) {
        text += std::to_string(grey.rows[y][x]);
        continue;
      }
      const uint8_t* pixel = colour.rows[y] + 3 * x;
      text += std::to_string(pixel[0]) + "," + std::to_string(pixel[1]) + "," +
              std::to_string(pixel[2]);
    }
  }
  return text + notes;
}

struct Case {
  const char* name;
  string file;
  string expected;  // pixels and notes, or a part of the message
  kit::Reading reading = {};
};

const char* const kRange =
    "\nimage 'FILE': 16-bit samples were scaled from 0 to 65535; the greatest is ";
const char* const kNobodySays = ", and nothing says how many bits are used (--depth does)";
const char* const kOnBlack = "\nimage 'FILE': what is transparent was laid on black";

TEST(ImageFiles, BecomeTheirPixels) {
  const string wide = Big(0, 2) + Big(819, 2) + Big(4095, 2);
  const string fiveBits = Little(0x7C00, 2) + Little(0x03E0, 2) + Little(0x0015, 2) + Little(0, 2);
  const string masks = Little(0xFF0000, 4) + Little(0xFF00, 4) + Little(0xFF, 4);
  const kit::Reading twelve = {.depth = 12};
  const auto grey6 = [](int orientation) {
    return With(Grey(3, 2, 8, 1), {{274, {static_cast<uint32_t>(orientation)}}});
  };
  const string six = FromBytes({1, 2, 3, 4, 5, 6});
  const string twoGreys = Bmp(3, 1, 1, 0, FromBytes({9, 9, 9, 0, 200, 200, 200, 0, 0x40, 0, 0, 0}));
  string tooManyColours = twoGreys;
  tooManyColours[46] = 90;  // of which the file holds two, and a pixel names no other
  const string noted = kRange + string("4095") + kNobodySays;
  const Case cases[] = {
      {"PGM in bytes", "P5 3 1 255\n" + FromBytes({1, 128, 255}), "1 128 255"},
      {"PGM of 16 greys", "P5\n# by hand\n3 1\n15\n" + FromBytes({0, 5, 15}), "0 85 255"},
      {"PGM of 12 bits", "P5 3 1 4095\n" + wide, "0 51 255"},
      {"PGM of 16 bits", "P5 3 1 65535\n" + Big(0, 2) + Big(257, 2) + Big(65535, 2), "0 1 255"},
      {"PGM of 16 bits, 12 used", "P5 3 1 65535\n" + wide, "0 51 255", twelve},
      {"PGM in digits", "P2 2 2 100\n0 50\n#half\n100 1", "0 128 / 255 3"},
      {"PPM in bytes", "P6 1 1 255\n" + FromBytes({3, 2, 1}), "1,2,3"},
      {"PPM in digits", "P3 1 1 65535 65535 257 0 ", "0,1,255"},

      {"PNG of one bit", Png(3, 1, 1, 0, FromBytes({0, 0xA0})), "255 0 255"},
      {"PNG of 16 bits", Png(3, 1, 16, 0, FromBytes({0}) + wide), "0 3 16" + noted},
      {"PNG of 16 bits, 12 used", Png(3, 1, 16, 0, FromBytes({0}) + wide), "0 51 255", twelve},
      {"PNG that says 12 bits and leaves them below",
       Png(3, 1, 16, 0, FromBytes({0}) + wide, Chunk("sBIT", FromBytes({12}))), "0 51 255"},
      {"PNG that says 12 bits and fills up",
       Png(3, 1, 16, 0, FromBytes({0}) + Big(0, 2) + Big(0x3333, 2) + Big(0xFFFF, 2),
           Chunk("sBIT", FromBytes({12}))),
       "0 51 255"},
      {"PNG with transparency", Png(2, 1, 8, 4, FromBytes({0, 200, 255, 200, 51})),
       "200 40" + string(kOnBlack)},
      {"PNG all opaque", Png(2, 1, 8, 6, FromBytes({0, 1, 2, 3, 255, 4, 5, 6, 255})),
       "3,2,1 6,5,4"},
      {"PNG with one transparent grey",
       Png(2, 1, 8, 0, FromBytes({0, 7, 9}), Chunk("tRNS", Big(7, 2))), "0 9" + string(kOnBlack)},
      {"PNG with a table of colours",
       Png(2, 1, 8, 3, FromBytes({0, 1, 0}), Chunk("PLTE", FromBytes({9, 9, 9, 1, 2, 3}))),
       "3,2,1 9,9,9"},
      {"PNG with a table of greys",
       Png(2, 1, 8, 3, FromBytes({0, 1, 0}), Chunk("PLTE", FromBytes({9, 9, 9, 200, 200, 200}))),
       "200 9"},
      {"PNG with a table of greys, one transparent",
       Png(2, 1, 8, 3, FromBytes({0, 1, 0}),
           Chunk("PLTE", FromBytes({9, 9, 9, 200, 200, 200})) + Chunk("tRNS", FromBytes({0}))),
       "200 0" + string(kOnBlack)},
      {"PNG in colours with a table of greys beside",
       Png(1, 1, 8, 2, FromBytes({0, 1, 2, 3}), Chunk("PLTE", FromBytes({9, 9, 9}))), "3,2,1"},
      {"PNG turned by EXIF",
       Png(2, 1, 8, 0, FromBytes({0, 7, 9}), Chunk("eXIf", Tiff({{274, {6}}}, {}))), "7 / 9"},

      {"BMP from the bottom", Bmp(1, 2, 24, 0, FromBytes({1, 2, 3, 0, 4, 5, 6, 0})),
       "4,5,6 / 1,2,3"},
      {"BMP from the top", Bmp(1, -2, 24, 0, FromBytes({1, 2, 3, 0, 4, 5, 6, 0})), "1,2,3 / 4,5,6"},
      {"BMP of two colours", Bmp(3, 1, 1, 0, FromBytes({0, 0, 0, 0, 9, 8, 7, 0, 0x40, 0, 0, 0})),
       "0,0,0 9,8,7 0,0,0"},
      {"BMP of two greys", twoGreys, "9 200 9"},
      {"BMP that promises more colours than a pixel can name", tooManyColours, "9 200 9"},
      {"BMP of bytes, its table in disorder",
       Bmp(2, 1, 8, 0, FromBytes({77, 77, 77, 0, 5, 5, 5, 0, 1, 0, 0, 0})), "5 77"},
      {"BMP of 15 bits", Bmp(3, 1, 16, 0, fiveBits), "0,0,255 0,255,0 173,0,0"},
      {"BMP of 32 bits, the fourth byte unused", Bmp(1, 1, 32, 0, FromBytes({1, 2, 3, 77})),
       "1,2,3"},

      {"TIFF of 8 bits", Tiff(Grey(3, 2, 8, 1), {six}), "1 2 3 / 4 5 6"},
      {"TIFF in two strips", Tiff(With(Grey(3, 2, 8, 1), {{278, {1}}}), {"\1\2\3", "\4\5\6"}),
       "1 2 3 / 4 5 6"},
      {"TIFF in tiles",
       Tiff(With(Grey(3, 2, 8, 1), {{322, {2}}, {323, {2}}}), {"\1\2\4\5", "\3\x9\6\x9"}),
       "1 2 3 / 4 5 6"},
      {"TIFF of 16 bits, greatest byte first", Tiff(Grey(3, 1, 16, 1), {wide}, false),
       "0 3 16" + noted},
      {"TIFF of 16 bits that says 12",
       Tiff(With(Grey(3, 1, 16, 1), {{281, {4095}}}), {wide}, false), "0 51 255"},
      {"TIFF of 16 bits in differences",
       Tiff(With(Grey(3, 1, 16, 1), {{317, {2}}}),
            {Little(0, 2) + Little(819, 2) + Little(4095 - 819, 2)}),
       "0 51 255", twelve},
      {"TIFF of 12 bits", Tiff(Grey(3, 1, 12, 1), {FromBytes({0, 0x03, 0x33, 0xFF, 0xF0})}),
       "0 51 255"},
      {"TIFF of one bit, 0 is white", Tiff(With(Grey(3, 1, 1, 1), {{262, {0}}}), {"\xA0"}),
       "0 255 0"},
      {"TIFF with a table of colours",
       Tiff(With(Grey(2, 1, 1, 1), {{262, {3}}, {320, {0, 0x0300, 0, 0x0200, 0x0500, 0x0100}}}),
            {"\x40"}),
       "5,0,0 1,2,3"},
      {"TIFF with a table of greys",
       Tiff(With(Grey(2, 1, 1, 1),
                 {{262, {3}}, {320, {0x0900, 0x7700, 0x0900, 0x7700, 0x0900, 0x7700}}}),
            {"\x40"}),
       "9 119"},
      {"TIFF in planes",
       Tiff(With(Grey(1, 1, 8, 1), {{262, {2}}, {277, {3}}, {284, {2}}}), {"\3", "\2", "\1"}),
       "1,2,3"},
      {"TIFF with transparency",
       Tiff(With(Grey(1, 1, 8, 1), {{277, {2}}, {338, {2}}}), {FromBytes({200, 51})}),
       "40" + string(kOnBlack)},
      {"TIFF by PackBits", Tiff(Grey(3, 2, 8, 32773), {FromBytes({0xFE, 7, 0x80, 2, 1, 2, 3})}),
       "7 7 7 / 1 2 3"},
      {"TIFF by LZW",  // clear, 7, 258 (7 7), 1, 2, 3, end
       Tiff(Grey(3, 2, 8, 5), {FromBytes({0x80, 0x01, 0xE0, 0x40, 0x10, 0x10, 0x0E, 0x02})}),
       "7 7 7 / 1 2 3"},
      {"TIFF by Deflate", Tiff(Grey(3, 2, 8, 8), {Zlib(six)}), "1 2 3 / 4 5 6"},
      {"turned 2", Tiff(grey6(2), {six}), "3 2 1 / 6 5 4"},
      {"turned 3", Tiff(grey6(3), {six}), "6 5 4 / 3 2 1"},
      {"turned 4", Tiff(grey6(4), {six}), "4 5 6 / 1 2 3"},
      {"turned 5", Tiff(grey6(5), {six}), "1 4 / 2 5 / 3 6"},
      {"turned 6", Tiff(grey6(6), {six}), "4 1 / 5 2 / 6 3"},
      {"turned 7", Tiff(grey6(7), {six}), "6 3 / 5 2 / 4 1"},
      {"turned 8", Tiff(grey6(8), {six}), "3 6 / 2 5 / 1 4"},
  };
  for (const Case& c : cases) EXPECT_EQ(Decode(c.file, c.reading), c.expected) << c.name;

  const string upright = Jpeg(24, 9), exif = "Exif" + string(2, '\0') + Tiff({{274, {6}}}, {});
  const string turned =
      upright.substr(0, 2) + "\xFF\xE1" + Big(exif.size() + 2, 2) + exif + upright.substr(2);
  ColourImage a, b;
  GreyImage grey;
  kit::DecodeImage(BytesOf(upright), "upright", grey, a);
  kit::DecodeImage(BytesOf(turned), "turned", grey, b);
  ASSERT_EQ(b.width, 9);
  ASSERT_EQ(b.height, 24);
  for (int y = 0; y < b.height; ++y) {
    for (int x = 0; x < 3 * b.width; ++x) {
      EXPECT_EQ(b.rows[y][x], a.rows[a.height - 1 - x / 3][3 * y + x % 3]) << x << ", " << y;
    }
  }
}

TEST(ImageFiles, AreRefusedByName) {
  const string head = "cannot read image 'FILE': ";
  const string jpeg = Jpeg(16, 16);
  const string rows = string(5, '\0');
  const kit::Reading twelve = {.depth = 12}, few = {.maxPixels = 3};
  const Case cases[] = {
      {"nothing", "", "it is empty"},
      {"a text", "hello", "it begins like none of PNG, JPEG, TIFF, BMP, PGM, PPM"},
      {"more pixels than wanted", "P5 2 2 255\nabcd", "its 2 x 2 pixels are more than the 3", few},
      {"PGM of impossible sizes", "P5 2999999990 4 255\nx", "its size of 2147483647 x 4 is not"},
      {"PGM beyond the sizes", "P5 32768 1 255\nx", "its size of 32768 x 1 is not within 1 x 1"},
      {"PGM of no rows", "P5 7 0 255\nx", "its size of 7 x 0"},
      {"PGM without a maximum", "P5 2 2", "its maximum is missing"},
      {"PGM of too great a maximum", "P5 1 1 65536\nx", "its maximum is 65536, beyond 65535"},
      {"PGM beyond its maximum", "P5 1 1 15\n\x10", "a sample is 16, beyond the 15 of the file"},
      {"PGM in digits beyond it", "P2 1 1 15 16", "a sample is 16, beyond 15"},
      {"PGM beyond --depth", "P5 1 1 65535\n\x10\1",
       "a sample is 4097, beyond the 4095 of --depth 12", twelve},
      {"PGM in digits that ends", "P2 2 1 255   1   ", "it ends after 1 of 2 samples"},
      {"a header that promises too much",
       "P5 30000 30000 255\nx",
       "it ends too early: its header promises 30000 x 30000 pixels, more than its 20 bytes",
       {.maxPixels = 32767 * 32767}},
      {"PNG that promises too much", Png(9000, 9000, 8, 0, rows),
       "more than its 73 bytes can hold"},
      {"PNG without enough rows", Png(4, 2, 8, 0, rows), "not enough pixels"},
      {"PNG of a small size and a large content",
       Png(1, 1, 8, 0, "", Chunk("IDAT", ZlibOfZeros(160'000))),
       "its data unpack to more than its header promises"},
      {"BMP that promises too much", Bmp(9000, 9000, 24, 0, rows), "9000 x 9000 pixels"},
      {"BMP of runs", Bmp(1, 1, 8, 1, rows), "it is compressed by run lengths"},
      {"BMP of a missing colour", Bmp(1, 1, 4, 0, string(8, '\0') + FromBytes({0x90, 0, 0, 0})),
       "a pixel names colour 9 of a table of 2"},
      {"TIFF by fax", Tiff(Grey(1, 1, 1, 4), {"x"}), "its compression 4 (fax) is not read"},
      {"TIFF by JPEG", Tiff(Grey(1, 1, 8, 7), {"x"}), "its compression 7 (JPEG) is not read"},
      {"TIFF of real numbers", Tiff(With(Grey(1, 1, 16, 1), {{339, {3}}}), {"xx"}),
       "its samples are no whole numbers from 0"},
      {"TIFF that lists too little", Tiff(With(Grey(1, 2, 8, 1), {{278, {1}}}), {"x"}),
       "it lists 1 of 2 parts"},
      {"TIFF that promises too much", Tiff(Grey(9000, 9000, 8, 8), {Zlib(rows)}),
       "9000 x 9000 pixels"},
      {"TIFF of damaged codes", Tiff(Grey(3, 2, 8, 5), {FromBytes({0x80, 0x01, 0xFF, 0xFF})}),
       "its LZW data are damaged"},
      {"TIFF of a short strip", Tiff(Grey(3, 2, 8, 32773), {FromBytes({0xFE, 7})}),
       "a part of it ends after 3 of 6 bytes"},
      {"JPEG without its end", jpeg.substr(0, jpeg.size() - 2), "within its coded data"},
      {"JPEG with a piece too many", jpeg.substr(0, jpeg.size() - 2) + "\xFF\xD0\xFF\xD9",
       "its coded data have 2 of 1 pieces"},
      {"JPEG without a picture", "\xFF\xD8\xFF\xD9", "before all of its colours are coded"},
  };
  for (const Case& c : cases) {
    const string answer = Decode(c.file, c.reading);
    EXPECT_EQ(answer.substr(0, head.size()), head) << c.name;
    EXPECT_NE(answer.find(c.expected), string::npos) << c.name << ": " << answer;
  }
  string scans = jpeg.substr(0, jpeg.size() - 2);
  const size_t scan = scans.find("\xFF\xDA");
  for (int i = 0; i < 100; ++i) scans += jpeg.substr(scan, jpeg.size() - 2 - scan);
  EXPECT_NE(Decode(scans + "\xFF\xD9").find("it has more than 100 scans"), string::npos);
  // A table of 16 x 255 codes where 256 have room: a decoder wrote them over whatever followed.
  for (char table : {'\x00', '\x03', '\x10', '\x13'}) {
    const string codes = string(16, '\xFF') + string(16 * 255, 'x');
    EXPECT_NE(
        Decode("\xFF\xD8\xFF\xC4\x10\x03" + string(1, table) + codes + jpeg.substr(2)).find(head),
        string::npos);
  }
}

// A file cut anywhere is refused; so is a JPEG that lacks bytes before its end, and a PNG of which
// any byte changed.
TEST(ImageFiles, AreReadWholeOrNotAtAll) {
  const string pixels = FromBytes({0, 1, 2, 3, 0, 4, 5, 6});
  const string png = Png(3, 2, 8, 0, pixels, Chunk("sBIT", "\x8"));
  const Case cases[] = {
      {"PGM", "P5 3 2 255\n" + string(6, 'x'), ""},
      {"PPM of 16 bits", "P6 3 2 999\n" + string(36, '\1'), ""},
      {"PNG", png, ""},
      {"BMP", Bmp(3, 2, 32, 0, string(24, 'x')), ""},
      {"JPEG", Jpeg(19, 11), ""},
      {"TIFF", Tiff(Grey(3, 2, 8, 1), {"abcdef"}), ""},
      {"TIFF by Deflate", Tiff(Grey(3, 2, 8, 8), {Zlib("abcdef")}), ""},
  };
  const string head = "cannot read image 'FILE': ";
  for (const Case& c : cases) {
    EXPECT_EQ(Decode(c.file).find(head), string::npos) << c.name << ": " << Decode(c.file);
    for (size_t size = 0; size < c.file.size(); ++size) {
      EXPECT_EQ(Decode(c.file.substr(0, size)).find(head), 0u) << c.name << " cut to " << size;
    }
  }
  const string jpeg = Jpeg(33, 20), end = "\xFF\xD9";
  for (size_t missing = 1; missing < 300; ++missing) {
    EXPECT_EQ(Decode(jpeg.substr(0, jpeg.size() - 2 - missing) + end).find(head), 0u) << missing;
  }
  for (size_t at = 0; at < png.size(); ++at) {
    string changed = png;
    changed[at] = static_cast<char>(changed[at] ^ 4);
    EXPECT_EQ(Decode(changed).find(head), 0u) << "byte " << at;
  }
}

TEST(ImageFiles, CommandsSayWhatWasDecided) {
  const Scratch scratch;
  const string in = scratch / "wide.pgm", out = scratch / "out.png";
  WriteText(in, "P5 2 1 65535\n" + Big(819, 2) + Big(4095, 2));
  const Answer first = Quillon({"gray", in, out, "--depth", "12"});
  EXPECT_EQ(first.exitCode, 0) << first.err;
  EXPECT_EQ(first.err, "");
  GreyImage image;
  kit::ReadImage(out, image);
  EXPECT_EQ(image.rows[0][0], 51);
  EXPECT_EQ(image.rows[0][1], 255);
  WriteText(in, Png(1, 1, 16, 0, FromBytes({0}) + Big(4095, 2)));
  const Answer second = Quillon({"gray", in, out});
  EXPECT_EQ(second.exitCode, 0);
  EXPECT_EQ(second.err.find("quillon: note: image '" + in + "': 16-bit samples"), 0u) << second.err;
  EXPECT_EQ(Quillon({"gray", in, out, "--max-pixels", "0"}).exitCode, 2);
}

}  // namespace
}  // namespace quillon::test
