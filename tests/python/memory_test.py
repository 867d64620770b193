"""Every allocation of the engine below the module fails once, alone or with all that follow, by what is preloaded: an error of Python's, and
no sample is changed; or the work is done."""
import ctypes
import unittest

import numpy as np
import tessaline
import tessaline._tessaline

FAILING = ctypes.CDLL(None)
# Bytes: the library that binds the module frees an object twice where a node of some 50 cannot be had for it.
SMALLEST = 256
MODULE = tessaline._tessaline.__file__.rpartition("/")[2].encode()
Y, X = np.mgrid[:200, :280]
NOISE = np.random.default_rng(1).normal(0, 2, X.shape)
PICTURE = np.rint(110 + 20 * np.sin(2 * np.pi * (X * 0.21 + Y * 0.13)) + 40 * np.sin(X / 97) + NOISE).astype(np.uint8)


class MemoryTest(unittest.TestCase):
    def fail_each(self, call, check):
        call()  # what is made once is there
        for only_one in 1, 0:
            after, failures, has_failed = 0, 0, True
            while has_failed:
                self.assertEqual(1, FAILING.tessaline_fail_allocation(b"/" + MODULE, SMALLEST, after, only_one))
                try:
                    result, error = call(), None
                except (MemoryError, RuntimeError) as raised:
                    result, error = None, raised
                finally:
                    has_failed = FAILING.tessaline_allocation_failed() == 1
                with self.subTest(after=after, only_one=only_one):
                    self.assertTrue(error is None or has_failed)
                    self.assertRegex(str(error or ""), "^$|memory|alloc|threads")
                    check(result)
                failures += error is not None
                after += 1 + after // 2
            self.assertGreater(failures, 3)

    def test_cleaning_leaves_the_array_or_finishes(self):
        wanted, out = tessaline.clean(PICTURE, threads=2), np.empty_like(PICTURE)
        self.assertTrue((wanted != PICTURE).any())

        def call():
            out[:] = 7
            return tessaline.clean(PICTURE, threads=2, out=out)

        self.fail_each(call, lambda result: np.testing.assert_array_equal(out, 7 if result is None else wanted))
        np.testing.assert_array_equal(tessaline.clean(PICTURE, threads=2), wanted)

    def test_looking_and_drawing(self):
        def call():
            analysis = tessaline.analyse(PICTURE, 90)
            return analysis.pattern_cells, analysis.draw().sum(), analysis.decide(95).pattern_cells, analysis.mask.apply(PICTURE).sum()

        wanted = call()
        self.fail_each(call, lambda result: self.assertIn(result, (None, wanted)))


unittest.main()
