import inspect
import json
import os
import subprocess
import sys
from pathlib import Path

import pytest

import uhfhost

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("UHF_BUILD_DIR", ROOT / "build" / "dev"))


def test_settings_equal_uhfctls_table():
    run = subprocess.run([str(BUILD / "cli" / "uhfctl"), "settings", "--format", "json"], capture_output=True, text=True)
    if run.returncode != 0 and "unknown subcommand" in run.stderr:
        pytest.skip("this uhfctl has no `settings` subcommand to print its settings table")
    assert run.returncode == 0, run.stderr
    rows = {r["name"]: (r.get("min"), r.get("max"), r.get("choices")) for r in map(json.loads, run.stdout.splitlines())}
    mine = {name: (None, None, list(s.choices)) if s.choices else (s.low, s.high, None)
            for name, s in uhfhost.SETTINGS.items()}
    assert mine == {name: rows.get(name) for name in mine}


def test_pip_installs_a_wheel_with_metadata_offline(tmp_path):
    subprocess.run([sys.executable, "-m", "pip", "install", "-q", "--no-index", "--disable-pip-version-check",
                    "--target", str(tmp_path), str(ROOT / "python")], check=True, capture_output=True)
    probe = "import importlib.metadata as m, uhfhost; print(m.version('uhfhost'), uhfhost.__file__)"
    out = subprocess.run([sys.executable, "-c", probe], env={**os.environ, "PYTHONPATH": str(tmp_path)},
                         cwd=tmp_path, check=True, capture_output=True, text=True).stdout.split()
    assert out == [(ROOT / "VERSION").read_text().strip(), str(tmp_path / "uhfhost" / "__init__.py")]
    assert (tmp_path / "uhfhost" / "py.typed").exists()


def test_every_public_name_has_a_docstring_and_type_hints():
    names = [getattr(uhfhost, n) for n in uhfhost.__all__ if inspect.isclass(getattr(uhfhost, n))
             or inspect.isfunction(getattr(uhfhost, n))]
    members = [m for cls in names if inspect.isclass(cls) and cls.__module__.startswith("uhfhost")
               for n, m in vars(cls).items() if not n.startswith("_") and callable(getattr(m, "fget", m))]
    for fn in names + members:
        fn = getattr(fn, "fget", fn)
        assert inspect.getdoc(fn), fn
        if inspect.isfunction(fn):
            assert "return" in fn.__annotations__ and all(p in fn.__annotations__ for p in
                                                         inspect.signature(fn).parameters if p != "self"), fn


def test_open_sim_starts_a_virtual_reader_and_says_when_there_is_none(monkeypatch):
    monkeypatch.setenv("UHFSIM", str(BUILD / "sim" / "uhfsim"))
    with uhfhost.open("sim") as r:
        assert r.power == 30 and repr(r) == "<uhfhost.Reader sim link %d open>" % r._link
    assert r._process.poll() is not None
    monkeypatch.setenv("UHFSIM", "/no/uhfsim")
    with pytest.raises(uhfhost.ReaderNotFound, match="UHFSIM=/no/uhfsim"):
        uhfhost.open("sim")
