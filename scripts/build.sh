#!/usr/bin/env bash
# Configures and builds. Usage: scripts/build.sh [release|sanitize|tsan] [targets...]
# (default release). Builds into build/ (release), build-sanitize/ (address + undefined
# sanitizers) or build-tsan/ (thread sanitizer; clang with the LLVM OpenMP runtime, whose
# tool interface lets the sanitizer see OpenMP's synchronisation).
set -euo pipefail
cd "$(dirname "$0")/.."

kind="${1:-release}"
shift || true
targets=()
[ $# -gt 0 ] && targets=(--target "$@")
compilers=()
case "$kind" in
  release)  dir=build;          flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DMEDANLYS_WERROR=ON) ;;
  sanitize) dir=build-sanitize; flags=(-DCMAKE_BUILD_TYPE=Debug -DMEDANLYS_SANITIZE=ON -DMEDANLYS_WERROR=ON) ;;
  tsan)     dir=build-tsan;     flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DMEDANLYS_TSAN=ON)
            compilers=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++) ;;
  *) echo "usage: $0 [release|sanitize|tsan] [targets...]" >&2; exit 2 ;;
esac

cmake -S . -B "$dir" -G Ninja "${compilers[@]}" "${flags[@]}" >/dev/null
cmake --build "$dir" --parallel "$(nproc)" "${targets[@]}"
