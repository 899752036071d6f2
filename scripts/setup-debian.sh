#!/usr/bin/env bash
# Installs what building, running and testing need on Debian 12. Safe to run
# again: packages already present are left as they are.
set -euo pipefail

packages=(
  cmake g++ make pkg-config
  googletest libgtest-dev libbenchmark-dev ccache
  android-liblog-dev
  g++-aarch64-linux-gnu qemu-user
  valgrind
  libjpeg62-turbo-dev libpng-dev
  python3-dev python3-numpy pybind11-dev
  nlohmann-json3-dev python3-distributed parallel
  python3-pil help2man man-db
)
# The phone build's compile check: clang and lld for aarch64-linux-android.
packages+=(clang lld)
# The ABI check: abidiff against abi/ (abidw writes the baseline).
packages+=(abigail-tools)
# The Python package from the checkout: pip in a venv, and wheels.
packages+=(python3-setuptools python3-wheel python3-venv python3-pip python3-build)
# The aarch64 cross build links tavo-hdr against Debian's arm64 image libraries
# and the tests against its arm64 GoogleTest,
# installed beside the amd64 ones (multiarch); the Debian packages are built
# with dpkg-shlibdeps (dpkg-dev), which CPack feeds through file(1), and
# checked by lintian.
packages+=(dpkg-dev file lintian libjpeg62-turbo-dev:arm64 libpng-dev:arm64 libgtest-dev:arm64)

missing=()
for pkg in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || missing+=("$pkg")
done
if [ "${#missing[@]}" -eq 0 ]; then
  echo "setup: all packages present"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
if [[ " ${missing[*]} " == *":arm64 "* ]] && [ "$(dpkg --print-architecture)" != arm64 ] &&
   ! dpkg --print-foreign-architectures | grep -qx arm64; then
  $SUDO dpkg --add-architecture arm64
fi
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
echo "setup: installed ${missing[*]}"
