"""Reads the library's C prototypes into ctypes declarations.

Used to write ``_decls.py`` and by the test that keeps it in step with the
installed headers; the package itself never parses a header at run time.
"""
from __future__ import annotations

import re
from pathlib import Path

# C scalar types as ctypes names; every pointer is a c_void_p except text.
_SCALARS = {
    "void": None, "int": "c_int", "unsigned int": "c_uint", "unsigned": "c_uint", "long": "c_long",
    "unsigned long": "c_ulong", "long long": "c_longlong", "char": "c_char", "unsigned char": "c_ubyte",
    "uint8_t": "c_uint8", "uint16_t": "c_uint16", "uint32_t": "c_uint32", "uint64_t": "c_uint64",
    "int16_t": "c_int16", "unsigned short": "c_ushort", "short": "c_short", "float": "c_float", "speed_t": "c_uint",
    "ERROR_STATE": "c_int", "OnDataReceived": "c_void_p", "INVENTORY_MODE": "c_int", "ENUM_LOG": "c_int",
}


def _ctype(decl: str, named: bool = True) -> str | None:
    """The ctypes name for one parameter (or a return type when named is False)."""
    decl = " ".join(decl.replace("const ", "").split())
    if "(*" in decl:
        return "c_void_p"  # a callback
    if "*" in decl or "[" in decl:
        base = decl.split("*")[0].strip()
        return "c_char_p" if base == "char" else "c_void_p"
    words = decl.split()
    if named and len(words) > 1:
        words = words[:-1]  # drop the parameter's name
    kind = " ".join(words)
    if kind not in _SCALARS:
        raise ValueError(f"no ctypes mapping for {kind!r}")
    return _SCALARS[kind]


def _split_top(text: str) -> list[str]:
    parts, depth, cur = [], 0, ""
    for ch in text:
        depth += ch == "("
        depth -= ch == ")"
        if ch == "," and depth == 0:
            parts.append(cur)
            cur = ""
        else:
            cur += ch
    return parts + [cur] if cur.strip() else parts


def parse(include_dir: Path) -> dict[str, tuple[str | None, tuple[str, ...], bool]]:
    """Every exported function: name -> (result, parameters, variadic)."""
    out = {}
    for header in sorted(Path(include_dir).glob("*.h")):
        text = re.sub(r"/\*.*?\*/|//[^\n]*", "", header.read_text(), flags=re.S)
        text = re.sub(r"__attribute__\s*\(\((?:[^()]|\([^()]*\))*\)\)", "", text)
        for decl in re.findall(r"UHF_API\s+([^;{]+);", text):
            if decl.lstrip().startswith("extern"):
                continue
            head, _, rest = decl.partition("(")
            args = rest[: rest.rindex(")")]
            token = head.split()[-1]
            name = token.lstrip("*")
            ret = _ctype(head[: head.rindex(token)] + ("*" if token.startswith("*") else ""), named=False)
            params = [a.strip() for a in _split_top(args)]
            variadic = "..." in params
            params = [p for p in params if p not in ("...", "void", "")]
            out[name] = (ret, tuple(_ctype(p) for p in params), variadic)
    return out


def render(decls: dict) -> str:
    lines = ['"""Every exported function of libuhfhost: name: (result, parameters, variadic).', "",
             "Written by ``python3 -m uhfhost._header`` from the library's headers; a test", 'checks it against them."""',
             "DECLS = {"]
    for name, (ret, params, variadic) in sorted(decls.items()):
        lines.append(f"    {name!r}: ({ret!r}, {params!r}, {variadic}),")
    return "\n".join(lines + ["}", ""])


if __name__ == "__main__":
    import sys

    src = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).resolve().parents[2] / "source" / "inc"
    (Path(__file__).parent / "_decls.py").write_text(render(parse(src)))
