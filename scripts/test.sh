#!/usr/bin/env bash
# Builds and runs the whole test suite: once in the release build and once under the
# address and undefined-behaviour sanitizers; then the tests of the parallel bootstrap
# under the thread sanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."

jobs="$(nproc)"
for kind in release sanitize; do
  scripts/build.sh "$kind"
  dir=build
  [ "$kind" = sanitize ] && dir=build-sanitize
  echo "== tests ($kind) =="
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --test-dir "$dir" --output-on-failure --parallel "$jobs"
done

# The parallel bootstraps under the thread sanitizer (the rest of the code is serial).
bootstrap_tests=(bootstrap_test ratio_bootstrap_test binary_mediator_test)
scripts/build.sh tsan "${bootstrap_tests[@]}"
echo "== tests (thread sanitizer) =="
for t in "${bootstrap_tests[@]}"; do
  TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp halt_on_error=1" OMP_NUM_THREADS=4 \
    "build-tsan/tests/mediation/$t" --gtest_brief=1
done
