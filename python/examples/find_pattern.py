#!/usr/bin/env python3
"""Finds a taught pattern by correlation, turned and at another size, and draws where it is."""

import cv2
import numpy as np
import quillon
from pictures import GREEN, RED, arguments, bracket, canvas, write

given = arguments(__doc__, angle=17.0, scale=1.1)
angle, scale = float(given.angle), float(given.scale)
template = bracket()[40:160, 45:155]
scene = quillon.scale(bracket((300, 400), angle, (170, 140), seed=3), scale, scale)

with quillon.NccTool() as tool:
    tool.teach(template)
    matches = tool.find(scene, 0.6, rotate=True, angle_min=-30, angle_max=30, scale_min=0.9,
                        scale_max=1.2, max_results=3)

drawn = canvas(scene)
for match in matches:
    print(f"x {match['x']:.2f}  y {match['y']:.2f}  angle {match['angle']:.2f}  "
          f"scale {match['scale']:.3f}  score {match['score']:.3f}")
    x, y, width, height = (float(match[name]) for name in ("x", "y", "width", "height"))
    box = cv2.boxPoints(((x, y), (width, height), float(match["angle"])))
    cv2.polylines(drawn, [np.rint(box).astype(np.int32)], True, GREEN, 2)
    cv2.drawMarker(drawn, (round(x), round(y)), RED, cv2.MARKER_CROSS, 15, 2)
write(given, "find_pattern.png", drawn)
