#!/usr/bin/env python3
"""Adds up the GoogleTest XML reports of one or more result folders.

Prints the skipped cases with their reasons (a code path the CPU lacks is
reported as skipped, never as passed) and closes with `N passed, N failed, N skipped`.
Exits non-zero when a case failed, a binary wrote no report, or nothing ran."""
import glob
import sys
import xml.etree.ElementTree as ET

passed = failed = skipped = 0
skips = []
failures = []
for folder in sys.argv[1:]:
    for path in sorted(glob.glob(folder + "/*.xml")):
        try:
            root = ET.parse(path).getroot()
        except ET.ParseError:
            failed += 1
            failures.append(f"{path}: unreadable report (crash?)")
            continue
        for case in root.iter("testcase"):
            name = f"{case.get('classname')}.{case.get('name')}"
            if case.find("failure") is not None or case.find("error") is not None:
                failed += 1
                failures.append(name)
            elif case.get("result") == "skipped" or case.find("skipped") is not None:
                skipped += 1
                node = case.find("skipped")
                reason = (node.get("message") if node is not None else "") or ""
                skips.append(f"{name}: {reason.strip().splitlines()[-1] if reason.strip() else ''}")
            elif case.get("status") == "notrun":
                continue
            else:
                passed += 1
if skips:
    print("skipped:")
    for s in skips:
        print("  " + s)
if failures:
    print("failed:")
    for f in failures:
        print("  " + f)
print(f"{passed} passed, {failed} failed, {skipped} skipped")
sys.exit(1 if failed or passed == 0 else 0)
