#!/usr/bin/env bash
# Installs a built tree into a scratch prefix and builds outside projects against it:
# tests/consumer through find_package(vorn) and through pkg-config, and examples/embed; and
# imports the installed Python module, when the tree built it.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/debug}
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
cmake -S tests/consumer -B "$prefix/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$prefix/consumer" >/dev/null
"$prefix/consumer/consumer" >/dev/null
PKG_CONFIG_PATH="$prefix/lib/pkgconfig" c++ -std=c++20 tests/consumer/main.cpp \
    $(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs vorn) -o "$prefix/consumer-pc"
"$prefix/consumer-pc" >/dev/null
cmake -S examples/embed -B "$prefix/embed" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$prefix/embed" >/dev/null
"$prefix/embed/embed" >/dev/null
echo "install check: find_package(vorn) and pkg-config consumers and examples/embed built and ran"
module=$(find "$prefix" -name '_vorn*.so' | head -n 1)
if [ -n "$module" ]; then
    PYTHONPATH=$(dirname "$(dirname "$module")") /usr/bin/python3 -c '
import vorn
x = vorn.Real("x")
s = vorn.Solver()
s.add(3 * x == 1)
assert s.check() == vorn.sat and s.model()[x] == vorn.Fraction(1, 3)'
    echo "install check: the installed Python module imports and solves (${module#"$prefix"/})"
else
    echo "install check: no Python module installed (the tree did not build it)"
fi
