from ._tessaline import Analysis, Mask, Notch, Peak, __doc__, __version__, analyse, clean

__all__ = ["Analysis", "Mask", "Notch", "Peak", "analyse", "clean"]
