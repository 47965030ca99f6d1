#!/usr/bin/env python3
"""Writes the committed seed corpora of the decoder's fuzz targets from tiny
streams made with the ffmpeg tool. Run by hand when a target's input format
changes; the fuzzers read fuzz/corpus/<target>/.

fuzz_h264parser: each stream's first 3000 bytes (parameter sets, SEI and the
first slices) of the kinds the parser reads.
fuzz_decompress: settings byte, then one chunk an access unit (control byte
and packet) parted by 00 00 01 FF; see fuzz_decompress.cpp.
Usage: fuzz/make_seeds.py
"""
import os
import subprocess
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
SEPARATOR = b"\x00\x00\x01\xff"


def encode(args, size="64x48", frames=6, source="testsrc2"):
    with tempfile.TemporaryDirectory() as tmp:
        path = os.path.join(tmp, "clip")
        subprocess.run(["ffmpeg", "-nostdin", "-y", "-loglevel", "error", "-f", "lavfi", "-i",
                        f"{source}=size={size}:rate=25", "-frames:v", str(frames), *args, path],
                       check=True)
        with open(path, "rb") as f:
            return f.read()


def access_units(stream, hevc):
    """Cuts an Annex B stream at its access unit delimiters, which it drops: a
    packet opens with its parameter sets, as the decoder's first-frames step
    expects."""
    starts = []
    i = stream.find(b"\x00\x00\x01")
    while i >= 0:
        header = stream[i + 3] if i + 3 < len(stream) else 0
        is_aud = ((header >> 1) & 0x3F) == 35 if hevc else (header & 0x1F) == 9
        if is_aud:
            starts.append(i - 1 if i > 0 and stream[i - 1] == 0 else i)
        i = stream.find(b"\x00\x00\x01", i + 3)
    starts.append(len(stream))
    units = []
    for a, b in zip(starts, starts[1:]):
        unit = stream[a:b]
        after_aud = unit.find(b"\x00\x00\x01", unit.find(b"\x00\x00\x01") + 3)
        units.append(unit[after_aud - 1 if unit[after_aud - 1] == 0 else after_aud:])
    return units


def h264(*args, params="", **kw):
    params = "aud=1" + (":" + params if params else "")
    return access_units(encode(["-c:v", "libx264", *args, "-x264-params", params, "-f", "h264"],
                               **kw), False)


def hevc(params, **kw):
    params = "aud=1:log-level=error:" + params
    return access_units(encode(["-c:v", "libx265", "-x265-params", params, "-f", "hevc"], **kw),
                        True)


def write(target, name, data):
    folder = os.path.join(HERE, "corpus", target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


def decompress_seed(name, settings, units, controls):
    """`controls` gives each unit's control byte, repeating the last."""
    chunks = [bytes([controls[min(i, len(controls) - 1)]]) + unit for i, unit in enumerate(units)]
    write("fuzz_decompress", name + ".bin", bytes([settings]) + SEPARATOR.join(chunks))


def main():
    parser_seeds = {
        "baseline": ["-profile:v", "baseline"],
        "main": ["-profile:v", "main"],
        "high_cqm": ["-profile:v", "high", "-x264-params", "cqm=jvt"],
        "high444": ["-pix_fmt", "yuv444p", "-profile:v", "high444"],
        "mbaff_bff": ["-x264-params", "interlaced=1:bff=1:slices=2"],
        "hrd_pic_struct": ["-x264-params", "nal-hrd=vbr:pic-struct=1", "-b:v", "100k",
                           "-maxrate", "150k", "-bufsize", "300k"],
        "odd_size_cropped": ["-vf", "scale=50:38", "-profile:v", "main"],
    }
    for name, args in parser_seeds.items():
        write("fuzz_h264parser", name + ".h264",
              encode(["-c:v", "libx264", *args, "-f", "h264"], frames=3)[:3000])

    # Settings: CORVANE_OPTION_* | what else, in the high nibble: 0x80 one
    # session, 0x90 one session drained, 0xA0 drained at the end, 0xB0 reset
    # first, 0xC0 a fresh session, 0xD0 frame threads (if asked for) and drained. Control bytes: road (0 H.264, 1 median,
    # 2 H.265, 3 sharpen) | output << 2 (0 buffer, 1 callback, 2 neither,
    # 3 exact) | event, in the high nibble: 0xC0 negative size, 0xD0 drain
    # after, 0xE0 reset inside the callback, 0xF0 reset before.
    baseline = h264("-profile:v", "baseline")
    bframes = h264("-bf", "3", params="b-pyramid=normal")
    decompress_seed("baseline", 0x00, baseline, [0x00])
    decompress_seed("baseline_exact_negative", 0x00, baseline, [0x0C, 0x0C, 0xCC, 0x0C])
    decompress_seed("bframes_median_callback", 0x00, bframes, [0x05])
    decompress_seed("bframes_frame_threads_drain", 0xD8, bframes, [0x00])
    decompress_seed("bframes_drain_midway", 0x00, bframes, [0x00, 0x00, 0xD0, 0x00])
    decompress_seed("mbaff_exact", 0x00, h264("-bf", "2", params="interlaced=1"), [0x0C])
    decompress_seed("high444_odd_median", 0x00,
                    h264("-pix_fmt", "yuv444p", "-bf", "0", size="50x38", source="testsrc"),
                    [0x01, 0x0D])
    decompress_seed("slices_conformant", 0xB4,
                    h264("-bf", "0", params="slices=4", size="176x144"), [0x00])
    decompress_seed("sps_id1_anywhere", 0x01, h264("-bf", "0", params="sps-id=1"), [0xF0, 0x00])
    decompress_seed("callback_resets_itself", 0x00, baseline, [0x04, 0xE4, 0x04, 0x08])
    decompress_seed("sharpen", 0x00, baseline, [0x03, 0x07])
    decompress_seed("full_picture_fresh", 0xC2, baseline, [0x00])
    hevc_units = hevc("bframes=2")
    decompress_seed("hevc", 0x00, hevc_units, [0x02])
    decompress_seed("hevc_callback_drain", 0xA0, hevc_units, [0x06])
    # One session through a codec change and back, drained at the end.
    decompress_seed("h264_then_hevc", 0x90, baseline[:3] + hevc_units[:3] + baseline[:2],
                    [0x00, 0x00, 0x00, 0x02, 0x02, 0x02, 0x00])


if __name__ == "__main__":
    main()
