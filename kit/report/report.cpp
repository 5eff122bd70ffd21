#include "kit/report/report.h"

#include <algorithm>
#include <cmath>

#include "kit/files/files.h"
#include "kit/report/page_parts.h"
#include "kit/text/text.h"

namespace quillon::kit {

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : Visible(text)) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

namespace {

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

// A coordinate, to a hundredth of a pixel.
std::string Number(double value) {
  std::string text = Text(value, 2);
  if (text.empty()) return "0";  // not finite: nowhere to draw it
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text;
}

std::string Attribute(std::string_view name, double value) {
  return " " + std::string(name) + "='" + Number(value) + "'";
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

// Writes the page from top to bottom.
class Page {
 public:
  Page(const Report& report, const Findings& findings) : report_(report), findings_(findings) {}

  std::string Render() {
    html_ +=
        "<!DOCTYPE html>\n<html lang='en'>\n<head>\n<meta charset='utf-8'>\n"
        "<meta name='viewport' content='width=device-width, initial-scale=1'>\n"
        "<meta name='generator' content='quillon " QUILLON_VERSION "'>\n<title>";
    html_ += Escaped(report_.title) + "</title>\n<style>\n" + kPageStyle + "</style>\n</head>\n";
    html_ += "<body>\n<header>\n<h1>" + Escaped(report_.title) + "</h1>\n" + report_.lead;
    Facts();
    // One picture has the table beside it; several have it below.
    html_ +=
        report_.pictures.size() == 1 ? "</header>\n<main class='beside'>\n" : "</header>\n<main>\n";
    Pictures();
    Rows();
    html_ += "</main>\n<footer>quillon " QUILLON_VERSION "</footer>\n<script>\n";
    html_ += kPageScript;
    html_ += "</script>\n</body>\n</html>\n";
    return std::move(html_);
  }

 private:
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
    html_ += "<section class='pictures'>\n";
    Toolbar();
    html_ += "<div class='side'>\n";
    for (const Picture& picture : report_.pictures) Show(picture);
    html_ += "</div>\n</section>\n";
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
    html_ +=
        "<span class='zoom'><button data-zoom='' class='on'>Fit</button>"
        "<button data-zoom='1'>1:1</button><button data-zoom='2'>2:1</button>"
        "<button data-zoom='4'>4:1</button></span>\n</div>\n";
  }

  void Show(const Picture& picture) {
    const std::string width = std::to_string(picture.Width());
    const std::string height = std::to_string(picture.Height());
    html_ += "<figure><div class='frame'><svg viewBox='-0.5 -0.5 " + width + " " + height +
             "' data-width='" + width + "' style='--w:" + width + ";--h:" + height +
             ";--text:" + Number(TextSize(picture)) + "px'>\n<image x='-0.5' y='-0.5' width='" +
             width + "' height='" + height + "' href='data:image/png;base64," +
             Base64(picture.Png()) + "'/>\n";
    Draw(picture);
    html_ += "</svg></div>";
    if (!picture.Caption().empty()) {
      html_ += "<figcaption>" + Escaped(picture.Caption()) + "</figcaption>";
    }
    html_ += "</figure>\n";
  }

  // Readable on a picture that is shown to its full width, smaller where the drawings are many.
  double TextSize(const Picture& picture) const {
    const double side = std::sqrt(static_cast<double>(picture.Width()) * picture.Height());
    const double rows = std::max<double>(1, static_cast<double>(findings_.rows.size()));
    return std::max(2.0, std::min(side / 42, 0.36 * side / std::sqrt(rows)));
  }

  // One group for each row of the table.
  void Draw(const Picture& picture) {
    std::vector<const Drawing*> drawings;
    for (const auto& drawing : picture.Drawings()) drawings.push_back(&drawing);
    std::stable_sort(drawings.begin(), drawings.end(),
                     [](const auto* a, const auto* b) { return a->mark.row < b->mark.row; });
    for (size_t i = 0; i < drawings.size();) {
      const int row = drawings[i]->mark.row;
      html_ += row == kNoRow ? "<g>" : "<g data-row='" + std::to_string(row) + "'>" + Tip(row);
      for (; i < drawings.size() && drawings[i]->mark.row == row; ++i) {
        const Layer& layer = report_.layers.at(static_cast<size_t>(drawings[i]->mark.layer));
        html_ += "<g class='layer" + std::to_string(drawings[i]->mark.layer) + " " +
                 ClassOf(layer.tone) + (layer.shown ? "'>" : " off'>") +
                 Svg(*drawings[i], picture) + "</g>";
      }
      html_ += "</g>\n";
    }
  }

  std::string Svg(const Drawing& drawing, const Picture& picture) const {
    const std::vector<Point>& p = drawing.points;
    std::string list;
    switch (drawing.kind) {
      case Drawing::Kind::kBox:
        return "<rect" + Attribute("x", p[0].x) + Attribute("y", p[0].y) +
               Attribute("width", p[1].x - p[0].x) + Attribute("height", p[1].y - p[0].y) + "/>";
      case Drawing::Kind::kPolygon:
        for (const Point& point : p) list += Number(point.x) + "," + Number(point.y) + " ";
        return "<polygon points='" + list + "'/>";
      case Drawing::Kind::kDots:
        for (const Point& point : p) list += "M" + Number(point.x) + " " + Number(point.y) + "h0";
        return "<path class='dots' d='" + list + "'/>";
      case Drawing::Kind::kCross: {
        const double arm = 0.22 * TextSize(picture);
        return "<path d='M" + Number(p[0].x - arm) + " " + Number(p[0].y) + "h" + Number(2 * arm) +
               "M" + Number(p[0].x) + " " + Number(p[0].y - arm) + "v" + Number(2 * arm) + "'/>";
      }
      case Drawing::Kind::kLabel: {
        // Near the upper edge the text goes below the point.
        const bool below = p[0].y < picture.Height() / 30.0;
        return std::string("<text") + (below ? " class='below'" : "") + Attribute("x", p[0].x) +
               Attribute("y", p[0].y) + ">" + Escaped(drawing.text) + "</text>";
      }
    }
    return "";
  }

  // What a pointer over a drawing says: the first cells of the row.
  std::string Tip(int row) const {
    constexpr size_t kCells = 4;
    std::string tip;
    const auto& cells = findings_.rows.at(static_cast<size_t>(row));
    for (size_t c = 0; c < std::min(kCells, cells.size()); ++c) {
      const Column& column = findings_.columns[c];
      tip += (c ? ", " : "") + column.heading + " " + Text(cells[c], column.decimals);
    }
    return "<title>" + Escaped(tip) + "</title>";
  }

  void Rows() {
    if (findings_.columns.empty()) return;
    html_ += "<section class='rows'><table>\n<thead><tr>";
    for (size_t c = 0; c < findings_.columns.size(); ++c) {
      if (findings_.columns[c].shown != Shown::kEverywhere) continue;
      const auto isText = [c](const auto& row) {
        return std::holds_alternative<std::string>(row[c]);
      };
      const bool left = std::any_of(findings_.rows.begin(), findings_.rows.end(), isText);
      html_ += (left ? "<th class='text'><button>" : "<th><button>") +
               Escaped(findings_.columns[c].heading) + "</button></th>";
    }
    html_ += "</tr></thead>\n<tbody>\n";
    for (size_t row = 0; row < findings_.rows.size(); ++row) {
      html_ += "<tr data-row='" + std::to_string(row) + "'>";
      for (size_t c = 0; c < findings_.columns.size(); ++c) {
        const Column& column = findings_.columns[c];
        if (column.shown != Shown::kEverywhere) continue;
        const Cell& cell = findings_.rows[row][c];
        html_ += std::holds_alternative<std::string>(cell) ? "<td class='text'>" : "<td>";
        html_ += Escaped(Text(cell, column.decimals)) + "</td>";
      }
      html_ += "</tr>\n";
    }
    html_ += "</tbody>\n</table></section>\n";
  }

  const Report& report_;
  const Findings& findings_;
  std::string html_;
};

}  // namespace

std::string RenderReport(const Report& report, const Findings& findings) {
  return Page(report, findings).Render();
}

void WriteReport(const std::string& path, const Report& report, const Findings& findings) {
  WriteFile(path, RenderReport(report, findings));
}

}  // namespace quillon::kit
