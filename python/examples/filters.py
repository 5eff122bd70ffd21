#!/usr/bin/env python3
"""Shows filters side by side."""

import cv2
import numpy as np
import quillon
from pictures import arguments, canvas, washers, write


FILTERS = {
    "source": lambda image: image,
    "sobel": quillon.sobel,
    "median_5x5": quillon.median_5x5,
    "mean 15": lambda image: quillon.mean(image, 15),
    "otsu": quillon.otsu,
    "closing_circle 4": lambda image: quillon.closing_circle(image, 4),
    "white_top_hat 20": lambda image: quillon.white_top_hat(image, 20, 20),
    "morph_gradient 1": lambda image: quillon.morph_gradient(image, 1, 1),
    "rotate_bilinear 20": lambda image: quillon.rotate_bilinear(image, 20),
}

given = arguments(__doc__)
image = washers((200, 260))
tiles = []
for name, function in FILTERS.items():
    tile = canvas(function(image))
    cv2.putText(tile, name, (6, 16), cv2.FONT_HERSHEY_SIMPLEX, 0.45, (0, 255, 255), 1)
    tiles.append(tile)
rows = [np.hstack(tiles[first:first + 3]) for first in range(0, len(tiles), 3)]
write(given, "filters.png", np.vstack(rows))
