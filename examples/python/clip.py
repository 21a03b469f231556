import numpy as np
import sigweave


class Clip(sigweave.Module):
    """Cuts off values beyond a limit"""

    limit = sigweave.Number(1.0, unit="V", minimum=0.0, help="the largest value that passes")

    def execute(self, signal):
        return np.clip(signal, -self.limit, self.limit)
