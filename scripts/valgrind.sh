#!/usr/bin/env bash
# Runs the unit tests of a release build under valgrind memcheck; any error or definite leak
# fails. The randomized tableau runs are shortened (VORN_QUICK) to keep this within minutes.
# The fault-injection binary replaces malloc itself and is left out.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset release >/dev/null
cmake --build --preset release
for test in numbers_tests container_tests tableau_tests cli_tests; do
    echo "valgrind: $test"
    VORN_QUICK=1 valgrind -q --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite \
        "build/release/tests/$test" --gtest_brief=1
done
