#!/usr/bin/env bash
# Builds the engine with ThreadSanitizer and runs the protocol tests against it with 2 and 4
# search threads. Any race report fails the run (halt_on_error), except those listed with a
# reason in tests/tsan.supp.
set -euo pipefail
cd "$(dirname "$0")/.."
make tsan >/dev/null
export TSAN_OPTIONS="halt_on_error=1 abort_on_error=1 second_deadlock_stack=1 suppressions=$PWD/tests/tsan.supp"
export VORIX_STRESS_ITERATIONS=${VORIX_STRESS_ITERATIONS_TSAN:-200}
for threads in 2 4; do
    echo "-- protocol tests, Threads $threads"
    export VORIX_THREADS=$threads
    for script in tests/uci/test_*.py; do
        case "$script" in *texel*) continue ;; esac
        (cd tests/uci && timeout 900 python3 "../../$script" "$PWD/../../build-tsan/vorix") || {
            echo "FAILED under ThreadSanitizer: $script (Threads $threads)"
            exit 1
        }
    done
done
