#!/usr/bin/env bash
# Builds the project and runs every test.
#   BUILD_DIR   build directory (default: build)
#   CMAKE_ARGS  extra arguments for the configure step
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
BUILD_DIR=${BUILD_DIR:-build}
cmake -S . -B "$BUILD_DIR" ${CMAKE_ARGS:-} >/dev/null
cmake --build "$BUILD_DIR" -j"$(nproc)"
ctest --test-dir "$BUILD_DIR" --output-on-failure -j"$(nproc)" ${CTEST_ARGS:-}
