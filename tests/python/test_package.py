"""The command line, an installed copy, and no leak over a thousand decodes."""
import os
import resource
import subprocess
import sys
import tracemalloc

import numpy
import pytest

import corvane
from conftest import X264, X265, access_units, ffmpeg_pictures, make_stream


def run(*args, **kwargs):
    return subprocess.run([sys.executable, *args], capture_output=True, text=True, **kwargs)


def test_command_line(tmp_path):
    path = make_stream("h265.mkv", X265)
    info = run("-m", "corvane", "info", path)
    assert info.returncode == 0, info.stderr
    assert info.stdout.splitlines() == [
        "container: matroska,webm", "codec:     h265", "size:      160x96",
        "duration:  0.560 s", "pictures:  14"]

    raw = tmp_path / "pictures.bgr"
    decode = run("-m", "corvane", "decode", path, "--raw", str(raw))
    assert decode.returncode == 0 and "14 pictures, 160x96" in decode.stdout, decode.stderr
    assert raw.read_bytes() == ffmpeg_pictures(path, 160, 96).tobytes()

    bad = run("-m", "corvane", "decode", str(tmp_path / "missing.mp4"))
    assert bad.returncode == 1 and bad.stderr.startswith("corvane: error: [Errno 2]")
    assert run("-m", "corvane", "--version").stdout.strip() == corvane.__version__


@pytest.mark.skipif("CORVANE_BUILD_DIR" not in os.environ, reason="needs the build tree")
def test_installed_package_imports_from_its_prefix(tmp_path):
    for component in ("runtime", "python"):
        subprocess.run(["cmake", "--install", os.environ["CORVANE_BUILD_DIR"], "--prefix",
                        str(tmp_path), "--component", component], check=True,
                       capture_output=True)
    site = next(tmp_path.glob("lib/python3*/*-packages"))
    env = {name: os.environ[name] for name in ("PATH", "LD_PRELOAD", "ASAN_OPTIONS")
           if name in os.environ}
    env["PYTHONPATH"] = str(site)
    ran = run("-c", "import corvane; print(corvane.__file__, corvane.__version__)",
              env=env, cwd=tmp_path)
    assert ran.returncode == 0, ran.stderr
    assert ran.stdout.split() == [str(site / "corvane" / "__init__.py"), corvane.__version__]


def resident_kib():
    return int(open("/proc/self/statm").read().split()[1]) * resource.getpagesize() // 1024


@pytest.mark.skipif("CORVANE_SANITIZE" in os.environ,
                    reason="the sanitizer's quarantine holds freed memory")
def test_no_leak_over_a_thousand_decodes():
    path = make_stream("small.mkv", X264, size=(64, 48), frames=3)
    packets = access_units("h265")[1][:3]

    def decode_file():  # a file read in full, and a stream left midway
        with corvane.open(path) as reader:
            assert sum(frame.shape == (48, 64, 3) for frame in reader) == 3
        decoder = corvane.Decoder("h265")
        for packet in packets:
            decoder.decode(packet)

    for _ in range(100):  # FFmpeg's and the allocator's pools settle
        decode_file()
    tracemalloc.start()
    before_rss = resident_kib()
    for _ in range(1000):
        decode_file()
    grown = tracemalloc.get_traced_memory()[0]
    tracemalloc.stop()
    # A session, a file or a picture kept each time would be tens of MiB.
    assert resident_kib() - before_rss < 4096
    assert grown < 64 * 1024
