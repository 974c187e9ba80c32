#!/usr/bin/env bash
# Builds the engine with ThreadSanitizer and drives it with the protocol stress test at 2 and 4
# search threads, then with the search-control and thread tests. Any race report fails the run,
# except those listed with a reason in tests/tsan.supp.
set -euo pipefail
cd "$(dirname "$0")/.."
make tsan >/dev/null
export TSAN_OPTIONS="halt_on_error=1 abort_on_error=1 second_deadlock_stack=1 suppressions=$PWD/tests/tsan.supp"
export VORIX_STRESS_ITERATIONS=${VORIX_STRESS_ITERATIONS_TSAN:-400}
engine="$PWD/build-tsan/vorix"
cd tests/uci
for threads in 2 4; do
    echo "-- stress test, Threads $threads"
    VORIX_ENGINE_OPTIONS="Threads=$threads" timeout 900 python3 test_stress.py "$engine"
done
for script in test_threads.py test_control.py; do
    echo "-- $script"
    timeout 900 python3 "$script" "$engine"
done
