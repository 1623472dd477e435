#!/usr/bin/env bash
# Builds the benchmarks and times the bootstrap: Google Benchmark of the replicate loop,
# then whole command-line runs (NB = 1000) on generated data of the given sizes.
# Usage: bench/run.sh [N ...]   (default: 10000 100000)
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DMEDANLYS_BENCH=ON -DMEDANLYS_TESTS=OFF >/dev/null
cmake --build build-bench --parallel "$(nproc)" >/dev/null
build-bench/bench/bootstrap_bench --benchmark_min_time=1
build-bench/bench/glm_bench
sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(10000 100000)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
for n in "${sizes[@]}"; do
  build-bench/bench/generate_bench_data "$n" "$tmp/data.csv"
  start=$(date +%s.%N)
  build-bench/app/medanlys run --data "$tmp/data.csv" --out "$tmp/out" --format json -e \
    "MEDIATION ANALYSIS OUTCOMEVAR=Y MEDIATORVAR=M PREDICTORVAR=A(BLEVEL=0 ELEVEL=1) WITH C1 C2 C3
     /MEDMODEL DISTRIBUTION=NORMAL /OUTMODEL DISTRIBUTION=NORMAL
     /CRITERIA CILEVEL=95 CITYPE=BOOTSTRAP COVB=MODEL ANALYSISTYPE=CAUSAL /PRINT DECOMP_RESULTS
     /BOOTSTRAP CRITERIA(CILEVEL=95 NSAMPLES=1000 SEED=1)." 2>/dev/null
  end=$(date +%s.%N)
  printf 'CLI run, N=%s, NB=1000: %.2f s wall\n' "$n" "$(echo "$end - $start" | bc)"
done
