import numpy as np
import sigweave


class Steps(sigweave.Module):
    """Steps through levels, one a block"""

    levels = sigweave.Integer(4, minimum=1, help="how many")
    height = sigweave.Number(1.0, unit="V", live=True, help="of a step; may change in a run")

    def begin(self):
        self.level = 0

    def describe(self):
        return sigweave.Info(name="steps", unit="V", rate=1000.0)

    def fetch(self):
        if self.level == self.levels:
            return None  # the signal ends
        self.level += 1
        return np.full(100, (self.level - 1) * self.height)
