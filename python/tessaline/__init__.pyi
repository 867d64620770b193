from typing import Any, Callable, List, Literal, NamedTuple, Optional, Tuple, Union

import numpy as np
import numpy.typing as npt

Acceptance = Union[Literal["auto"], float]
Light = Literal["auto", "coded", "linear"]
Picture = npt.NDArray[Any]  # (H, W), (H, W, 1), (H, W, 3), (H, W, 4) of uint8, uint16 or float32
Progress = Optional[Callable[[float], Any]]
Resolution = Union[None, float, Tuple[float, float]]
White = Literal[65535, 32768]

__version__: str

class Peak(NamedTuple):
    dx: int
    dy: int
    period: float
    angle: float
    lines_per_inch: Optional[float]
    height: float
    isolation: float
    is_licensed: bool
    is_used: bool
    verdict: str

class Notch(NamedTuple):
    dx: int
    dy: int
    period: float
    angle: float
    lines_per_inch: Optional[float]
    level: int
    above_threshold: Optional[int]
    cells: int

class Mask:
    def __init__(self, cells: npt.NDArray[np.uint8]) -> None: ...
    @property
    def cells(self) -> npt.NDArray[np.uint8]: ...
    @property
    def is_empty(self) -> bool: ...
    def apply(
        self,
        array: Picture,
        out: Optional[Picture] = None,
        *,
        white: White = 65535,
        threads: Optional[int] = None,
        progress: Progress = None,
    ) -> Picture: ...

class Analysis:
    @property
    def found(self) -> bool: ...
    @property
    def peaks(self) -> List[Peak]: ...
    @property
    def notches(self) -> List[Notch]: ...
    @property
    def mask(self) -> Mask: ...
    @property
    def transform_size(self) -> int: ...
    @property
    def threshold(self) -> Optional[int]: ...
    @property
    def log_span(self) -> float: ...
    @property
    def pattern_cells(self) -> int: ...
    @property
    def spectrum(self) -> npt.NDArray[np.uint16]: ...
    @property
    def enhanced(self) -> npt.NDArray[np.uint16]: ...
    @property
    def seeds(self) -> npt.NDArray[np.uint8]: ...
    def draw(self) -> npt.NDArray[np.uint8]: ...
    def decide(
        self,
        acceptance: Acceptance = "auto",
        *,
        sensitivity: float = 1.0,
        notch_radius: float = 6.0,
        protection_radius: float = 8.0,
    ) -> Analysis: ...

def clean(
    array: Picture,
    acceptance: Acceptance = "auto",
    *,
    sensitivity: float = 1.0,
    notch_radius: float = 6.0,
    protection_radius: float = 8.0,
    everywhere: bool = False,
    polish: float = 1.0,
    light: Light = "auto",
    light_curve: Optional[npt.ArrayLike] = None,
    white: White = 65535,
    threads: Optional[int] = None,
    out: Optional[Picture] = None,
    progress: Progress = None,
) -> Picture: ...
def analyse(
    array: Picture,
    acceptance: Acceptance = "auto",
    *,
    sensitivity: float = 1.0,
    notch_radius: float = 6.0,
    protection_radius: float = 8.0,
    white: White = 65535,
    resolution: Resolution = None,
    threads: Optional[int] = None,
    progress: Progress = None,
) -> Analysis: ...
