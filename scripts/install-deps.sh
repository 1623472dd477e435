#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need. Safe to run again: it
# does nothing when everything is already installed.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config
  libboost-dev nlohmann-json3-dev libreadstat-dev libcsv-dev libcli11-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libomp-dev libclang-rt-14-dev
  python3-numpy python3-matplotlib  # the validation study (validation/); matplotlib draws its plot
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
echo "Installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
