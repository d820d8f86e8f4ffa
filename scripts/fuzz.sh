#!/usr/bin/env bash
# Builds the libFuzzer targets (in the `asan` preset's tree: clang, ASan + UBSan, libstdc++
# assertions; the sanitized test suite shares it) and runs each for a bounded time, starting from
# the seed corpus in fuzz/corpus. The parsers target gets a dictionary of SMT-LIB words and inputs
# long enough to pass the nesting limit; the formulas target builds random Boolean scripts and
# checks every answer.
# Usage: scripts/fuzz.sh [SECONDS] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(tableau qnumber parsers formulas)
cmake --preset asan >/dev/null
cmake --build --preset asan --target "${targets[@]/%/_fuzz}"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for target in "${targets[@]}"; do
    extra=()
    [ "$target" = parsers ] && extra=(-dict=fuzz/parsers.dict -max_len=32768)
    mkdir -p "$work/$target"
    echo "fuzzing $target for ${seconds}s"
    if ! build/asan/fuzz/${target}_fuzz -max_total_time="$seconds" -timeout=20 -rss_limit_mb=4096 \
        -print_final_stats=1 -artifact_prefix="$work/" "${extra[@]}" "$work/$target" \
        "fuzz/corpus/$target" >"$work/$target.log" 2>&1; then
        tail -n 40 "$work/$target.log"
        echo "fuzz target $target failed" >&2
        exit 1
    fi
    grep -E '^stat::number_of_executed_units' "$work/$target.log" | sed "s/^/$target: /"
done
