#!/usr/bin/env python3
"""Cleans raw rgb24 frames from stdin to stdout with one mask, so that nothing flickers.

    ffmpeg -i in.mkv -f rawvideo -pix_fmt rgb24 - |
      clean_frames.py 1920 1080 |
      ffmpeg -f rawvideo -pix_fmt rgb24 -s 1920x1080 -r 25 -i - out.mkv

The first frame in which a pattern is found decides; frames before it pass as they are.
"""
import sys

import numpy as np
import tessaline


def main():
    width, height = int(sys.argv[1]), int(sys.argv[2])
    size = width * height * 3
    mask = None
    while data := sys.stdin.buffer.read(size):
        if len(data) != size:
            sys.exit(f"the last frame is cut: {len(data)} of {size} bytes")
        frame = np.frombuffer(data, np.uint8).reshape(height, width, 3)
        if mask is None:
            analysis = tessaline.analyse(frame)
            if analysis.found:
                mask = analysis.mask
        if mask is not None:
            frame = mask.apply(frame)
        sys.stdout.buffer.write(frame)


main()
