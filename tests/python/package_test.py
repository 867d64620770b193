import os
import pickle
import subprocess
import sys
import tempfile
import time
import unittest
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import tessaline

Y, X = np.mgrid[:300, :420]
WAVE = 0.08 * np.sin(2 * np.pi * (X * 0.21 + Y * 0.13))
SCENE = 0.4 + 0.2 * np.sin(X / 97) + 0.1 * np.cos(Y / 71)
NOISE = np.random.default_rng(1).normal(0, 0.01, (300, 420, 3))
FLOATS = ((SCENE + WAVE)[..., None] * [1, 0.9, 0.8] + NOISE).astype(np.float32)
BYTES = np.rint(FLOATS * 255).astype(np.uint8)
CLEAN = tessaline.clean(BYTES)


def through_program(array, *options):
    with tempfile.TemporaryDirectory() as folder:
        with open(folder + "/in.ppm", "wb") as file:
            file.write(b"P6 %d %d 255\n" % (array.shape[1], array.shape[0]) + array.tobytes())
        subprocess.run([os.environ["TESSALINE"], *options, folder + "/in.ppm", folder + "/out.ppm"], check=True,
                       capture_output=True)
        with open(folder + "/out.ppm", "rb") as file:
            return np.frombuffer(file.read()[-array.size:], np.uint8).reshape(array.shape)


class PackageTest(unittest.TestCase):
    def test_samples_are_the_programs(self):
        np.testing.assert_array_equal(CLEAN, through_program(BYTES, "-a", "auto"))
        np.testing.assert_array_equal(tessaline.clean(BYTES, 90, notch_radius=3),
                                      through_program(BYTES, "-a", "90", "-n", "3"))
        self.assertLess(np.abs(CLEAN[20:-20, 20:-20, 0] / 255 - SCENE[20:-20, 20:-20]).mean(), 0.02)

    def test_any_layout_gives_the_same_samples(self):
        wide = np.full((600, 840, 3), 77, np.uint8)
        wide[::2, ::2] = BYTES
        odd = np.zeros(FLOATS.nbytes + 1, np.uint8)[1:].view(np.float32).reshape(FLOATS.shape)
        odd[:] = FLOATS
        for array in (wide[::2, ::2], np.asfortranarray(BYTES), BYTES[::-1, ::-1], BYTES[..., 1], BYTES[..., :1], odd,
                      FLOATS.astype(">f4")):
            plain = np.array(array, array.dtype.newbyteorder("="), order="C")
            np.testing.assert_array_equal(tessaline.clean(array), tessaline.clean(plain))
        self.assertIsNotNone(tessaline.clean(wide[::2, ::2], out=wide[::2, ::2]))  # in place, among others
        np.testing.assert_array_equal(wide[::2, ::2], CLEAN)
        self.assertTrue((wide[1::2] == 77).all() and (wide[:, 1::2] == 77).all())
        moved = np.vstack([BYTES, BYTES[:9]])  # over its own input, nine rows off
        np.testing.assert_array_equal(tessaline.clean(moved[:300], out=moved[9:]), CLEAN)

    def test_types_differ_by_their_rounding_and_alpha_stays(self):
        levels = np.clip(FLOATS, 0, 1)
        floats = tessaline.clean(levels)
        for white in 65535, 32768:
            whole = tessaline.clean(np.rint(levels * white).astype(np.uint16), white=white)
            self.assertLess(np.abs(whole / white - floats).max(), 3 / 32768)
        alpha = np.dstack([BYTES, X.astype(np.uint8)])
        np.testing.assert_array_equal(tessaline.clean(alpha), np.dstack([CLEAN, alpha[..., 3]]))
        flat = np.dstack([NOISE, NOISE[..., 0]]).astype(np.float32)  # nothing to find: every bit is kept
        np.testing.assert_array_equal(tessaline.clean(flat), flat)

    def test_a_mask_serves_many_threads_with_the_same_bits(self):
        found = tessaline.analyse(BYTES, resolution=300)
        strongest = found.notches[0]
        self.assertAlmostEqual(strongest.period, 1 / np.hypot(0.21, 0.13), 2)
        self.assertAlmostEqual(strongest.lines_per_inch, 300 * np.hypot(0.21, 0.13), 0)
        self.assertEqual((found.peaks[0].verdict, found.threshold, found.spectrum.max()), ("used", None, 32768))
        self.assertEqual(found.decide(0).found, False)
        faint = tessaline.analyse((128 + (BYTES.astype(int) - 128) // 90).astype(np.uint8))
        self.assertEqual([faint.found, faint.decide(sensitivity=1.3).found], [False, False])
        mask = pickle.loads(pickle.dumps(tessaline.Mask(found.mask.cells)))
        wanted = mask.apply(BYTES, threads=1)
        everywhere = tessaline.clean(BYTES, everywhere=True, polish=0)
        self.assertLess(np.abs(wanted.astype(int) - everywhere).max(), 4)
        with ThreadPoolExecutor(4) as pool:
            for result in pool.map(lambda count: mask.apply(BYTES, threads=count), [1, 2, 3, 7] * 2):
                np.testing.assert_array_equal(result, wanted)
        frames = subprocess.run([sys.executable, os.environ["TESSALINE_EXAMPLES"] + "/clean_frames.py", "420", "300"],
                                input=BYTES.tobytes() * 2, stdout=subprocess.PIPE, check=True).stdout
        self.assertEqual(frames, wanted.tobytes() * 2)

    def test_what_does_not_fit_is_refused_and_what_is_stopped_is_untouched(self):
        for wrong in ({"acceptance": 101}, {"acceptance": "all"}, {"notch_radius": float("nan")}, {"white": 1},
                      {"sensitivity": 2}, {"threads": 0}, {"out": FLOATS.copy()},
                      {"out": np.frombuffer(BYTES.tobytes(), np.uint8).reshape(BYTES.shape)}):
            self.assertRaises(ValueError, tessaline.clean, BYTES, **wrong)
        for wrong in (BYTES[:0], BYTES[..., :2], BYTES[0, 0], BYTES.astype(int), np.full((9, 9), np.nan, np.float32),
                      np.zeros((1000001, 1), np.uint8)):
            self.assertRaises(ValueError, tessaline.clean, wrong)
        self.assertRaises(ValueError, tessaline.Mask, np.zeros((512, 511), np.uint8))

        def stop(part):
            raise KeyboardInterrupt

        array = BYTES.copy()
        self.assertRaises(KeyboardInterrupt, tessaline.clean, array, out=array, progress=stop)
        np.testing.assert_array_equal(array, BYTES)

        def stop_late(part):
            time.sleep(0.03)  # so that the next report is not left out
            if part > 0:
                raise KeyError

        alpha = np.dstack([BYTES, X.astype(np.uint8)])
        mask, late = tessaline.analyse(BYTES).mask, np.zeros_like(alpha)
        self.assertRaises(KeyError, mask.apply, alpha, late, progress=stop_late)
        np.testing.assert_array_equal(late, mask.apply(alpha))  # finished, alpha too
        parts = []
        tessaline.clean(BYTES, progress=parts.append)
        self.assertTrue(parts == sorted(parts) and parts[-1] == 1.0)


unittest.main()
