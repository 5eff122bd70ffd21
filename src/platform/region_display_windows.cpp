#include <windows.h>

#include "platform/region_display.h"

namespace quillon {
namespace {

// Hosts know this order of the two release calls.
void Release(HDC dc) {
  DeleteObject(dc);
  DeleteDC(dc);
}

HDC ContextOf(HBITMAP bitmap) {
  HDC dc = CreateCompatibleDC(nullptr);
  SelectObject(dc, bitmap);
  return dc;
}

void DrawLines(const RLERegion& region, HDC dc) {
  LOGPEN style = {PS_SOLID, {0, 0}, RGB(125, 0, 0)};
  HPEN pen = CreatePenIndirect(&style);
  HGDIOBJ earlier = SelectObject(dc, pen);
  for (int i = 0; region.roiRuns && i < region.roiRunCount; ++i) {
    const DrawnLine line = VisibleLine(region.roiRuns[i], *region.displayImage);
    if (line.from >= line.to) continue;
    MoveToEx(dc, line.from, line.y, nullptr);
    LineTo(dc, line.to, line.y);
  }
  SelectObject(dc, earlier);
  DeleteObject(pen);
}

}  // namespace

void DrawRegionDisplay(const RLERegion& region) {
  const ColourImage& display = *region.displayImage;
  HDC canvas = ContextOf(display.bitmap);
  HDC image = ContextOf(*region.assignedImage);
  DrawLines(region, canvas);
  BitBlt(canvas, 0, 0, display.width, display.height, image, 0, 0, SRCINVERT);
  GdiFlush();  // drawing may be queued, and the host reads the bytes
  Release(canvas);
  Release(image);
}

}  // namespace quillon
