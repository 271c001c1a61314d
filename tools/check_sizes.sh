#!/usr/bin/env bash
# Size limits of the sources: no C++ file of the repository over 800 lines,
# and no function over 120 lines in the folders that keep to that limit.
# Prints one line per excess and exits 1 when there is any.
#
#   tools/check_sizes.sh [file...]
# Without arguments every tracked *.cpp and *.h is checked (functions only
# in FUNCTION_DIRS); with arguments, just those files, functions included.
#
# Functions are found as clang-format leaves them: a top-level definition
# begins with a line in column 0 and its body ends with a "}" in column 0.
# A function is counted from the first line of its signature to that
# closing brace; classes, enums and initialised arrays are not functions
# (no "(" in their head, or "= {"), and namespaces hold top-level code.
set -euo pipefail
cd "$(dirname "$0")/.."

MAX_FILE_LINES=${MAX_FILE_LINES:-800}
MAX_FUNCTION_LINES=${MAX_FUNCTION_LINES:-120}
FUNCTION_DIRS=(hsm/rdm hsm/rootd)

function_report() {
  awk -v max="$MAX_FUNCTION_LINES" '
    FNR == 1 { state = "out"; head = ""; start = 0 }
    state == "out" {
      line = $0
      sub(/[ \t]*\/\/.*$/, "", line)  # a trailing comment
      if (line ~ /^[^ \t#\/}]/) { head = line; start = FNR }
      else if (line ~ /^[ \t]/ && head != "") head = head " " line
      if (line ~ /\{[ \t]*$/ && head != "") {
        if (head ~ /^(namespace|extern "C")/) { head = ""; next }
        if (head ~ /\(/ && head !~ /=[ \t]*\{[ \t]*$/) state = "function"
        else state = "other"
        next
      }
      if (line ~ /;[ \t]*$/ || line ~ /\}[ \t]*$/) head = ""
      next
    }
    /^\}/ {
      n = FNR - start + 1
      if (state == "function" && n > max)
        printf "%s:%d: function of %d lines (over %d)\n", FILENAME, start, n, max
      state = "out"; head = ""
    }
  ' "$@"
}

failed=0
if [ $# -gt 0 ]; then
  files=("$@")
  function_files=("$@")
else
  mapfile -t files < <(git ls-files '*.cpp' '*.h')
  mapfile -t function_files < <(git ls-files "${FUNCTION_DIRS[@]/%//*.cpp}" \
                                              "${FUNCTION_DIRS[@]/%//*.h}")
fi

for f in "${files[@]}"; do
  n=$(wc -l < "$f")
  if [ "$n" -gt "$MAX_FILE_LINES" ]; then
    echo "$f: $n lines (over $MAX_FILE_LINES)"
    failed=1
  fi
done

if [ ${#function_files[@]} -gt 0 ]; then
  report=$(function_report "${function_files[@]}")
  if [ -n "$report" ]; then
    echo "$report"
    failed=1
  fi
fi

if [ "$failed" -ne 0 ]; then
  echo "check_sizes: limits exceeded (files $MAX_FILE_LINES lines, functions $MAX_FUNCTION_LINES)"
fi
exit "$failed"
