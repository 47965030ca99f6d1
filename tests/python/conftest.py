"""Test streams made with the ffmpeg command line, and ffprobe's and ffmpeg's
view of them as the oracle."""
import hashlib
import os
import pathlib
import subprocess

import numpy

DATA = pathlib.Path(os.environ.get("CORVANE_TEST_DATA_DIR", "/tmp/corvane-test-data")) / "python"
X264 = "-c:v libx264"
X265 = "-c:v libx265 -x265-params log-level=error"


def make_stream(name, args, size=(160, 96), frames=14, source="testsrc2"):
    """A clip in the container of `name`'s extension, made once per recipe."""
    recipe = f"{size}/{frames}/{args}/{source}"
    stem, ext = name.rsplit(".", 1)
    path = DATA / f"{stem}-{hashlib.sha1(recipe.encode()).hexdigest()[:12]}.{ext}"
    if not path.exists():
        DATA.mkdir(parents=True, exist_ok=True)
        partial = path.with_name(f"{path.stem}.part{os.getpid()}.{ext}")
        subprocess.run(["ffmpeg", "-nostdin", "-y", "-loglevel", "error", "-f", "lavfi", "-i",
                        f"{source}=size={size[0]}x{size[1]}:rate=25", "-frames:v", str(frames),
                        *args.split(), str(partial)], check=True)
        partial.rename(path)
    return str(path)


def ffprobe(path, entries):
    """ffprobe's values of `entries` for the video stream, one line each."""
    out = subprocess.run(["ffprobe", "-v", "error", "-count_frames", "-select_streams", "v:0",
                          "-show_entries", entries, "-of", "csv=p=0", path],
                         check=True, capture_output=True, text=True).stdout
    return [line.strip(",") for line in out.splitlines() if line.strip(",")]


def ffmpeg_pictures(path, width, height):
    """Every picture as FFmpeg converts it to BGR24: (n, height, width, 3)."""
    raw = subprocess.run(["ffmpeg", "-nostdin", "-loglevel", "error", "-i", path, "-pix_fmt",
                          "bgr24", "-sws_flags", "fast_bilinear", "-fps_mode", "passthrough",
                          "-f", "rawvideo", "-"], check=True, capture_output=True).stdout
    return numpy.frombuffer(raw, numpy.uint8).reshape(-1, height, width, 3)


# Raw streams cut into access units at each delimiter.
DELIMITED = {"h264": (X264 + " -x264-params aud=1", b"\0\0\0\1\x09"),
             "h265": (X265 + ":aud=1", b"\0\0\0\1\x46\x01")}


def access_units(codec):
    args, delimiter = DELIMITED[codec]
    path = make_stream(f"aud.{codec}", args)
    return path, [delimiter + unit for unit in
                  pathlib.Path(path).read_bytes().split(delimiter)[1:]]
