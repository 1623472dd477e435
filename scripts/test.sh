#!/usr/bin/env bash
# Builds and runs the whole test suite: once in the release build and once under the
# address and undefined-behaviour sanitizers.
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
