"""A wheel with everything: the library, the modules and what runs modules in Python, built by CMake.

Where SIGWEAVE_BUILD names a build folder of the whole tree, that one is used and nothing is built.
"""

import os
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = Path(__file__).resolve().parent


class CMakeBuild(build_ext):
    def build_extension(self, extension):
        package = Path(self.get_ext_fullpath(extension.name)).resolve().parent
        build = Path(os.environ.get("SIGWEAVE_BUILD") or Path(self.build_temp).resolve() / "tree")
        if "SIGWEAVE_BUILD" not in os.environ:
            options = ["-DSIGWEAVE_TESTS=OFF", "-DSIGWEAVE_BENCH=OFF", "-DSIGWEAVE_PYTHON=ON"]
            program = f"-DSIGWEAVE_PYTHON_PROGRAM={os.path.realpath(sys.executable)}"
            subprocess.run(["cmake", "-S", HERE.parent, "-B", build, *options, program], check=True)
            targets = ["sigweave-python", "sigweave-python-loader", "modules"]
            subprocess.run(["cmake", "--build", build, "--parallel", "--target", *targets], check=True)
        for folder, files in (
            (package, (build / "python/sigweave").glob("_core*.so")),
            (package / "modules", (build / "lib/sigweave/modules").glob("*.so")),
            (package / "python", (build / "lib/sigweave/python").glob("*.so")),
            (package / "lib", (build / "lib").glob("libsigweave.so.?")),
        ):
            folder.mkdir(parents=True, exist_ok=True)
            for file in files:
                shutil.copy(file, folder)


setup(ext_modules=[Extension("sigweave._core", [])], cmdclass={"build_ext": CMakeBuild})
