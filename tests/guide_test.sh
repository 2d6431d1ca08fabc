#!/usr/bin/env bash
# Runs every command of the administrator's guide and compares its output with the guide.
# In a ```console block, a line "$ COMMAND" is run (in examples/, with the built programs first on
# PATH, standard error joined to standard output); the lines up to the next "$ " line or the end of
# the block are its expected output. With a RUNNER (an emulator such as qemu-i386), the programs
# are started through it. Usage: guide_test.sh BUILD_DIR SOURCE_DIR [RUNNER]
set -uo pipefail
build=$(cd "$1" && pwd)
source=$(cd "$2" && pwd)
runner=${3:-}
guide="$source/docs/admin-guide.md"
if [ -n "$runner" ]; then
  wrappers=$(mktemp -d)
  trap 'rm -rf "$wrappers"' EXIT
  for program in velmora velmora-tool; do
    printf '#!/bin/sh\nexec "%s" "%s" "$@"\n' "$runner" "$build/$program" >"$wrappers/$program"
    chmod +x "$wrappers/$program"
  done
  export PATH="$wrappers:$PATH"
else
  export PATH="$build:$PATH"
fi
cd "$source/examples" || exit 1

failures=0
commands=0
check() {  # command, expected output (each line ended by a line feed)
  [ -z "$1" ] && return
  commands=$((commands + 1))
  local got
  got=$(bash -c "$1" 2>&1)
  if [ "$got" != "${2%$'\n'}" ]; then
    failures=$((failures + 1))
    printf 'guide command differs: $ %s\n--- guide\n%s--- got\n%s\n' "$1" "$2" "$got"
  fi
}

inside=0 command="" expected=""
while IFS= read -r line || [ -n "$line" ]; do
  if [ $inside = 0 ]; then
    [ "$line" = '```console' ] && inside=1 command="" expected=""
  elif [ "$line" = '```' ]; then
    check "$command" "$expected"
    inside=0
  elif [ "${line:0:2}" = '$ ' ]; then
    check "$command" "$expected"
    command=${line:2} expected=""
  else
    expected+="$line"$'\n'
  fi
done < "$guide"

echo "$commands guide commands run, $failures differ"
[ $commands -gt 0 ] && [ $failures = 0 ]
