#!/usr/bin/env python3
"""Counts and measures parts: median, threshold, holes filled, blobs of an area, drawn boxes."""

import cv2
import quillon
from pictures import GREEN, RED, arguments, canvas, washers, write

given = arguments(__doc__, least_area=500)
image = washers()
whole = quillon.fill_holes(quillon.otsu(quillon.median_3x3(image)))
parts = quillon.blobs(whole, band=(255, 255), min_area=int(given.least_area))

drawn = canvas(image)
print(" no  area      x      y  length  width")
for number, part in enumerate(parts, start=1):
    corners = [(int(part["left"]), int(part["top"])), (int(part["right"]), int(part["bottom"]))]
    cv2.rectangle(drawn, *corners, GREEN, 2)
    x, y = round(part["x"]), round(part["y"])
    cv2.putText(drawn, str(number), (x - 8, y + 6), cv2.FONT_HERSHEY_SIMPLEX, 0.6, RED, 2)
    long, short = sorted((part["height"], part["width"]), reverse=True)
    print(f"{number:3} {part['area']:5} {part['x']:6.1f} {part['y']:6.1f}"
          f" {long:7.1f} {short:6.1f}")
print(f"{len(parts)} parts")
write(given, "count_parts.png", drawn)
