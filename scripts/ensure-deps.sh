#!/usr/bin/env bash
# Installs what the build and the test suite need from Debian's packages, when something is
# missing and we are root. Without root it only says what to install.
set -eu
want=()
need() { dpkg -s "$1" >/dev/null 2>&1 || want+=("$1"); }
need cmake
need ninja-build
need g++
need libgtest-dev
need libgmock-dev
need dpkg-dev
need rpm       # rpmbuild, for the RPM package
need rpm2cpio  # the package test unpacks the RPM
need cpio
need dovecot-pop3d  # the POP3 client's test runs against a real server
for extra in "$@"; do need "$extra"; done
[ ${#want[@]} -eq 0 ] && exit 0
if [ "$(id -u)" = 0 ]; then
  echo "Installing: ${want[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq >/dev/null
  apt-get install -y -qq --no-install-recommends "${want[@]}" >/dev/null
else
  echo "Missing packages: ${want[*]} (run as root, or: sudo apt-get install ${want[*]})" >&2
  exit 1
fi
