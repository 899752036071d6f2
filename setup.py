"""Builds the tavo_hdr package with CMake: the extension tavo_hdr._native and
the shared library it calls, which goes into the package beside it (the
extension finds it through the run path $ORIGIN). The version is the public
header's. TAVO_HDR_CMAKE_BUILD_DIR names a CMake build directory to build in
(an existing one, such as build/host, builds nothing twice); by default the
build lies under build/python."""

import glob
import os
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = os.path.dirname(os.path.abspath(__file__))


def version():
    with open(os.path.join(ROOT, "include", "tavo_lumo_hdr.h")) as header:
        parts = dict(re.findall(r"^#define TAVO_HDR_VERSION_(MAJOR|MINOR|PATCH|TWEAK) (\d+)$", header.read(), re.M))
    return ".".join(parts[k] for k in ("MAJOR", "MINOR", "PATCH", "TWEAK"))


BUILD_DIR = os.path.abspath(os.environ.get("TAVO_HDR_CMAKE_BUILD_DIR") or os.path.join(ROOT, "build", "python"))


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build_dir = BUILD_DIR
        if not os.path.exists(os.path.join(build_dir, "CMakeCache.txt")):
            subprocess.run(["cmake", "-S", ROOT, "-B", build_dir, "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                            "-DTAVO_HDR_TESTS=OFF", "-DTAVO_HDR_BENCH=OFF",
                            f"-DPython3_EXECUTABLE={sys.executable}"], check=True)
        subprocess.run(["cmake", "--build", build_dir, "--target", "tavo_hdr_python",
                        "-j", str(os.cpu_count() or 2)], check=True)
        target = os.path.abspath(self.get_ext_fullpath(ext.name))
        package = os.path.dirname(target)
        os.makedirs(package, exist_ok=True)
        native = glob.glob(os.path.join(build_dir, "python", "tavo_hdr", "_native*.so"))
        shutil.copyfile(native[0], target)
        # The library under its SONAME, the name the extension asks for.
        library = glob.glob(os.path.join(build_dir, "libtavo_lumo_hdr.so.*.*"))[0]
        shutil.copyfile(library, os.path.join(package, "libtavo_lumo_hdr.so." + version().split(".")[0]))
        subprocess.run(["cmake", f"-DFILE={target}", f"-DLIBRARY_DIR={package}",
                        "-P", os.path.join(ROOT, "cmake", "set_origin_run_path.cmake")], check=True)


# setuptools' own files go into the build directory too, not into the checkout.
setup(version=version(), ext_modules=[Extension("tavo_hdr._native", sources=[])], cmdclass={"build_ext": CMakeBuild},
      options={"build": {"build_base": os.path.join(BUILD_DIR, "setuptools")}, "egg_info": {"egg_base": BUILD_DIR}})
