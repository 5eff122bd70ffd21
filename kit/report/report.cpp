#include "kit/report/report.h"

#include <algorithm>
#include <map>

#include "kit/errors.h"
#include "kit/files/files.h"
#include "kit/report/page.h"
#include "kit/report/page_parts.h"
#include "kit/report/picture_file.h"

namespace quillon::kit {
namespace {

constexpr size_t kMostBytes = 12 * 1024 * 1024;  // of all pictures of a page
constexpr int kStripWidth = 110, kStripHeight = 64;

std::string Base64(std::span<const unsigned char> bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t left = std::min<size_t>(3, bytes.size() - i);
    unsigned group = bytes[i] << 16;
    if (left > 1) group |= bytes[i + 1] << 8;
    if (left > 2) group |= bytes[i + 2];
    for (size_t digit = 0; digit < 4; ++digit) {
      text += digit <= left ? kDigits[group >> (18 - 6 * digit) & 63] : '=';
    }
  }
  return text;
}

std::string DataUrl(const char* type, std::span<const unsigned char> bytes) {
  return std::string("data:") + type + ";base64," + Base64(bytes);
}

// A coordinate, to a hundredth of a pixel.
std::string Number(double value) {
  std::string text = Text(value, 2);
  if (text.empty()) return "0";  // not finite: nowhere to draw it
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text;
}

const char* ClassOf(Tone tone) {
  switch (tone) {
    case Tone::kCyan:
      return "cyan";
    case Tone::kAmber:
      return "amber";
    case Tone::kMagenta:
      return "magenta";
    case Tone::kGreen:
      return "green";
    case Tone::kRed:
      return "red";
    case Tone::kWhite:
      return "white";
  }
  return "";
}

// [layer, row, kind, x, y ..., text], as viewer.js reads it.
std::string AsJson(const Drawing& drawing) {
  std::string json = "[" + std::to_string(drawing.mark.layer) + "," +
                     std::to_string(drawing.mark.row) + "," +
                     std::to_string(static_cast<int>(drawing.kind));
  for (const Point& point : drawing.points) {
    json += "," + Number(point.x) + "," + Number(point.y);
  }
  if (drawing.kind == Drawing::Kind::kLabel) json += "," + ScriptText(drawing.text);
  return json + "]";
}

// Writes the page's body from top to bottom.
class Page {
 public:
  Page(const Report& report, const Findings& findings) : report_(report), findings_(findings) {
    size_t different = 0;
    for (size_t i = 0; i < report_.pictures.size(); ++i) {
      size_t first = 0;
      while (!report_.pictures[first].HasPixelsOf(report_.pictures[i])) ++first;
      likes_.push_back(first);
      different += first == i;
    }
    share_ = kMostBytes / std::max<size_t>(1, different);
  }

  std::string Body() {
    html_ += "<header>\n<h1>" + Escaped(report_.title) + "</h1>\n" + report_.lead;
    Facts();
    // One picture, or one at a time, has the table beside it; several have it below.
    const bool isBeside = report_.pictures.size() == 1 || IsOfSteps();
    html_ += isBeside ? "</header>\n<main class='beside'>\n" : "</header>\n<main>\n";
    Pictures();
    Rows();
    html_ += "</main>\n<noscript>Drawings, tables and magnification need JavaScript.</noscript>\n";
    Data();
    return std::move(html_);
  }

 private:
  bool IsOfSteps() const { return report_.step >= 0; }

  void Facts() {
    constexpr int kFactDecimals = 2;
    html_ += "<dl>\n";
    for (const Fact& fact : findings_.facts) {
      if (fact.heading.empty()) continue;
      html_ += "<div><dt>" + Escaped(fact.heading) + "</dt><dd>" +
               Escaped(Text(fact.value, kFactDecimals)) + "</dd></div>\n";
    }
    html_ += "</dl>\n";
  }

  void Pictures() {
    if (report_.pictures.empty()) return;
    html_ += "<section class='pictures' aria-label='Pictures'>\n";
    if (IsOfSteps() && report_.pictures.size() > 1) Strip();
    Toolbar();
    html_ += "<div class='side'>\n";
    for (size_t i = 0; i < report_.pictures.size(); ++i) Show(i);
    html_ += "</div>\n</section>\n";
  }

  // A button for each step.
  void Strip() {
    std::map<size_t, std::string> thumbnails;
    html_ += "<nav class='strip' aria-label='Steps'>\n";
    for (size_t i = 0; i < report_.pictures.size(); ++i) {
      std::string& url = thumbnails[likes_[i]];
      if (url.empty()) {
        url = DataUrl("image/jpeg", Thumbnail(report_.pictures[i], kStripWidth, kStripHeight));
      }
      html_ += report_.pictures[i].Fault().empty() ? "<button type='button'>"
                                                   : "<button type='button' class='failed'>";
      html_ += "<img alt='' src='" + url + "'><span>" + Escaped(report_.pictures[i].Caption()) +
               "</span></button>\n";
    }
    html_ += "</nav>\n";
  }

