#!/usr/bin/env bash
# Runs the number tests of the debug build under valgrind memcheck; any error or definite leak
# fails. AddressSanitizer and LeakSanitizer (the asan preset) already cover memory errors and
# leaks everywhere; valgrind adds reads of uninitialised memory, which matter where QNumber keeps
# its two words and GMP blocks, so only those tests run here. The debug build is the one CI has
# just tested: nothing more to build, and unoptimised code hides no uninitialised read.
# The form-rule tests count blocks through a replaced operator new, which valgrind overrides with
# its own, so they are left to the other runs.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset debug >/dev/null
cmake --build --preset debug --target numbers_tests
echo "valgrind: numbers_tests"
valgrind -q --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite \
    build/debug/tests/numbers_tests --gtest_brief=1 --gtest_filter=-QNumberForms.*
