#!/usr/bin/env bash
# Runs every fuzz target of a fuzz build for FUZZ_SECONDS seconds each, one
# after the other, and fails when any of them finds something (a sanitizer
# report, a broken property, a timeout or running out of memory). The working
# corpus grows in <build>/corpus/<target>; findings land in <build>/findings.
# Seeds: fuzz/corpus/<target>, saved findings in tests/data/fuzz/<target>, and
# the golden files of tests/data and examples/ for every target.
#   FUZZ_SECONDS=60 FUZZ_TARGETS="frame text" fuzz/run_fuzzers.sh <build folder>
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build-fuzz}" && pwd)
seconds=${FUZZ_SECONDS:-60}
targets=${FUZZ_TARGETS:-frame text soap session}

status=0
mkdir -p "$build/findings"
for target in $targets; do
    binary="$build/fuzz_$target"
    if [ ! -x "$binary" ]; then
        echo "fuzz_$target: not built in $build" >&2
        status=1
        continue
    fi
    work="$build/corpus/$target"
    mkdir -p "$work"
    seeds=("$root/fuzz/corpus/$target")
    for extra in "$root/tests/data/fuzz/$target" "$root/tests/data" "$root/examples"; do
        [ -d "$extra" ] && seeds+=("$extra")
    done
    log="$build/fuzz_$target.log"
    # Reports of an input that a KVX_ASSERT stopped are not findings; leaks of
    # those inputs are excluded by the harness itself.
    "$binary" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=65536 \
        -dict="$root/fuzz/dict/$target.dict" -artifact_prefix="$build/findings/$target-" \
        -print_final_stats=1 "$work" "${seeds[@]}" >"$log" 2>&1
    result=$?
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    asserts=$(grep -c '^KVX_ASSERT stopped an input' "$log")
    corpus=$(find "$work" -type f | wc -l)
    echo "fuzz_$target: ${runs:-?} executions (budget ${seconds}s), corpus $corpus," \
         "$asserts assertion site(s), exit $result"
    grep '^KVX_ASSERT stopped an input' "$log" | sed 's/^/    /'
    if [ "$result" -ne 0 ]; then
        status=1
        echo "fuzz_$target found something; the end of $log:" >&2
        tail -n 60 "$log" >&2
        ls "$build/findings" | grep "^$target-" | sed 's/^/    finding: /' >&2
    fi
done
exit $status
