#!/usr/bin/env bash
# Makes a writable working directory from the sample in etc/:
#   scripts/prepare-workdir.sh DIR
# The sample's absolute paths (/opt/v2x_service) are rewritten to DIR.
set -euo pipefail
src="$(cd "$(dirname "$0")/.." && pwd)/etc"
dir="${1:?usage: $0 DIR}"
mkdir -p "$dir"
dir="$(cd "$dir" && pwd)"
cp -r "$src"/. "$dir"/
find "$dir" -name .gitkeep -delete
for f in "$dir"/conf/*.cfg; do
  sed -i "s#/opt/v2x_service#${dir}#g" "$f"
done
echo "$dir"
