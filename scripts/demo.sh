#!/usr/bin/env bash
# Builds the client, installs it into a fresh sandbox (a system root of its
# own, QMX_SYSROOT), makes a managed file system with stubs and shows
# qmxattr listing and setting recall modes.
#   BUILD_DIR   build directory (default: build)
#   DEMO_ROOT   sandbox to use (default: a new directory under /tmp)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
BUILD_DIR=${BUILD_DIR:-build}
cmake -S . -B "$BUILD_DIR" >/dev/null
cmake --build "$BUILD_DIR" -j"$(nproc)" >/dev/null
if [ "$(id -u)" -ne 0 ]; then
  echo "The demo keeps DM attributes in the trusted extended-attribute namespace," >&2
  echo "which only root can write: run it as root." >&2
  exit 1
fi

R=${DEMO_ROOT:-$(mktemp -d /tmp/qmxdemo.XXXXXX)}
chmod 755 "$R"  # ordinary users reach the client too (see the end)
export QMX_SYSROOT=$R
C=$R/opt/norvik/nqb/client
cmake --install "$BUILD_DIR" --prefix "$C" >/dev/null
# The client counts as installed when the recall daemon's executable exists.
touch "$C/hsm/bin/qmxrecalld"
FS=$R/hsmfs
mkdir -p "$FS/projects/sub"
cat >"$C/ba/bin/qmx.opt" <<OPT
OPTIONFORMAT  STANDARD
LOGO          NO
DATEFORMAT    3
OPT
cat >"$C/ba/bin/qmx.sys" <<SYS
SERVERNAME         server_a
   TCPSERVERADDRESS   127.0.0.1
   VIRTUALMOUNTPOINT  $FS
SYS

stub() { "$C/hsm/bin/qmxstub" "$@" >/dev/null; }
stub fs-add "$FS"
printf 'quarterly figures\n' >"$FS/report.dat"
printf 'frames\n' >"$FS/movie.mp4"
printf 'packed\n' >"$FS/archive.tar.gz"
printf 'kept on disk\n' >"$FS/notes.txt"
printf 'plan\n' >"$FS/projects/plan.odt"
printf 'bits\n' >"$FS/projects/sub/data.bin"
ln -s report.dat "$FS/latest"
stub migrate "$FS/report.dat" --mode n --compression none --size 5368709120
stub migrate "$FS/movie.mp4" --mode s --compression none
stub migrate "$FS/archive.tar.gz" --mode n --compression yes
stub migrate "$FS/projects/plan.odt" --mode p --compression none
stub migrate "$FS/projects/sub/data.bin" --mode n --compression unknown

run() {
  echo
  echo "\$ $*"
  set +e
  (cd "$FS" && stdbuf -oL "$@")
  echo "[exit status $?]"
  set -e
}
Q=$C/hsm/bin/qmxattr
echo "Sandbox: $R   (managed file system: $FS)"
run "$Q" -RECURSIVE
run "$Q" -RECALLMODE=PARTIALRECALL report.dat
run "$Q" -RECA=p archive.tar.gz
run "$Q" report.dat archive.tar.gz latest projects

# Ordinary users: root starts the root daemon once, and the user's qmxattr
# has its DMAPI calls made there.  The user owns one stub; another belongs
# to root.
echo
echo "--- an ordinary user (nobody), through the root daemon qmxrootd ---"
USERLOGS=$R/userlogs
mkdir -p "$USERLOGS" && chmod 1777 "$USERLOGS"
printf 'mine\n' >"$FS/projects/mine.dat"
stub migrate "$FS/projects/mine.dat" --mode n --compression none
chown nobody "$FS/projects/mine.dat"
run "$C/hsm/bin/qmxrootd" -d
runas() {
  echo
  echo "\$ (as user nobody) $*"
  set +e
  (cd "$FS" && setpriv --reuid=nobody --regid=nogroup --clear-groups \
    env QMX_LOG="$USERLOGS" stdbuf -oL "$@")
  echo "[exit status $?]"
  set -e
}
runas "$Q" projects
runas "$Q" -RECALLMODE=STREAMING projects/mine.dat
runas "$Q" -RECALLMODE=STREAMING projects/plan.odt
pkill -TERM -f "^$C/hsm/bin/qmxrootd" || true
echo
echo "Remove the sandbox with: rm -rf $R"
