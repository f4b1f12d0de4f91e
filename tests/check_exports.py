#!/usr/bin/env python3
"""Every UHF_API name in the public headers is exported by the shared library,
and nothing else of substance is (no C++ internals)."""
import pathlib
import re
import subprocess
import sys

lib, inc = sys.argv[1], pathlib.Path(sys.argv[2])
declared = set()
for header in inc.glob("*.h"):
    text = re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.S)
    text = re.sub(r"^#.*$", "", text, flags=re.M)
    for decl in re.findall(r"UHF_API\s+([^;{]+)", text):
        decl = " ".join(decl.split())
        m = re.search(r"(\w+)\s*\(", decl) if "extern" not in decl else None
        if m is None:
            m = re.search(r"(\w+)\s*(\[[^\]]*\])?\s*$", decl)
        declared.add(m.group(1))

out = subprocess.run(["nm", "-D", "--defined-only", lib], capture_output=True, text=True, check=True).stdout
exported = {line.split()[-1].split("@")[0] for line in out.splitlines() if line.strip()}
missing = sorted(declared - exported)
internals = sorted(s for s in exported if s.startswith("_Z"))
# Sanitizer builds add their own bookkeeping symbols.
extra = sorted(s for s in exported - declared - {"UHFHOST_1"} if not s.startswith(("__odr_asan", "__asan", "__ubsan")))
print(f"{len(declared)} declared, {len(exported)} exported")
if missing:
    print("missing:", " ".join(missing))
if internals:
    print("C++ internals exported:", " ".join(internals[:20]))
if extra:
    print("exported but not declared:", " ".join(extra))
sys.exit(1 if missing or internals or extra else 0)
