# Sourced by the whole-run benchmarks, not run by itself.
#
#   stub_sandbox R N   installs the client from BUILD_DIR into the sandbox
#                      R (QMX_SYSROOT=R, exported) with option files that
#                      manage R/fs, and makes N stubs migrated with recall
#                      mode p in R/fs/stubs.  Sets C (the client directory)
#                      and D (the stubs' directory).
#   median CMD ARGS    the median wall time in seconds of RUNS runs of a
#                      command (its output discarded).

stub_sandbox() {
  local root=$1 n=$2
  export QMX_SYSROOT=$root
  C=$root/opt/norvik/nqb/client
  cmake --install "$BUILD_DIR" --prefix "$C" >/dev/null
  touch "$C/hsm/bin/qmxrecalld"
  local fs=$root/fs
  D=$fs/stubs
  mkdir -p "$D"
  printf 'OPTIONFORMAT STANDARD\nLOGO NO\n' >"$C/ba/bin/qmx.opt"
  printf 'SERVERNAME s\n  TCPSERVERADDRESS 127.0.0.1\n  VIRTUALMOUNTPOINT %s\n' "$fs" >"$C/ba/bin/qmx.sys"
  "$C/hsm/bin/qmxstub" fs-add "$fs" >/dev/null
  (cd "$D" && seq -f "stub%06g" 1 "$n" | xargs touch)
  (cd "$D" && seq -f "stub%06g" 1 "$n" | xargs "$C/hsm/bin/qmxstub" migrate --mode p --compression none >/dev/null)
}

median() {
  local t=()
  for _ in $(seq "$RUNS"); do
    local s e
    s=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || true
    e=$(date +%s.%N)
    t+=("$(echo "$e - $s" | bc -l)")
  done
  printf '%s\n' "${t[@]}" | sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}'
}
