# pip installs the package from the checkout, as README says, into a fresh
# venv that sees the system's packages (no index, no build isolation),
# building in BUILD_DIR; the installed module has the library's version, its
# type stubs, and fuses frames given as buffers of bytes.
# Arguments: PYTHON, SOURCE_DIR, BUILD_DIR, WORK_DIR, VERSION.
include(${CMAKE_CURRENT_LIST_DIR}/run_checked.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
run(${PYTHON} -m venv --system-site-packages ${WORK_DIR}/venv)
set(ENV{TAVO_HDR_CMAKE_BUILD_DIR} ${BUILD_DIR})
set(ENV{PYTHONPATH} "")
run(${WORK_DIR}/venv/bin/python -m pip install --no-build-isolation --no-index --quiet ${SOURCE_DIR})
run(${WORK_DIR}/venv/bin/python -c [[
import os, sys, tavo_hdr
package = os.path.dirname(tavo_hdr.__file__)
assert package.startswith(sys.prefix), package
assert tavo_hdr.__version__ == sys.argv[1], tavo_hdr.__version__
assert all(os.path.isfile(os.path.join(package, f)) for f in ("py.typed", "__init__.pyi", "fleet.pyi"))
frames = [bytes([60 + 60 * k]) * (64 * 48 * 3 // 2) for k in range(3)]
out = tavo_hdr.fuse([frames[0], bytearray(frames[1]), memoryview(frames[2])], 64, 48)
assert out.shape == (64 * 48 * 3 // 2,) and out.dtype == "uint8", out
print("pip-installed tavo_hdr", tavo_hdr.__version__, "fused in", package)
]] ${VERSION})
message(STATUS "${RUN_OUTPUT}")
