"""The wheel that `pip install .` makes: it has all that it needs in itself."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

import sigweave

pytest.importorskip("setuptools", reason="install python3-setuptools")
pytest.importorskip("wheel", reason="install python3-wheel")
pytest.importorskip("pip", reason="install python3-pip")

SOURCE = Path(__file__).resolve().parents[2]
BUILD = Path(sigweave.__file__).resolve().parents[2]
USE = """
import sys
import sigweave

graph = sigweave.Graph(module_path=[sys.argv[1], ""])
graph.add("Generator", "tone", unit="V", amplitude=2)
graph.add("Clip", "clip")
graph.connect("tone.Signal", "clip.Signal")
print(graph.run(keep=["clip.Signal"])["clip.Signal"].max())
used = {line.split()[-1] for line in open("/proc/self/maps") if "sigweave" in line or "loader.so" in line}
print(len(sigweave.modules()) > 10, *sorted(path for path in used if "/" in path))
"""


def test_is_built_offline_and_needs_nothing_else(tmp_path):
    shutil.copytree(SOURCE / "python", tmp_path / "python", ignore=shutil.ignore_patterns("build", "*.egg-info", "__pycache__"))
    environment = {name: value for name, value in os.environ.items() if name != "PYTHONPATH"}
    pip = [sys.executable, "-m", "pip", "--disable-pip-version-check", "--no-cache-dir"]
    offline = ["--no-deps", "--no-index"]
    subprocess.run(
        [*pip, "wheel", "./python", "--no-build-isolation", *offline, "-w", "dist"],
        env={**environment, "SIGWEAVE_BUILD": str(BUILD)},
        check=True,
        timeout=250,
        capture_output=True,
    )
    (wheel,) = (tmp_path / "dist").glob("sigweave-*.whl")
    subprocess.run([*pip, "install", *offline, "--target", "site", wheel], env=environment, check=True, timeout=100, capture_output=True)
    used = subprocess.run(
        [sys.executable, "-c", USE, SOURCE / "examples" / "python"],
        env={**environment, "PYTHONPATH": str(tmp_path / "site")},
        capture_output=True,
        text=True,
        timeout=100,
    )
    assert used.returncode == 0, used.stderr
    peak, rest = used.stdout.splitlines()
    is_whole, *libraries = rest.split()
    assert (float(peak), is_whole) == (1.0, "True")
    assert len(libraries) > 3 and all(path.startswith(str(tmp_path / "site")) for path in libraries), libraries
