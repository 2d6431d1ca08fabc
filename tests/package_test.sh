#!/usr/bin/env bash
# Builds the Debian package from a configured build tree, unpacks it into a temporary root and
# runs the installed filter on requests. Usage: package_test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cpack --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log"; exit 1; }
deb=$(ls "$work"/out/velmora_*.deb)
dpkg-deb -x "$deb" "$work/root"

files="usr/bin/velmora usr/bin/velmora-tool usr/share/doc/velmora/README.md"
[ -e "$source/docs/admin-guide.md" ] && files="$files usr/share/doc/velmora/admin-guide.md"
for f in $files; do
  [ -e "$work/root/$f" ] || { echo "missing from the package: $f"; exit 1; }
done
dpkg-deb -f "$deb" Package Version | tr '\n' ' ' | grep -q "Package: velmora Version: " ||
  { echo "unexpected control fields"; dpkg-deb -f "$deb"; exit 1; }

cd "$source/examples"
got=$(printf '1 INTF 3\n2 FILE Queue/1001.msg\n3 FILE Queue/none.msg\n' | "$work/root/usr/bin/velmora")
want=$(printf '%s\n' \
  "* Korvantis's Velmora filter v1.2.1b running..." \
  "* Ready to receive INTF command." \
  "1 INTF 3" \
  "* [2] Adding Header(s) to message" \
  "2 ADDHEADER \"X-ExtScanner: Korvantis's Velmora\"" \
  "3 OK \"Error: File Not Found Queue/none.msg\"")
if [ "$got" != "$want" ]; then
  echo "installed velmora answered:"; echo "$got"; echo "expected:"; echo "$want"; exit 1
fi
echo "package $(basename "$deb"): installed programs answer as expected"
