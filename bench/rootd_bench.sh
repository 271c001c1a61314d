#!/usr/bin/env bash
# The root daemon's cost: an ordinary user's listing of N stubs through
# qmxrootd against root's direct listing of the same stubs, side by side in
# one run; prints both medians and their ratio.
#
#   bash bench/rootd_bench.sh [N]        (default N = 10000; run as root)
#
#   BUILD_DIR   build directory with qmxattr, qmxstub and qmxrootd (default: build)
#   RUNS        timed runs of each listing; the median is reported (default 5)
#   BENCH_USER  the ordinary user (default: nobody)
set -euo pipefail
cd "$(dirname "$0")/.."
N=${1:-10000}
RUNS=${RUNS:-5}
BUILD_DIR=${BUILD_DIR:-build}
BENCH_USER=${BENCH_USER:-nobody}
for tool in bc setpriv; do
  command -v "$tool" >/dev/null || { echo "missing $tool" >&2; exit 2; }
done
[ "$(id -u)" -eq 0 ] || { echo "run as root (the daemon runs as root)" >&2; exit 2; }
[ -x "$BUILD_DIR/hsm/rootd/qmxrootd" ] || { echo "build first: cmake --build $BUILD_DIR" >&2; exit 2; }

source bench/stub_sandbox.sh
R=$(mktemp -d /tmp/qmxrootdbench.XXXXXX)
chmod 755 "$R"
DAEMON=
cleanup() {
  [ -n "$DAEMON" ] && kill "$DAEMON" 2>/dev/null && wait "$DAEMON" 2>/dev/null || true
  rm -rf "$R"
}
trap cleanup EXIT
stub_sandbox "$R" "$N"
mkdir -p "$R/logs" "$R/userlogs"
chmod 777 "$R/userlogs"
chown -R "$BENCH_USER" "$D"

QMX_LOG=$R/logs "$C/hsm/bin/qmxrootd" >/dev/null &
DAEMON=$!
# Ready once its socket is there; given up after 30 s.
for ((i = 0; i < 600; i++)); do
  [ -S "$R/run/qmxrootd.sock" ] && break
  kill -0 "$DAEMON" 2>/dev/null || { echo "qmxrootd did not start" >&2; exit 1; }
  sleep 0.05
done
[ -S "$R/run/qmxrootd.sock" ] || { echo "qmxrootd made no socket within 30 s" >&2; exit 1; }

asroot() { QMX_LOG=$R/logs "$C/hsm/bin/qmxattr" "$D"; }
asuser() {
  QMX_LOG=$R/userlogs setpriv --reuid="$BENCH_USER" --regid=nogroup --clear-groups \
    "$C/hsm/bin/qmxattr" "$D"
}

sync
asroot >/dev/null  # one unmeasured run, so both measured listings start from warm caches
rootLines=$(asroot | grep -c '^    p   ' || true)
userLines=$(asuser | grep -c '^    p   ' || true)
r=$(median asroot)
u=$(median asuser)
printf 'stubs                      %d (root listed %d, user %d with mode p)\n' "$N" "$rootLines" "$userLines"
printf 'root, direct (median)      %.3f s\n' "$r"
printf 'user, via qmxrootd (median) %.3f s\n' "$u"
printf 'ratio user/root            %.2f\n' "$(echo "$u / $r" | bc -l)"