  // The legend, whose entries switch layers, and the magnifications.
  void Toolbar() {
    html_ += "<div class='toolbar'>\n";
    for (size_t i = 0; i < report_.layers.size(); ++i) {
      const Layer& layer = report_.layers[i];
      html_ += "<label class='" + std::string(ClassOf(layer.tone)) +
               "'><input type='checkbox' data-layer='" + std::to_string(i) + "'" +
               (layer.shown ? " checked" : "") + "><i></i>" + Escaped(layer.name) + "</label>\n";
    }
    const auto hasGround = [](const Picture& picture) { return picture.Ground() >= 0; };
    if (std::any_of(report_.pictures.begin(), report_.pictures.end(), hasGround)) {
      html_ +=
          "<label class='ground'><input type='checkbox' data-ground><i></i>Image "
          "behind</label>\n";
    }
    html_ +=
        "<span class='zoom' title='Wheel or drag to zoom; keys + - 0 and arrows'><output></output>"
        "<button type='button' data-zoom='fit'>Fit</button>"
        "<button type='button' data-zoom='1' aria-label='Pixel by pixel'>1:1</button>"
        "<button type='button' data-zoom='0.5' aria-label='Smaller'>&minus;</button>"
        "<button type='button' data-zoom='2' aria-label='Larger'>+</button></span>\n</div>\n";
  }

  void Show(size_t number) {
    const Picture& picture = report_.pictures[number];
    // The strip has the captions of steps.
    std::string caption = IsOfSteps() ? "" : picture.Caption(), source;
    if (likes_[number] == number) {
      const PictureFile file = Pack(picture, share_);
      source = " src='" + DataUrl(file.type, file.bytes) + "'";
      if (file.reduction > 1) {
        notes_[number] = "shown at 1:" + std::to_string(file.reduction);
      } else if (file.type == std::string_view("image/jpeg")) {
        notes_[number] = "shown compressed";
      }
    }
    const std::string& note = notes_[likes_[number]];
    if (!note.empty()) caption += (caption.empty() ? "" : ", ") + note;
    html_ +=
        "<figure data-picture><div class='frame' style='--w:" + std::to_string(picture.Width()) +
        ";--h:" + std::to_string(picture.Height()) + "'><img alt='" + Escaped(picture.Caption()) +
        "'" + source + "></div>";
    if (!caption.empty()) html_ += "<figcaption>" + Escaped(caption) + "</figcaption>";
    if (!picture.Fault().empty()) {
      html_ += "<figcaption class='failed'>" + Escaped(picture.Fault()) + "</figcaption>";
    }
    html_ += "</figure>\n";
  }

  void Rows() {
    if (findings_.columns.empty()) return;
    const size_t count = findings_.rows.size();
    html_ += "<section class='rows' aria-label='Rows'><div class='tools'><b>" +
             std::to_string(count) + (count == 1 ? " row" : " rows") +
             "</b></div><div class='table'></div></section>\n";
    html_ += CsvElement(findings_);
  }

  void Data() {
    std::string pictures;
    for (size_t i = 0; i < report_.pictures.size(); ++i) {
      const Picture& picture = report_.pictures[i];
      std::string drawings;
      for (const Drawing& drawing : picture.Drawings()) {
        drawings += (drawings.empty() ? "" : ",") + AsJson(drawing);
      }
      pictures += (i ? ",\n" : "") + ("{\"width\":" + std::to_string(picture.Width())) +
                  ",\"height\":" + std::to_string(picture.Height());
      if (likes_[i] != i) pictures += ",\"like\":" + std::to_string(likes_[i]);
      if (picture.Ground() >= 0) pictures += ",\"ground\":" + std::to_string(picture.Ground());
      pictures += ",\"drawings\":[" + drawings + "]}";
    }
    html_ += DataElement("{\"first\":" + std::to_string(std::max(0, report_.step)) +
                         ",\"columns\":" + ColumnsAsJson(findings_) + ",\n\"pictures\":[" +
                         pictures + "]}");
  }

  const Report& report_;
  const Findings& findings_;
  std::vector<size_t> likes_;            // the first picture of the same pixels
  size_t share_;                         // bytes that a picture may take
  std::map<size_t, std::string> notes_;  // how pictures are shown, where that is not exact
  std::string html_;
};

}  // namespace

std::string RenderReport(const Report& report, const Findings& findings) try {
  return WithinMemory("a page of pictures", [&] {
    return Render({.title = report.title,
                   .body = Page(report, findings).Body(),
                   .style = kReportStyle,
                   .script = std::string(kViewerScript) + kTableScript + kReportScript});
  });
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a page");
}

void WriteReport(const std::string& path, const Report& report, const Findings& findings) try {
  WithinMemory("page '" + path + "'", [&] { WriteFile(path, RenderReport(report, findings)); });
} catch (const std::bad_alloc&) {
  throw OutOfMemory("a page");
}

}  // namespace quillon::kit
