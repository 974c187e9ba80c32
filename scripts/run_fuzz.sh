#!/bin/sh
# Builds the command fuzzer (clang, libFuzzer, AddressSanitizer + UBSan) and runs it for a bounded
# time. Usage: scripts/run_fuzz.sh [seconds, default 60] [extra libFuzzer flags...]
# Crash inputs are written to build-fuzz/artifacts/; the exit status is libFuzzer's (non-zero on
# a crash, a leak or a timeout).
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
[ $# -gt 0 ] && shift
make fuzz
mkdir -p build-fuzz/corpus build-fuzz/artifacts
: "${VORIX_SYZYGY_DIR:=$(cd .. && pwd)/shared/syzygy}"
export VORIX_SYZYGY_DIR
# The seed corpus stays read-only; new inputs go to build-fuzz/corpus.
exec ./build-fuzz/vorix_fuzz -max_total_time="$seconds" -timeout=20 -rss_limit_mb=4096 \
    -dict=tests/fuzz/uci.dict -artifact_prefix=build-fuzz/artifacts/ -print_final_stats=1 "$@" \
    build-fuzz/corpus tests/fuzz/corpus
