#!/usr/bin/env bash
# Installs every Debian package the project needs, then configures and builds it in ./build.
# Usage: scripts/setup.sh [preset]   (default preset: "default"; see CMakePresets.json)
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-default}

packages=(
  g++ cmake ninja-build pkg-config
  zlib1g-dev
  libantlr-dev antlr default-jre-headless
  libstemmer-dev libutf8proc-dev
  libgtest-dev libgmock-dev libbenchmark-dev
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

cmake --preset "$preset"
cmake --build --preset "$preset"
