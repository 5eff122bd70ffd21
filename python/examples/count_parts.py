#!/usr/bin/env python3
"""Counts and measures parts: threshold, fill holes, label, select by area, draw rectangles."""

import cv2
import numpy as np
import quillon
from pictures import GREEN, RED, arguments, canvas, washers, write

given = arguments(__doc__, least_area=500)
image = washers()
height, width = image.shape

with quillon.Region() as region:
    white = quillon.otsu_threshold(quillon.median_filter_3x3(image))
    whole = region.fill_up(white)
    # One column beyond the image: a region that ends with it leaves out the last column.
    region.set_polygon([(0, 0), (width, 0), (width, height - 1), (0, height - 1)])
    region.label(whole, 255, 255)
    region.compute_features()
    region.select_area(int(given.least_area), width * height)
    parts = region.selected_blobs()

drawn = canvas(image)
print(" no  area      x      y  length  width")
for number, part in enumerate(parts, start=1):
    # The corners come side by side, not around the rectangle.
    around = cv2.convexHull(np.rint(part["corners"]).astype(np.int32).reshape(4, 2))
    cv2.polylines(drawn, [around], True, GREEN, 2)
    x, y = round(part["center_x"]), round(part["center_y"])
    cv2.putText(drawn, str(number), (x - 8, y + 6), cv2.FONT_HERSHEY_SIMPLEX, 0.6, RED, 2)
    long, short = sorted((part["height"], part["width"]), reverse=True)
    print(f"{number:3} {part['area']:5} {part['center_x']:6.1f} {part['center_y']:6.1f}"
          f" {long:7.1f} {short:6.1f}")
print(f"{len(parts)} parts")
write(given, "count_parts.png", drawn)
