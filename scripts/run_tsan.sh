#!/usr/bin/env bash
# Builds the engine with ThreadSanitizer and drives it with the protocol fuzzer (which sets 1 to 4
# search threads at random), then with the search-control and thread tests. Any race report fails
# the run, except those listed with a reason in tests/tsan.supp.
set -euo pipefail
cd "$(dirname "$0")/.."
make tsan >/dev/null
export TSAN_OPTIONS="halt_on_error=1 abort_on_error=1 second_deadlock_stack=1 suppressions=$PWD/tests/tsan.supp"
engine="$PWD/build-tsan/vorix"
echo "-- protocol fuzzer"
python3 scripts/protocol_fuzz.py "$engine" --seconds "${VORIX_TSAN_FUZZ_SECONDS:-120}" --quiet
cd tests/uci
for script in test_threads.py test_control.py; do
    echo "-- $script"
    timeout 900 python3 "$script" "$engine"
done
