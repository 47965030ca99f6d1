"""Bad input gets the documented error; arrays reach the image functions in the
library's layout or get a ValueError naming what is wrong."""
import pathlib
import re
import warnings

import numpy
import pytest

import corvane
from corvane import _corvane
from conftest import X264, X265, access_units, make_stream


def test_bad_files_and_arguments(tmp_path):
    text = tmp_path / "notes.txt"
    text.write_text("not a video")
    h264, h265 = make_stream("h264.mkv", X264), make_stream("h265.mkv", X265)
    cases = [
        (lambda: corvane.open(tmp_path / "missing.mp4"), FileNotFoundError, "missing.mp4"),
        (lambda: corvane.open(tmp_path), IsADirectoryError, str(tmp_path)),
        (lambda: corvane.open(text), ValueError, "FFmpeg cannot read"),
        (lambda: corvane.open(make_stream("mpeg4.mkv", "-c:v mpeg4")), ValueError,
         "the video is mpeg4, not H.264 or H.265"),
        (lambda: corvane.open(h265, median=True), ValueError, "for H.264 streams only"),
        (lambda: corvane.open(h264, median=True, sharpen=True), ValueError, "exclude each other"),
        (lambda: corvane.open(h265, sharpen=True), ValueError, "for H.264 streams only"),
        (lambda: corvane.sharpen(numpy.zeros((4, 4, 4), numpy.uint8)), ValueError, "not served"),
        (lambda: corvane.Decoder("vp9"), ValueError, 'codec must be "h264" or "h265", not "vp9"'),
        (lambda: corvane.Decoder().decode("text"), TypeError, "bytes-like"),
    ]
    for make, error, message in cases:
        with pytest.raises(error, match=re.escape(message)):
            make()


def test_damaged_input_gives_what_it_holds(tmp_path):
    reader = corvane.open(make_stream("h264.ts", X264))  # its fields: the info command's test
    next(reader)
    reader.close()
    with pytest.raises(ValueError, match="closed"):
        next(reader)

    data = bytearray(pathlib.Path(make_stream("h264.mkv", X264)).read_bytes())
    cut = tmp_path / "damaged.mkv"
    for where in range(len(data) // 3, len(data), 97):  # bytes of the pictures spoilt
        data[where] ^= 0x5A
    cut.write_bytes(data[: len(data) * 4 // 5])
    with warnings.catch_warnings(record=True):
        assert 0 < len(list(corvane.open(cut))) <= 14
    assert corvane.Decoder().decode(bytes(1000)) == []  # no parameters yet: no picture

    decoder = corvane.Decoder("h265", strict=True)  # slice threads: errors come at once
    for packet in access_units("h265")[1][:3]:
        decoder.decode(packet)
    with pytest.raises(corvane.DecodeError, match="refused the packet") as raised:
        decoder.decode(bytes(100))
    assert raised.value.code == -996


U8, U16, S16 = numpy.uint8, numpy.uint16, numpy.int16


@pytest.mark.parametrize("array,keep,layout", [
    (numpy.zeros((5, 7, 3), U8), False, (7, 5, 21, 1)),
    (numpy.zeros((5, 7, 4), U8), True, (7, 5, 28, 3)),
    (numpy.zeros((5, 7, 4), U16), False, (7, 5, 56, 5)),
    (numpy.zeros((5, 7, 3), S16), False, (7, 5, 42, 7)),
    (numpy.zeros((9, 20, 4), S16)[2:7, 3:10], True, (7, 5, 160, 9)),  # a crop keeps its rows
    (numpy.zeros((7, 5, 3), U8).transpose(1, 0, 2), False, (7, 5, 21, 1)),  # copied
])
def test_arrays_as_images(array, keep, layout):
    assert _corvane.image_layout(array, keep) == layout


@pytest.mark.parametrize("array,message", [
    (numpy.zeros((5, 7, 3), numpy.float32), "img must be of uint8, uint16 or int16"),
    (numpy.zeros((5, 7, 3), ">u2"), "in the machine's byte order, not >u2"),
    (numpy.zeros((5, 7), U8), r"shape \(height, width, 3\) or \(height, width, 4\), not \(5, 7\)"),
    (numpy.zeros((5, 7, 2), U8), r"not \(5, 7, 2\)"),
    (numpy.zeros((0, 7, 3), U8), "img is empty"),
])
def test_arrays_refused(array, message):
    with pytest.raises(ValueError, match=message):
        _corvane.image_layout(array)


@pytest.mark.parametrize("dtype,channels,ksize,border,value", [
    (U8, 3, 3, "replicate", None), (U8, 4, (5, 3), "constant", 200),
    (U16, 3, 7, "constant", [1, 65535, 300]), (S16, 4, (1, 5), "replicate", None)])
def test_median_against_a_sort(dtype, channels, ksize, border, value):
    info = numpy.iinfo(dtype)
    img = numpy.random.default_rng(5).integers(info.min, info.max, (11, 13, channels), dtype,
                                               endpoint=True)
    kw, kh = (ksize, ksize) if isinstance(ksize, int) else ksize
    if border == "replicate":
        padded = numpy.pad(img, ((kh // 2,) * 2, (kw // 2,) * 2, (0, 0)), mode="edge")
    else:
        padded = numpy.empty((11 + kh - 1, 13 + kw - 1, channels), dtype)
        padded[...] = numpy.broadcast_to(value, (channels,))
        padded[kh // 2:kh // 2 + 11, kw // 2:kw // 2 + 13] = img
    windows = numpy.lib.stride_tricks.sliding_window_view(padded, (kh, kw), axis=(0, 1))
    expected = numpy.sort(windows.reshape(11, 13, channels, -1), axis=-1)[..., kw * kh // 2]
    assert numpy.array_equal(corvane.median(img, ksize, border, value), expected)
    with pytest.raises(ValueError, match="odd"):
        corvane.median(img, (kw + 1, kh))
