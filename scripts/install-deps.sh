#!/usr/bin/env bash
# Installs what building, testing and benchmarking vorn needs, if it is missing (Debian 12).
set -euo pipefail

# "ci" adds what CI's extra checks need: clang with libFuzzer, and valgrind.
packages=(cmake ninja-build g++ pkg-config libgmp-dev libgtest-dev libbenchmark-dev
          libcli11-dev nlohmann-json3-dev libabsl-dev zlib1g-dev libbz2-dev coinor-libclp-dev
          python3 ccache pybind11-dev python3-dev python3-pytest)
# "ci" adds z3's Python module too, the reference of the Python module's differential test.
[ "${1:-}" = ci ] && packages+=(clang libclang-rt-14-dev valgrind python3-z3)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}" >&2
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq "${missing[@]}" >/dev/null
