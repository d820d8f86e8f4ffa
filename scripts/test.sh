#!/usr/bin/env bash
# Builds vorn with strict warnings and runs the whole test suite.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --workflow --preset debug
