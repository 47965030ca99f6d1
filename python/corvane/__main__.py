"""python3 -m corvane decode FILE | info FILE: the package from the command line."""
from __future__ import annotations

import argparse
import sys
import time
from typing import List, Optional

import corvane


def _decode(args: argparse.Namespace) -> int:
    start = time.perf_counter()
    count = 0
    out = open(args.raw, "wb") if args.raw else None
    try:
        with corvane.open(args.file, median=args.median, sharpen=args.sharpen,
                          strict=args.strict) as reader:
            for frame in reader:
                count += 1
                if out:
                    out.write(frame.data)
            size = f"{reader.width}x{reader.height}"
    finally:
        if out:
            out.close()
    seconds = time.perf_counter() - start
    rate = count / seconds if seconds > 0 else 0.0
    print(f"{args.file}: {count} pictures, {size}, {seconds:.2f} s, {rate:.1f} pictures/s")
    return 0 if count else 1


def _info(args: argparse.Namespace) -> int:
    with corvane.open(args.file) as reader:
        lines = [("container", reader.format), ("codec", reader.codec),
                 ("size", f"{reader.width}x{reader.height}"),
                 ("duration", f"{reader.duration:.3f} s" if reader.duration else "unknown")]
        pictures = sum(1 for _ in reader)
    for name, value in lines + [("pictures", pictures)]:
        print(f"{name + ':':11}{value}")
    return 0


def main(argv: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(prog="python3 -m corvane",
                                     description="Decodes H.264/H.265 video with Corvane.")
    parser.add_argument("--version", action="version", version=corvane.__version__)
    commands = parser.add_subparsers(dest="command", required=True)
    decode = commands.add_parser("decode", help="decode every picture, print a summary")
    decode.add_argument("file")
    stage = decode.add_mutually_exclusive_group()
    stage.add_argument("--median", action="store_true", help="3 x 3 median clean-up (H.264)")
    stage.add_argument("--sharpen", action="store_true", help="sharpen stage (H.264)")
    decode.add_argument("--strict", action="store_true",
                        help="the designed exports alone: no options, no drain")
    decode.add_argument("--raw", metavar="OUT", help="write every picture's BGR24 bytes to OUT")
    decode.set_defaults(run=_decode)
    info = commands.add_parser("info", help="container, codec, size, duration, pictures")
    info.add_argument("file")
    info.set_defaults(run=_info)
    args = parser.parse_args(argv)
    try:
        return args.run(args)
    except (OSError, ValueError, NotImplementedError, corvane.DecodeError) as error:
        print(f"corvane: error: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
