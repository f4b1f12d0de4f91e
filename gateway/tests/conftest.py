"""Fixtures: a mosquitto broker and a uhfsim on free loopback ports."""
import pytest

from uhfd_harness import BUILD, EPCS, Broker, Proc, free_port, write_tags


@pytest.fixture
def broker(tmp_path):
    b = Broker(tmp_path)
    yield b
    b.proc.stop()


@pytest.fixture
def sim(tmp_path):
    tags, port = tmp_path / "tags.json", free_port()
    write_tags(tags, EPCS)
    s = Proc([BUILD / "sim" / "uhfsim", "--tcp", f"127.0.0.1:{port}", "--tags", tags, "--rate", "200"], ready="tcp ")
    s.port, s.tags = port, tags
    yield s
    s.stop()


def pytest_configure(config):
    config.addinivalue_line("markers", "sim_args(*options): extra uhfsim options for a test's rig")
