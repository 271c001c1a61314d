#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing.
set -euo pipefail
need=()
for p in cmake g++ make libgtest-dev libgmock-dev libbenchmark-dev libssl-dev libc-bin attr strace util-linux clang-format; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || need+=("$p")
done
if ((${#need[@]})); then
  echo "installing: ${need[*]}"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}"
fi
