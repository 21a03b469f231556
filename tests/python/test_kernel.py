"""In a kernel of a notebook: its stop button ends a run in order, and what is left at the end of a cell is shown."""

import json
import sys

import pytest

pytest.importorskip("ipykernel", reason="install python3-ipykernel")
client = pytest.importorskip("jupyter_client", reason="install python3-jupyter-client")

SECONDS = 60
SETUP = "import sys; sys.path[:0] = %r\nimport conftest, sigweave\ngraph = conftest.endless()"


class Kernel:
    def __init__(self, folder):
        spec = folder / "kernels" / "sigweave"
        spec.mkdir(parents=True)
        argv = [sys.executable, "-m", "ipykernel_launcher", "-f", "{connection_file}"]
        (spec / "kernel.json").write_text(json.dumps({"argv": argv, "display_name": "sigweave", "language": "python"}))
        specs = client.kernelspec.KernelSpecManager(kernel_dirs=[str(spec.parent)])
        self.manager = client.KernelManager(kernel_name="sigweave", kernel_spec_manager=specs, transport="ipc", ip=str(folder / "k"))
        self.manager.start_kernel()
        self.client = self.manager.blocking_client()
        self.client.start_channels()
        self.client.wait_for_ready(timeout=SECONDS)

    def begin(self, code, until):
        """Runs a cell up to that output."""
        self.client.execute(code, stop_on_error=False)  # else it may refuse the next one
        text = ""
        while until not in text:
            text += self.client.get_iopub_msg(timeout=SECONDS)["content"].get("text", "")

    def end(self):
        """How the cell ended."""
        return self.client.get_shell_msg(timeout=SECONDS)["content"]

    def run(self, code):
        """The reply of a cell, and what it printed and showed."""
        seen = []

        def keep(message):
            seen.append(message["content"])

        reply = self.client.execute_interactive(code, timeout=SECONDS, output_hook=keep)["content"]
        return reply, "".join(one.get("text", "") for one in seen), [one["data"] for one in seen if "data" in one]


@pytest.fixture
def kernel(tmp_path):
    made = Kernel(tmp_path)
    yield made
    made.client.stop_channels()
    made.manager.shutdown_kernel(now=True)


def test_the_stop_button_ends_a_run_in_order(kernel):
    assert kernel.run(SETUP % sys.path)[0]["status"] == "ok"
    kernel.begin("graph.run(keep=['lp.Signal'], progress=True)", "\r")
    kernel.manager.interrupt_kernel()
    reply = kernel.end()
    assert (reply["status"], reply["ename"]) == ("error", "Interrupted")
    code = "r = sys.last_value.report\nmade, _, taken = r.json['modules']\n"
    code += "print(r.verdict, made['blocks_out'] == taken['blocks_in'] == len(r['lp.Signal'].blocks))"
    assert kernel.run(code)[1] == "interrupted True\n"

    kernel.begin("live = graph.stream('lp.Signal')\nfor block in live:\n    if block.number == 5:\n        print('begun', flush=True)", "begun")
    kernel.manager.interrupt_kernel()
    assert kernel.end()["status"] == "error"
    reply, text, shown = kernel.run("live.close(); print(live.report.verdict); graph")
    assert (reply["status"], text) == ("ok", "interrupted\n") and "image/svg+xml" in shown[0]
