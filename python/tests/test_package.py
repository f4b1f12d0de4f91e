import os
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


def test_pip_installs_a_wheel_with_metadata_offline(tmp_path):
    subprocess.run([sys.executable, "-m", "pip", "install", "-q", "--no-index", "--disable-pip-version-check",
                    "--target", str(tmp_path), str(ROOT / "python")], check=True, capture_output=True)
    probe = "import importlib.metadata as m, uhfhost; print(m.version('uhfhost'), uhfhost.__file__)"
    out = subprocess.run([sys.executable, "-c", probe], env={**os.environ, "PYTHONPATH": str(tmp_path)},
                         cwd=tmp_path, check=True, capture_output=True, text=True).stdout.split()
    assert out == [(ROOT / "VERSION").read_text().strip(), str(tmp_path / "uhfhost" / "__init__.py")]
    assert (tmp_path / "uhfhost" / "py.typed").exists()
