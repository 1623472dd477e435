#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (address + undefined sanitizers) into build-fuzz/
# and runs each for the given number of seconds (default 60), starting from its checked-in
# corpus. New inputs that add coverage are merged back into tests/fuzz/corpus/<target>;
# a crash, leak, timeout or sanitizer report stops with the reproducer under
# build-fuzz/findings/<target>/ (copy it to tests/fuzz/regressions/<target>/ once fixed).
# Usage: scripts/fuzz.sh [seconds] [target...]   targets: command csv readstat analysis
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-60}"
shift || true
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(command csv readstat analysis)

need=()
for pkg in clang libclang-rt-14-dev libomp-14-dev; do
  dpkg -s "$pkg" >/dev/null 2>&1 || need+=("$pkg")
done
if [ ${#need[@]} -gt 0 ]; then
  sudo_cmd=""; [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq && $sudo_cmd apt-get install -y -qq "${need[@]}"
fi

if [ "${FUZZ_NO_BUILD:-0}" != 1 ]; then
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DMEDANLYS_FUZZ=ON -DMEDANLYS_TESTS=OFF >/dev/null
cmake --build build-fuzz --parallel "$(nproc)" \
  --target $(printf 'fuzz_%s ' "${targets[@]}")
fi

export ASAN_OPTIONS="detect_leaks=1:allocator_may_return_null=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export OMP_NUM_THREADS=1
found=0
for t in "${targets[@]}"; do
  corpus="tests/fuzz/corpus/$t"
  work="build-fuzz/work/$t"
  findings="build-fuzz/findings/$t"
  mkdir -p "$corpus" "$work" "$findings"
  echo "== $t: ${seconds}s"
  status=0
  build-fuzz/tests/fuzz/fuzz_"$t" "$work" "$corpus" -max_total_time="$seconds" \
    -timeout=30 -rss_limit_mb=4096 -max_len=8192 -close_fd_mask=3 \
    -artifact_prefix="$findings/" -print_final_stats=1 >"build-fuzz/$t.log" 2>&1 || status=$?
  grep -E "^(Done|stat::|SUMMARY|==[0-9]+==ERROR)" "build-fuzz/$t.log" || true
  if [ "$status" -ne 0 ]; then
    echo "!! $t: finding (exit $status), see build-fuzz/$t.log and $findings/"
    found=1
  fi
  # Keep only the inputs that add coverage.
  build-fuzz/tests/fuzz/fuzz_"$t" -merge=1 "$corpus" "$work" -close_fd_mask=3 >/dev/null 2>&1
done
exit "$found"
