#!/usr/bin/env bash
# Runs the tests of the Windows builds under Wine, headless and bounded in time: each build's unit
# tests (ctest starts every test program through Wine) and the Linux process tests (program_test)
# pointed at the Windows programs. The 64-bit build always; the 32-bit one only where a 32-bit
# Wine is installed, which Debian's 64-bit-only wine64 is not (make test-windows tries to install
# wine32 first). Also checks the programs' imports and both release archives.
# Usage: scripts/test-windows.sh [DEBUG_BUILD_DIR]   (the Linux build holding tests/program_test)
set -eu
cd "$(dirname "$0")/.."
linux_build=${1:-build/debug}

# Debian keeps the loaders outside PATH, under lib/wine; the toolchain files look there first too.
loader_named() {
  if [ -x "/usr/lib/wine/$1" ]; then echo "/usr/lib/wine/$1"; else command -v "$1" || true; fi
}

export WINEDEBUG=-all
# No Mono or Gecko installer prompts, and no menu entries in the user's desktop.
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
unset DISPLAY WAYLAND_DISPLAY

# Test cases whose expectations are POSIX facts rather than the program's behaviour; a Windows
# program rightly does otherwise, so they are left out here:
not_for_windows=(
  # Windows matches file names without regard to case: the mailbox "inbox" finds INBOX.mbox.
  BaseDirectory.MailboxPath
  # "/tmp/x" has no drive letter on Windows, so the tool makes it absolute as "Z:\tmp\x".
  ServerDataTool.SharedBase
)
export GTEST_FILTER="-$(IFS=:; echo "${not_for_windows[*]}")"

server=""
stop_server() {
  if [ -n "$server" ]; then timeout 30 "$server" -k >/dev/null 2>&1 || true; fi
  server=""
}
trap stop_server EXIT

# Makes the throwaway prefix of one build and keeps one Wine server running for all its test
# programs: a server that starts cold for every program costs seconds per run.
start_wine() {
  local loader=$1
  export WINEPREFIX="$PWD/$2/wine"
  server="$(dirname "$loader")/wineserver"
  [ -x "$server" ] || server=$(command -v wineserver)
  if [ ! -f "$WINEPREFIX/system.reg" ]; then
    echo "Preparing a Wine prefix in $2/wine"
    timeout 300 "$loader" wineboot --init >/dev/null 2>&1
    timeout 60 "$server" -w
  fi
  "$server" -p
  # The first program of a fresh server starts Wine's background services, which inherit that
  # program's output pipes and hold them open: start them here, not inside a test run that
  # waits for its pipes to close.
  timeout 120 "$loader" wineboot </dev/null >/dev/null 2>&1
}

# Prints velmora's banner line when the loader can run the build's velmora.exe.
probe() {
  printf '' | timeout 60 "$1" "$2/velmora.exe" 2>/dev/null | head -n 1 || true
}

run_build() {
  local bits=$1 loader=$2 build=build/windows$1
  echo "== Windows $bits-bit build under $(basename "$loader")"
  start_wine "$loader" "$build"
  local status=0
  timeout 1800 ctest --preset "windows$bits" || status=1
  VELMORA_RUNNER="$loader" \
    VELMORA_PROGRAM_PATH="$PWD/$build/velmora.exe" \
    VELMORA_TOOL_PATH="$PWD/$build/velmora-tool.exe" \
    timeout 1800 "$linux_build/tests/program_test" || status=1
  stop_server
  return $status
}

# The programs must run on a bare Windows: they may import only DLLs that every Windows has.
check_imports() {
  local objdump=$1-objdump exe dll
  for exe in "$2/velmora.exe" "$2/velmora-tool.exe"; do
    for dll in $("$objdump" -p "$exe" | awk '/DLL Name:/ {print $3}'); do
      case "${dll,,}" in
        kernel32.dll | msvcrt.dll | ws2_32.dll | advapi32.dll) ;;
        *)
          echo "$exe needs $dll, which is not part of Windows" >&2
          return 1
          ;;
      esac
    done
  done
}

failed=0
check_imports x86_64-w64-mingw32 build/windows64 || failed=1
check_imports i686-w64-mingw32 build/windows32 || failed=1
for bits in 32 64; do
  tests/windows_archive_test.sh build/windows$bits/velmora-*-win$bits.zip . || failed=1
done

wine64=$(loader_named wine64)
if [ -z "$wine64" ]; then
  echo "wine64 is not installed (make test-windows installs it as root)" >&2
  exit 1
fi
run_build 64 "$wine64" || failed=1

wine32=$(loader_named wine)
if [ -n "$wine32" ] && [ -f build/windows32/velmora.exe ]; then
  export WINEPREFIX="$PWD/build/windows32/wine"
  if [[ "$(probe "$wine32" build/windows32)" == "* "* ]]; then
    run_build 32 "$wine32" || failed=1
  else
    echo "== Windows 32-bit build: built, not run ($wine32 cannot run 32-bit programs here)"
  fi
  stop_server
else
  echo "== Windows 32-bit build: built, NOT RUN: no 32-bit Wine is installed (wine32, see above)"
fi

if [ $failed -ne 0 ]; then
  echo "Windows tests FAILED" >&2
  exit 1
fi
echo "Windows tests passed"
