#!/usr/bin/env bash
# Configures and builds. Usage: scripts/build.sh [release|sanitize] (default release).
# Builds into build/ (release) or build-sanitize/ (address + undefined sanitizers).
set -euo pipefail
cd "$(dirname "$0")/.."

kind="${1:-release}"
case "$kind" in
  release)  dir=build;          flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo) ;;
  sanitize) dir=build-sanitize; flags=(-DCMAKE_BUILD_TYPE=Debug -DMEDANLYS_SANITIZE=ON) ;;
  *) echo "usage: $0 [release|sanitize]" >&2; exit 2 ;;
esac

cmake -S . -B "$dir" -G Ninja -DMEDANLYS_WERROR=ON "${flags[@]}" >/dev/null
cmake --build "$dir" --parallel "$(nproc)"
