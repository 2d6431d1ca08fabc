#!/usr/bin/env bash
# Builds the Debian and RPM packages from a configured build tree, unpacks each into a temporary
# root and runs the installed filter on requests. Usage: package_test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cpack --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log"; exit 1; }
deb=$(ls "$work"/out/velmora_*.deb)
rpm=$(ls "$work"/out/velmora-*.rpm)
dpkg-deb -x "$deb" "$work/deb"
mkdir "$work/rpm"
(cd "$work/rpm" && rpm2cpio "$rpm" | cpio -idm --quiet)

files="usr/bin/velmora usr/bin/velmora-tool usr/share/doc/velmora/README.md"
[ -e "$source/docs/admin-guide.md" ] && files="$files usr/share/doc/velmora/admin-guide.md"
for f in $files; do
  [ -e "$work/deb/$f" ] || { echo "missing from the Debian package: $f"; exit 1; }
done
dpkg-deb -f "$deb" Package Version | tr '\n' ' ' | grep -q "Package: velmora Version: " ||
  { echo "unexpected control fields"; dpkg-deb -f "$deb"; exit 1; }
# Both packages hold the same files, byte for byte.
listing() { (cd "$1" && find . ! -type d | sort | xargs sha256sum); }
if [ "$(listing "$work/deb")" != "$(listing "$work/rpm")" ]; then
  echo "the packages differ:"; diff <(listing "$work/deb") <(listing "$work/rpm"); exit 1
fi
rpm -qp --qf '%{NAME} %{VERSION}\n' "$rpm" 2>/dev/null | grep -qx "velmora [0-9.]*" ||
  { echo "unexpected RPM header"; rpm -qip "$rpm"; exit 1; }

want=$(printf '%s\n' \
  "* Korvantis's Velmora filter v1.2.1b running..." \
  "* Ready to receive INTF command." \
  "1 INTF 3" \
  "* [2] Adding Header(s) to message" \
  "2 ADDHEADER \"X-ExtScanner: Korvantis's Velmora\"" \
  "3 OK \"Error: File Not Found Queue/none.msg\"")
cd "$source/examples"
for root in deb rpm; do
  got=$(printf '1 INTF 3\n2 FILE Queue/1001.msg\n3 FILE Queue/none.msg\n' |
    "$work/$root/usr/bin/velmora")
  if [ "$got" != "$want" ]; then
    echo "velmora installed from the $root package answered:"; echo "$got"
    echo "expected:"; echo "$want"; exit 1
  fi
done
echo "packages $(basename "$deb") and $(basename "$rpm"): installed programs answer as expected"
