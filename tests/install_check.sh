#!/usr/bin/env bash
# `cmake --install BUILD --prefix P` writes under P and nowhere else, and what
# names installed paths (the systemd unit) names P's.
set -euo pipefail
build=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
prefix=$tmp/prefix
env -u DESTDIR cmake --install "$build" --prefix "$prefix" > "$tmp/log"
manifest=$build/install_manifest.txt

outside=$(awk -v p="$prefix/" 'index($0, p) != 1' "$manifest")
if [ -n "$outside" ]; then
  printf 'installed outside %s:\n%s\n' "$prefix" "$outside"
  exit 1
fi
# The prefix holds what the manifest lists, no more, no less.
diff <(sort "$manifest") <(find "$prefix" ! -type d | sort)

# The rooms with rules of their own: the docs, the Python package and its example.
for f in share/doc/uhfhost/BEHAVIOUR.md share/doc/uhfhost/examples/inventory.py; do
  [ -f "$prefix/$f" ] || { echo "missing $f"; exit 1; }
done
find "$prefix" -path '*/uhfhost/__init__.py' | grep -q . || { echo "no Python package under $prefix"; exit 1; }
unit=$prefix/lib/systemd/system/uhfd.service
if [ -f "$build/gateway/uhfd" ]; then
  grep -qxF "ExecStart=$prefix/sbin/uhfd --config $prefix/etc/uhfd.json" "$unit" || { cat "$unit"; exit 1; }
fi
