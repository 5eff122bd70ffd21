#!/usr/bin/python3
"""Holds quillon calibrate against OpenCV's calibrateCamera and cornerSubPix on the same views.

usage: check-camera.py [FOLDER]     FOLDER: $QUILLON_DATA/chessboard unless given

Needs the command-line host of the linux build and python3-opencv. Fails when the residuals are more
than 2 % above OpenCV's on the same corners, or a corner is farther than 0.05 pixels from cornerSubPix.
"""
import json
import os
import pathlib
import subprocess
import sys
import tempfile

import cv2
import numpy as np

ROOT = pathlib.Path(__file__).resolve().parent.parent
QUILLON = ROOT / "build/linux/src/quillon"
BOARD = (9, 6)


def main() -> int:
    folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else
                          os.environ.get("QUILLON_DATA", ROOT / "../shared/data") + "/chessboard")
    images = sorted(folder.glob("*.jpg"))
    with tempfile.TemporaryDirectory() as scratch:
        file = pathlib.Path(scratch) / "camera.json"
        told = json.loads(subprocess.check_output(
            [QUILLON, "calibrate", file, *images, "--board", *map(str, BOARD), "--square",
             "25", "--json"]))
        camera = json.loads(file.read_text())
    places, seen, farthest = [], [], 0
    for image, view in zip(images, camera["views"]):
        grey = cv2.imread(str(image), cv2.IMREAD_GRAYSCALE)
        corners = np.float32([[x, y] for column, row, x, y in view["corners"]])
        refined = cv2.cornerSubPix(grey, corners.reshape(-1, 1, 2).copy(), (5, 5), (-1, -1),
                                   (3, 100, 1e-4)).reshape(-1, 2)
        farthest = max(farthest, np.hypot(*(refined - corners).T).max())
        places.append(np.float32([[column, row, 0] for column, row, x, y in view["corners"]]))
        seen.append(corners.reshape(-1, 1, 2))
    size = (camera["width"], camera["height"])
    rms = cv2.calibrateCamera(places, seen, size, None, None)[0]
    count = sum(map(len, seen))
    print(f"{len(images)} views, {count} of {len(images) * BOARD[0] * BOARD[1]} corners")
    print(f"residuals, RMS: quillon {told['rms']:.6f} px, OpenCV {rms:.6f} px")
    print(f"farthest corner from cornerSubPix: {farthest:.4f} px")
    return 0 if told["rms"] <= 1.02 * rms and farthest <= 0.05 else 1


if __name__ == "__main__":
    sys.exit(main())
