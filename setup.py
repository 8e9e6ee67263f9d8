"""The Python package's extension, built by the project's CMake.

pip install --no-build-isolation . runs this: the library, the log readers
and the module _tavloms are configured and built in setuptools' build
folder, installed into a staging folder there, and the module is put into
the package together with the two shared libraries it loads (found by its
RUNPATH, $ORIGIN). The version is the CMake project's.
"""
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


def project_version():
    text = (ROOT / "CMakeLists.txt").read_text()
    return re.search(r"project\(tavloms VERSION ([0-9.]+)", text).group(1)


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build = Path(self.build_temp).resolve() / "cmake"
        stage = build / "stage"
        # The package's folder is the libraries' folder: the module's RUNPATH is $ORIGIN.
        subprocess.run(["cmake", "-S", str(ROOT), "-B", str(build), "-DCMAKE_BUILD_TYPE=Release",
                        "-DPython3_EXECUTABLE=" + sys.executable,
                        "-DCMAKE_INSTALL_PREFIX=" + str(stage),
                        "-DCMAKE_INSTALL_LIBDIR=" + str(stage / "lib" / "tavloms"),
                        "-DTAVLOMS_PYTHON_INSTALL_DIR=" + str(stage / "lib"),
                        "-DTAVLOMS_BUILD_PYTHON=ON", "-DTAVLOMS_BUILD_LOGS=ON",
                        "-DTAVLOMS_BUILD_TESTS=OFF", "-DTAVLOMS_BUILD_BENCH=OFF",
                        "-DTAVLOMS_BUILD_EXAMPLES=OFF", "-DTAVLOMS_BUILD_TOOLS=OFF",
                        "-DTAVLOMS_BUILD_JSON=OFF"], check=True)
        subprocess.run(["cmake", "--build", str(build), "-j", str(os.cpu_count() or 1)], check=True)
        subprocess.run(["cmake", "--install", str(build)], check=True, stdout=subprocess.DEVNULL)
        built = stage / "lib" / "tavloms"
        modules = list(built.glob("_tavloms*.so"))
        if not modules:
            sys.exit("setup.py: CMake did not build the module _tavloms; its configure output "
                     "says why (\"Python package not built: ...\")")
        target = Path(self.get_ext_fullpath(ext.name)).parent
        target.mkdir(parents=True, exist_ok=True)
        shutil.copy(modules[0], self.get_ext_fullpath(ext.name))
        for library in built.iterdir():
            if re.fullmatch(r"libtavloms(_logs)?\.so\.[0-9]+", library.name):
                shutil.copy(library, target / library.name)  # the file its soname link names


setup(version=project_version(), ext_modules=[Extension("tavloms._tavloms", sources=[])],
      cmdclass={"build_ext": CMakeBuild})
