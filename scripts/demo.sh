#!/usr/bin/env bash
# Builds the client.  The demo of qmxattr in a sandbox joins here once the
# command exists.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
BUILD_DIR=${BUILD_DIR:-build}
cmake -S . -B "$BUILD_DIR" >/dev/null
cmake --build "$BUILD_DIR" -j"$(nproc)"
echo "built into $BUILD_DIR"
