#!/usr/bin/env bash
# Runs the shell blocks README.md marks as checked ("<!-- checked snippet -->"
# on the line before the block), in order, in one shell in an empty temporary
# directory, with the install prefix /opt/tavo replaced by a temporary one and
# build/host by the checkout's build. Exits non-zero when a block fails.
set -euo pipefail
top="$(cd "$(dirname "$0")/.." && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

awk '
  /^<!-- checked snippet -->$/ { armed = 1; next }
  armed && /^```sh$/ { inside = 1; armed = 0; next }
  inside && /^```$/ { inside = 0; print ""; next }
  inside { print; next }
  { armed = 0 }
' "$top/README.md" > "$work/snippets.sh"
if ! grep -q . "$work/snippets.sh"; then
  echo "check-readme-snippets: README.md marks no snippet as checked" >&2
  exit 1
fi
sed -i -e "s#/opt/tavo#$work/prefix#g" -e "s#build/host#$top/build/host#g" "$work/snippets.sh"
mkdir "$work/app"
cd "$work/app"
bash -euo pipefail "$work/snippets.sh"
echo "check-readme-snippets: every checked snippet ran"
