"""Pictures from corvane.open and corvane.Decoder against ffmpeg's and ffprobe's."""
import numpy
import pytest
from numpy.lib.stride_tricks import sliding_window_view

import corvane
from conftest import X264, X265, access_units, ffmpeg_pictures, ffprobe, make_stream

# The encoders' defaults: B-frames, a B-pyramid for H.264; in MP4 and Matroska
# an SEI comes before the parameter sets, in MPEG-TS a delimiter.
FILES = [
    ("h264.mp4", X264, (160, 96)),
    ("h264.mkv", X264, (160, 96)),
    ("h264.ts", X264, (160, 96)),
    ("h265.mp4", X265, (160, 96)),
    ("h265.mkv", X265, (160, 96)),
    ("h265.ts", X265, (160, 96)),
    ("h264_444_odd.mkv", X264 + " -pix_fmt yuv444p", (175, 143)),  # testsrc2 is even only
]


@pytest.mark.parametrize("name,args,size", FILES, ids=[f[0] for f in FILES])
def test_every_picture_as_ffmpeg_gives_it(name, args, size):
    path = make_stream(name, args, size, source="testsrc2" if size[0] % 2 == 0 else "testsrc")
    frames = list(corvane.open(path))
    assert len(frames) == int(ffprobe(path, "stream=nb_read_frames")[0])
    assert all(type(f) is corvane.Frame for f in frames)
    assert numpy.array_equal(numpy.stack(frames), ffmpeg_pictures(path, *size))
    assert [f.index for f in frames] == list(range(len(frames)))
    times = [float(t) for t in ffprobe(path, "frame=pts_time")]
    assert [f.pts for f in frames] == pytest.approx(times, abs=1e-6)


@pytest.mark.parametrize("codec", ["h264", "h265"])
def test_decoder_takes_packets_and_flushes_the_rest(codec):
    path, packets = access_units(codec)
    expected = ffmpeg_pictures(path, 160, 96)
    decoder = corvane.Decoder(codec)
    for _ in range(2):  # after a flush the decoder takes a new stream
        frames = [f for p in packets for f in decoder.decode(p)]
        assert len(frames) < len(packets)  # frame threads hold some back
        frames += decoder.flush()
        assert numpy.array_equal(numpy.stack(frames), expected)
        assert [f.index for f in frames] == list(range(len(frames)))
        assert all(f.pts is None for f in frames)
    assert decoder.flush() == []


def median3x3(picture):
    return numpy.median(sliding_window_view(picture, (3, 3), axis=(0, 1)),
                        axis=(-2, -1)).astype(numpy.uint8)


def test_strict_and_median_roads():
    # Parameter sets open every key frame's packet and nothing is reordered:
    # the designed exports give every picture at once.
    path = make_stream("plain.h264", X264 + " -bf 0 -g 5")
    expected = ffmpeg_pictures(path, 160, 96)

    strict = numpy.stack(list(corvane.open(path, strict=True)))
    assert numpy.array_equal(strict[:, :-1], expected[:, :-1])
    assert numpy.array_equal(strict[:, -1], strict[:, -2])  # the row the exports leave
    median = numpy.stack(list(corvane.open(path, median=True)))
    assert numpy.array_equal(median[:, 1:-1, 1:-1], numpy.stack([median3x3(p) for p in expected]))


def sharpen3x3(picture):
    """(17 x - the 3x3 sum, edges replicated) / 8, to nearest even, in 0..255."""
    p = picture.astype(numpy.int32)
    wide = numpy.pad(p, ((1, 1), (1, 1), (0, 0)), mode="edge")
    v = 17 * p - sliding_window_view(wide, (3, 3), axis=(0, 1)).sum(axis=(-2, -1))
    return numpy.minimum(numpy.rint(numpy.maximum(v, 0) / 8), 255).astype(numpy.uint8)


def test_sharpen_road_and_function():
    path = make_stream("plain.h264", X264 + " -bf 0 -g 5")
    expected = numpy.stack([sharpen3x3(p) for p in ffmpeg_pictures(path, 160, 96)])
    assert numpy.array_equal(numpy.stack(list(corvane.open(path, sharpen=True))), expected)
    crop = numpy.random.default_rng(5).integers(0, 256, (41, 67, 3), numpy.uint8)[1:, 2:]
    assert numpy.array_equal(corvane.sharpen(crop), sharpen3x3(crop))
