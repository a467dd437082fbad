#!/usr/bin/env bash
# Installs what is missing, builds, prepares a working directory from etc/ and
# runs the service in the foreground (logging to the terminal and to
# <workdir>/log/map_conv.log) until Ctrl-C.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/build.sh release
workdir="$(bash scripts/prepare-workdir.sh "${WORKDIR:-run/v2x_service}")"
echo "== v2x_map_convert -w $workdir (Ctrl-C to stop)"
exec env V2XLOG_STDERR=1 build/src/service/v2x_map_convert -w "$workdir" -f "$workdir/log/map_conv.log" "$@"
