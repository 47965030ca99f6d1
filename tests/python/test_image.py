"""The image functions on numpy arrays, held against closed forms and cv2."""
import numpy
import pytest

import corvane

cv2 = pytest.importorskip("cv2")


def test_warp_family():
    y, x = numpy.mgrid[0:45, 0:60]
    img = numpy.stack([128 + 100 * numpy.sin(x * 0.1 + c) * numpy.cos(y * 0.08) for c in range(3)],
                      axis=2).astype(numpy.uint8)
    # A shift by whole pixels is a copy; a view of a larger array is read in place.
    shifted = corvane.warp(img[:, :50], [0, 1, 0, 4, 0, 0, 1, 2], (50, 45), "cubic")
    assert (shifted[2:, 4:] == img[:43, :46]).all() and (shifted[:2] == 0).all()
    assert (corvane.resize(img, (60, 45), interpolation="nearest") == img).all()
    # A crop scaled as cv2 does with the same map: within a level or two.
    ours = corvane.resize(img, (31, 23), rect=(10, 5, 41, 34))
    inverse = numpy.array([[40 / 30, 0, 10], [0, 33 / 22, 5]])
    theirs = cv2.warpAffine(img, inverse, (31, 23), flags=cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP)
    difference = numpy.abs(ours.astype(int) - theirs)
    assert difference.mean() < 1 and difference.max() <= 2
    quad = corvane.warp_quad(img, [[0, 0], [59, 0], [59, 44], [0, 44]], (60, 45), "nearest")
    assert (quad == img).all()
    with pytest.raises(ValueError, match="interpolation"):
        corvane.resize(img, (10, 10), interpolation="area")
    with pytest.raises(ValueError, match="refused the image's type"):
        corvane.warp(img.astype(numpy.uint16), [0, 1, 0, 0, 0, 0, 1, 0], (10, 10))
