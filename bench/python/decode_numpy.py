#!/usr/bin/env python3
"""Decode a 1080p H.264 MP4 into numpy BGR arrays: corvane.open against
cv2.VideoCapture and PyAV's frame.to_ndarray(format="bgr24"), same file, same
run, frames a second.

    PYTHONPATH=build/main/python /usr/bin/python3 bench/python/decode_numpy.py [--runs N] [FILE]

Without FILE the stream is made once with the ffmpeg command line (testsrc2,
1920x1080, 25 fps, libx264's defaults: B-frames, one slice a picture) under
build/bench-data/. The sides take turns, every run each; each side's best and
median are printed with the CPU time a frame takes over all threads, its thread
settings and the threads its decoding added to the process, then corvane's
ratio to the faster peer (above 1: corvane is faster).
"""
import argparse
import gc
import os
import pathlib
import statistics
import subprocess
import time

import av
import cv2

import corvane

ROOT = pathlib.Path(__file__).resolve().parents[2]


def make_stream(frames):
    path = ROOT / "build" / "bench-data" / f"python_1080p_{frames}.mp4"
    if not path.exists():
        path.parent.mkdir(parents=True, exist_ok=True)
        partial = path.with_suffix(".part.mp4")
        subprocess.run(["ffmpeg", "-nostdin", "-y", "-loglevel", "error", "-f", "lavfi", "-i",
                        "testsrc2=size=1920x1080:rate=25", "-frames:v", str(frames),
                        "-c:v", "libx264", str(partial)], check=True)
        partial.rename(path)
    return str(path)


def threads():
    return len(os.listdir("/proc/self/task"))


class Count:
    """Counts pictures, and notes how many threads the decoding added by the tenth."""

    def __init__(self):
        self.pictures = 0
        self.before = threads()
        self.threads = 0

    def add(self, image):
        assert image.shape == (1080, 1920, 3)
        self.pictures += 1
        if self.pictures == 10:
            self.threads = threads() - self.before


def with_corvane(path, count):
    for frame in corvane.open(path):
        count.add(frame)
    return "the library's file options: FFmpeg's automatic count, frame + slice threads"


def with_opencv(path, count):
    capture = cv2.VideoCapture(path, cv2.CAP_FFMPEG)
    while True:
        ok, image = capture.read()
        if not ok:
            break
        count.add(image)
    capture.release()
    return "OpenCV's FFmpeg backend as it comes (4.6 has no thread property)"


def pyav(thread_type):
    def run(path, count):
        with av.open(path) as container:
            stream = container.streams.video[0]
            if thread_type:
                stream.thread_type = thread_type
            settings = f"thread_type {stream.thread_type}, thread_count {stream.thread_count}"
            for frame in container.decode(stream):
                count.add(frame.to_ndarray(format="bgr24"))
        return settings
    return run


SIDES = {
    "corvane.open": with_corvane,
    "cv2.VideoCapture": with_opencv,
    "PyAV (as opened)": pyav(None),
    "PyAV thread_type=AUTO": pyav("AUTO"),
}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("file", nargs="?")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--frames", type=int, default=250, help="of the stream made")
    args = parser.parse_args()
    path = args.file or make_stream(args.frames)
    print(f"{path}; corvane {corvane.__version__}, OpenCV {cv2.__version__}, PyAV "
          f"{av.__version__}; {os.cpu_count()} cores, load {os.getloadavg()[0]:.2f}")
    rates = {name: [] for name in SIDES}
    cpu = {name: [] for name in SIDES}
    settings = {}
    counts = {}
    for _ in range(args.runs):
        for name, side in SIDES.items():
            gc.collect()  # the decoders of the side before gone, with their threads
            counts[name] = Count()
            start, start_cpu = time.perf_counter(), time.process_time()
            settings[name] = side(path, counts[name])
            rates[name].append(counts[name].pictures / (time.perf_counter() - start))
            cpu[name].append((time.process_time() - start_cpu) * 1000 / counts[name].pictures)
    for name in SIDES:
        print(f"{name:24} {max(rates[name]):7.1f} frames/s best, "
              f"{statistics.median(rates[name]):7.1f} median, "
              f"{statistics.median(cpu[name]):5.2f} ms CPU a frame (all threads), "
              f"{counts[name].pictures} frames; {settings[name]}; "
              f"{counts[name].threads} threads added")
    peer = max((n for n in SIDES if n != "corvane.open"), key=lambda n: max(rates[n]))
    print(f"corvane / {peer}: {max(rates['corvane.open']) / max(rates[peer]):.2f}x best, "
          f"{statistics.median(rates['corvane.open']) / statistics.median(rates[peer]):.2f}x "
          "median")


if __name__ == "__main__":
    main()
