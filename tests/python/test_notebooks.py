"""The notebooks of docs/, cell by cell; each compares itself with SciPy and ends in a picture."""

import json
from pathlib import Path

import pytest

matplotlib = pytest.importorskip("matplotlib", reason="install python3-matplotlib")
matplotlib.use("Agg")

VOICE = Path("/usr/share/sounds/alsa/Front_Center.wav")
NOTEBOOKS = sorted((Path(__file__).resolve().parents[2] / "docs" / "notebooks").glob("*.ipynb"))


@pytest.mark.parametrize("path", NOTEBOOKS, ids=lambda path: path.stem)
def test_runs_to_its_picture(path, tmp_path, monkeypatch):
    from matplotlib import pyplot

    if str(VOICE) in path.read_text(encoding="utf-8") and not VOICE.exists():
        pytest.skip("install alsa-utils")
    shown = []

    def show():
        for number in pyplot.get_fignums():
            figure = pyplot.figure(number)
            shown.append(sum(len(axes.get_lines()) for axes in figure.axes))
            figure.savefig(tmp_path / f"{path.stem}-{len(shown)}.svg")
        pyplot.close("all")

    monkeypatch.setattr(pyplot, "show", show)
    notebook = json.loads(path.read_text(encoding="utf-8"))
    assert notebook["nbformat"] == 4
    names = {"__name__": "__main__"}
    for number, cell in enumerate(notebook["cells"]):
        if cell["cell_type"] == "code":
            assert cell["outputs"] == [], "kept without outputs"
            exec(compile("".join(cell["source"]), f"{path.name}[{number}]", "exec"), names)
    assert shown and all(shown), "a picture with something in it"
    assert (tmp_path / f"{path.stem}-1.svg").stat().st_size > 5000


def test_there_are_three():
    assert [path.stem for path in NOTEBOOKS] == ["heart-beats", "live-filter", "third-octaves"]
