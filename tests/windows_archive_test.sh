#!/usr/bin/env bash
# Checks a Windows release archive: one folder named after the archive, holding exactly the two
# programs (Windows executables of the archive's word size), the README and the administrator's
# guide, the documents as they are in the source tree.
# Usage: windows_archive_test.sh ARCHIVE SOURCE_DIR
set -euo pipefail
archive=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
source=$2
name=$(basename "$archive" .zip)
case "$name" in
  velmora-*-win32) objdump=i686-w64-mingw32-objdump format=pei-i386 ;;
  velmora-*-win64) objdump=x86_64-w64-mingw32-objdump format=pei-x86-64 ;;
  *) echo "not a release archive name: $name"; exit 1 ;;
esac
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

want=$(printf '%s\n' "$name/" "$name/README.md" "$name/admin-guide.md" "$name/velmora-tool.exe" \
  "$name/velmora.exe")
got=$(cmake -E tar tf "$archive" | sort)
if [ "$got" != "$want" ]; then
  echo "$name.zip holds:"; echo "$got"; echo "expected:"; echo "$want"; exit 1
fi
(cd "$work" && cmake -E tar xf "$archive")
for doc in README.md docs/admin-guide.md; do
  cmp -s "$source/$doc" "$work/$name/$(basename "$doc")" || { echo "$doc differs in $name.zip"; exit 1; }
done
for exe in velmora.exe velmora-tool.exe; do
  "$objdump" -f "$work/$name/$exe" | grep -q "file format $format\$" ||
    { echo "$exe in $name.zip is not a $format program"; exit 1; }
done
echo "$name.zip: the two programs, the README and the guide"
