"""Corvane: H.264 and H.265 video decoded into BGR numpy arrays.

    import corvane
    for frame in corvane.open("clip.mp4"):
        print(frame.index, frame.pts, frame.shape)   # (height, width, 3), uint8, BGR

`open` reads any file that FFmpeg's libavformat reads (MP4, Matroska, MPEG-TS,
raw Annex B...) and gives every picture of its H.264 or H.265 video, the last
ones included. `Decoder` decodes packets a client brings itself.
"""
from __future__ import annotations

import os
from typing import Iterator, List, Optional, Sequence, Tuple, Union

import numpy

from . import _corvane
from ._corvane import DecodeError, resize, warp, warp_quad

__all__ = ["open", "Reader", "Decoder", "Frame", "DecodeError", "median", "sharpen", "warp",
           "warp_quad", "resize", "__version__"]

__version__: str = _corvane.version()
"""The library's version, "MAJOR.MINOR.PATCH"."""


class Frame(numpy.ndarray):
    """A decoded picture: an (height, width, 3) uint8 array of blue, green, red.

    index: the picture's place in the order pictures came out, from 0.
    pts: its presentation time in seconds as the container counts it, or None
        where the container has none (raw streams, `Decoder`).
    """

    index: int
    pts: Optional[float]

    def __array_finalize__(self, obj: Optional[numpy.ndarray]) -> None:
        self.index = getattr(obj, "index", 0)
        self.pts = getattr(obj, "pts", None)


def _frame(array: numpy.ndarray, index: int, pts: Optional[float] = None) -> Frame:
    frame = array.view(Frame)
    frame.index = index
    frame.pts = pts
    return frame


class Reader:
    """The pictures of a video file, in presentation order; made by `open`.

    An iterator of `Frame`s and a context manager. `codec` ("h264" or "h265"),
    `width`, `height`, `format` (FFmpeg's name of the container) and `duration`
    (seconds, or None) are known from the start; `packets` and `refused` count
    the packets read so far and those the decoder refused as damaged.
    """

    def __init__(self, path: Union[str, os.PathLike], *, median: bool = False,
                 sharpen: bool = False, strict: bool = False) -> None:
        self._reader = _corvane.FileReader(os.fspath(path), median, sharpen, strict)

    codec = property(lambda self: self._reader.codec)
    width = property(lambda self: self._reader.width)
    height = property(lambda self: self._reader.height)
    format = property(lambda self: self._reader.format)
    duration = property(lambda self: self._reader.duration)
    packets = property(lambda self: self._reader.packets)
    refused = property(lambda self: self._reader.refused)

    def __iter__(self) -> Iterator[Frame]:
        return self

    def __next__(self) -> Frame:
        item = self._reader.read()
        if item is None:
            raise StopIteration
        return _frame(*item)

    def close(self) -> None:
        """Releases the file and the decoder at once; reading after it raises ValueError."""
        self._reader.close()

    def __enter__(self) -> "Reader":
        return self

    def __exit__(self, *exc_info: object) -> None:
        self.close()


def open(path: Union[str, os.PathLike], *, median: bool = False, sharpen: bool = False,
         strict: bool = False) -> Reader:
    """Opens a video file and gives its pictures as `Frame`s.

    median: the library's 3 x 3 median clean-up of each picture (H.264).
    sharpen: the library's sharpen stage (H.264); NotImplementedError where the
        library has none.
    strict: only the library's designed decoder exports, with none of the
        options for files and no drain at the end: packets must start with a
        sequence parameter set, the last pictures a decoder holds back are not
        given, and the bottom row of each picture repeats the row above it.

    Raises FileNotFoundError (or another OSError) for a file that can't be
    opened, ValueError for one that FFmpeg can't read or that holds no H.264 or
    H.265 video, and for options that exclude each other (median and sharpen,
    either with H.265), DecodeError when the library fails. Packets the decoder
    refuses are passed over; a RuntimeWarning at the end tells how many, or that
    the file ended early.
    """
    return Reader(path, median=median, sharpen=sharpen, strict=strict)


class Decoder:
    """Decodes packets a client brings: Annex B access units, one a call.

        decoder = corvane.Decoder("h265")
        for packet in packets:
            for frame in decoder.decode(packet):
                ...
        for frame in decoder.flush():
            ...

    codec: "h264" or "h265" ("hevc"). median, sharpen, strict: as for `open`.
    Frames have no `pts`. A picture comes out a few packets after its own (frame
    threads, reordering); `flush` gives those still held, after which the
    decoder takes a new stream.
    """

    def __init__(self, codec: str = "h264", *, median: bool = False, sharpen: bool = False,
                 strict: bool = False) -> None:
        self._decoder = _corvane.Decoder(codec, median, sharpen, strict)

    def decode(self, packet: Union[bytes, bytearray, memoryview, numpy.ndarray]) -> List[Frame]:
        """Feeds one packet (any contiguous bytes-like object); the pictures that came out.

        Raises DecodeError when the library refuses the packet (`code` -996 for
        one the decoder can't decode); a packet before the stream's parameters
        gives no picture and no error.
        """
        item = self._decoder.decode(packet)
        return [] if item is None else [_frame(*item)]

    def flush(self) -> List[Frame]:
        """The pictures the decoder still holds at the end of a stream (none when strict)."""
        frames = []
        while (item := self._decoder.drain()) is not None:
            frames.append(_frame(*item))
        return frames


def sharpen(img: numpy.ndarray, border: str = "replicate", value=None) -> numpy.ndarray:
    """The library's fixed 3 x 3 sharpen of an (H, W, 3) uint8 array, as a new array.

    Each byte becomes 17 times itself less the nine around it (itself
    included), limited at 0, divided by 8 to nearest (ties to even), limited
    at 255. border: "replicate" (the nearest pixel of the image) or "constant"
    (`value`: one integer, or one per channel; zeros for None). Other dtypes
    and shapes raise ValueError. Runs without the interpreter's lock.
    """
    return _corvane.sharpen(img, border, value)


def median(img: numpy.ndarray, ksize: Union[int, Tuple[int, int]], border: str = "replicate",
           value: Union[None, int, Sequence[int]] = None) -> numpy.ndarray:
    """The median of each channel over every ksize window of img, in a new array.

    img: an (height, width, 3) or (height, width, 4) array of uint8, uint16 or
        int16 (other layouts are copied first); all channels are filtered.
    ksize: an odd side for a square window, or an odd (width, height) pair.
    border: "replicate" (the nearest edge pixel) or "constant" (`value`) for
        the neighbours outside the image.
    value: the constant border's pixel: None (zeros), one integer for every
        channel, or one per channel.

    The result is exact (the middle of the sorted window) on every code path.
    Raises ValueError naming a bad array, ksize, border or value. Runs without
    the interpreter's lock.
    """
    return _corvane.median(img, ksize, border, value)
