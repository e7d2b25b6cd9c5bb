#!/usr/bin/env python3
"""Writes the code blocks of a document that begin with "// <path>" to files of that path.

  extract.py DOCUMENT FOLDER"""

import pathlib
import re
import sys

document, folder = map(pathlib.Path, sys.argv[1:])
for path, code in re.findall(r"^```cpp\n// (\S+)\n(.*?)^```", document.read_text(), re.M | re.S):
    target = folder / path
    target.parent.mkdir(parents=True, exist_ok=True)
    if not target.exists() or target.read_text() != code:
        target.write_text(code)
