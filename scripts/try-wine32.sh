#!/usr/bin/env bash
# Tries to install Debian's 32-bit Wine (wine32), which needs the i386 architecture, so that the
# 32-bit Windows programs' tests can run. Never fails the build: where it cannot be installed it
# says why, and the package manager is left as it was found: an i386 architecture added here is
# removed again, so that a later apt-get update does not trip over i386 indexes it cannot fetch.
set -u
dpkg -s wine32:i386 >/dev/null 2>&1 && exit 0
if [ "$(id -u)" != 0 ]; then
  echo "wine32 is not installed (needs root: dpkg --add-architecture i386; apt-get install wine32)"
  exit 0
fi
added=0
if ! dpkg --print-foreign-architectures | grep -qx i386; then
  dpkg --add-architecture i386 && added=1
fi
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
if apt-get update -qq >"$log" 2>&1 &&
  apt-get install -y -qq --no-install-recommends wine32:i386 >>"$log" 2>&1; then
  echo "Installed wine32"
else
  echo "wine32 could not be installed: $(grep -m1 -E '^(E|W):' "$log" || tail -n 1 "$log")"
  if [ $added = 1 ]; then
    dpkg --remove-architecture i386 || echo "could not remove the i386 architecture again" >&2
  fi
fi
rm -f "$log"
exit 0
