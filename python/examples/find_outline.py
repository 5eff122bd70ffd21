#!/usr/bin/env python3
"""Finds a part by its outline, in another light, and draws the taught edge points over it."""

import cv2
import numpy as np
import quillon
from pictures import RED, YELLOW, arguments, bracket, canvas, write

given = arguments(__doc__, angle=-20.0)
template = bracket()[30:170, 35:165]
# A third of the contrast, and darker.
scene = quillon.gain_offset(bracket((300, 400), float(given.angle), (230, 160), seed=4), 0.35, 10)

with quillon.GeoMatchTool() as tool:
    tool.teach(template, high=60, low=25)
    found = tool.find(scene, 0.6, 0.5, angle_search=True, lowest_angle=-60, highest_angle=60)
    points = tool.model.points

print(f"x {found.x}  y {found.y}  angle {found.angle:.2f}")
turn = np.deg2rad(found.angle)
xs = np.rint(found.x + points["x"] * np.cos(turn) - points["y"] * np.sin(turn)).astype(int)
ys = np.rint(found.y + points["x"] * np.sin(turn) + points["y"] * np.cos(turn)).astype(int)
drawn = canvas(scene)
inside = (xs >= 0) & (xs < scene.shape[1]) & (ys >= 0) & (ys < scene.shape[0])
drawn[ys[inside], xs[inside]] = YELLOW
cv2.drawMarker(drawn, (found.x, found.y), RED, cv2.MARKER_CROSS, 15, 2)
write(given, "find_outline.png", drawn)
