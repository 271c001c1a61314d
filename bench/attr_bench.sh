#!/usr/bin/env bash
# Whole-run benchmark of qmxattr: queries the recall mode of N stubs in one
# directory and compares the wall time with reading the same attribute with
# getfattr over the same directory; prints qmxattr's peak memory.
#
#   bash bench/attr_bench.sh [N]        (default N = 10000; run as root)
#
# Needs getfattr (Debian package "attr"), /usr/bin/time ("time") and bc;
# this script installs nothing: apt-get install attr time bc.
#   BUILD_DIR   build directory with qmxattr and qmxstub (default: build)
#   RUNS        timed runs of each command; the median is reported (default 5)
set -euo pipefail
cd "$(dirname "$0")/.."
N=${1:-10000}
RUNS=${RUNS:-5}
BUILD_DIR=${BUILD_DIR:-build}
for tool in getfattr /usr/bin/time bc; do
  command -v "$tool" >/dev/null || { echo "missing $tool: apt-get install attr time bc" >&2; exit 2; }
done
[ "$(id -u)" -eq 0 ] || { echo "run as root (DM attributes are trusted extended attributes)" >&2; exit 2; }
[ -x "$BUILD_DIR/hsm/cmd/qmxattr" ] || { echo "build first: bash scripts/test.sh" >&2; exit 2; }

source bench/stub_sandbox.sh
R=$(mktemp -d /tmp/qmxbench.XXXXXX)
trap 'rm -rf "$R"' EXIT
stub_sandbox "$R" "$N"

sync
q=$(median "$C/hsm/bin/qmxattr" "$D")
g=$(median getfattr -R -n trusted.dmapi.KVRObj "$D")
lines=$("$C/hsm/bin/qmxattr" "$D" | grep -c '^    p   ' || true)
peak=$(/usr/bin/time -f '%M' "$C/hsm/bin/qmxattr" "$D" 2>&1 >/dev/null | tail -1)
printf 'stubs                  %d (qmxattr listed %d with mode p)\n' "$N" "$lines"
printf 'qmxattr (median)       %.3f s\n' "$q"
printf 'getfattr -R (median)   %.3f s\n' "$g"
printf 'ratio qmxattr/getfattr %.2f\n' "$(echo "$q / $g" | bc -l)"
printf 'qmxattr peak memory    %.1f MB\n' "$(echo "$peak / 1024" | bc -l)"
