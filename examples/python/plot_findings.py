#!/usr/bin/env python3
"""Plots a picture, its spectrum with what was found, the mask and the cleaned picture.

    plot_findings.py scan.png findings.png [pixels per inch]

Needs matplotlib (Debian: python3-matplotlib), which reads PNG as arrays of float32 from 0 to 1.
"""
import sys

import matplotlib

matplotlib.use("Agg")  # into a file, without a display
import matplotlib.pyplot as plt
import tessaline


def main():
    picture = plt.imread(sys.argv[1])
    resolution = float(sys.argv[3]) if len(sys.argv) > 3 else None
    analysis = tessaline.analyse(picture, resolution=resolution)
    figure, axes = plt.subplots(2, 2, figsize=(12, 11), layout="constrained")
    cells = (-256.5, 255.5, 255.5, -256.5)  # the axes count from the zero frequency

    axes[0, 0].imshow(picture, cmap="gray")
    axes[0, 0].set_title("picture")
    axes[0, 1].imshow(analysis.mask.apply(picture).clip(0, 1), cmap="gray")
    axes[0, 1].set_title("cleaned")
    axes[1, 0].imshow(analysis.spectrum, cmap="gray", extent=cells)
    for verdict in sorted({peak.verdict for peak in analysis.peaks}):
        peaks = [peak for peak in analysis.peaks if peak.verdict == verdict]
        axes[1, 0].scatter([peak.dx for peak in peaks], [peak.dy for peak in peaks],
                           s=[120 if peak.is_licensed else 25 for peak in peaks], facecolors="none",
                           edgecolors=f"C{len(axes[1, 0].collections)}", label=f"{verdict} ({len(peaks)})")
    if analysis.peaks:
        axes[1, 0].legend(loc="lower right")
    axes[1, 0].set_title("spectrum, its peaks (licensed ones large) and what became of them")
    axes[1, 1].imshow(analysis.mask.cells, cmap="gray", vmin=0, vmax=255, extent=cells)
    lines = []
    for number, notch in enumerate(analysis.notches[:5], 1):
        ruling = f", {notch.lines_per_inch:.1f} lpi" if notch.lines_per_inch else ""
        lines.append(f"{number}: {notch.period:.2f} pixels at {round(notch.angle, 1) % 180:.1f}°{ruling}")
        axes[1, 1].annotate(str(number), (notch.dx, notch.dy), color="red", ha="center", va="center")
    axes[1, 1].set_xlabel("\n".join(lines), loc="left")
    axes[1, 1].set_title("mask: white is taken out")
    figure.savefig(sys.argv[2], dpi=100)


main()
