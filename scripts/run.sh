#!/usr/bin/env bash
# Runs the service's main job on this machine, everything on loopback:
#
#   cloud peer  --DDS-->  v2x_map_convert  --UDP-->  V2X stack peer
#
# Installs what is missing, builds, prepares a working directory from etc/
# (run/v2x_service, or $WORKDIR), then:
#   1. starts the V2X stack peer (prints each map refresh notice and each
#      once-a-second map data request it answers),
#   2. starts v2x_map_convert -w <workdir> (log on the terminal and in
#      <workdir>/log/map_conv.log),
#   3. the cloud peer publishes the two-slice sample map and prints the
#      acknowledgements,
#   4. lists the stored map files, their records and the stored eTag,
#   5. the stack peer now answers the service's requests with the stored map;
#      the cloud peer prints the documents the service uploads (and answers
#      them),
#   6. the cloud peer prints the status record and the map record that the
#      service sends every 5 seconds,
#   7. the log tool reads the service's log levels,
# then the service keeps running in the foreground until Ctrl-C, a quiet
# cloud peer taking its uploads.
#
#   --demo-only   stop everything after step 7
#   --serve       no demonstration: only run the service until Ctrl-C
set -euo pipefail
cd "$(dirname "$0")/.."
mode=demo
case "${1:-}" in
  --demo-only) mode=demo-only ;;
  --serve) mode=serve ;;
  "") ;;
  *) echo "usage: $0 [--demo-only|--serve]" >&2; exit 2 ;;
esac

bash scripts/install-deps.sh
bash scripts/build.sh release
W="$(bash scripts/prepare-workdir.sh "${WORKDIR:-run/v2x_service}")"
B=build
SERVICE="$B/src/service/v2x_map_convert"
CLOUD="$B/tools/v2x_cloud_sim/v2x_cloud_sim"
STACK="$B/tools/v2x_stack_sim/v2x_stack_sim"
LOGTOOL="$B/tools/v2x_logtool/v2x_logtool"
DEVICE="$(sed -n 's:.*<device_id>\(.*\)</device_id>.*:\1:p' "$W/conf/rsu_sysinfo.xml")"

if [ "$mode" = serve ]; then
  echo "== v2x_map_convert -w $W (Ctrl-C to stop)"
  exec env V2XLOG_STDERR=1 "$SERVICE" -w "$W" -f "$W/log/map_conv.log"
fi

pids=()
stop_all() {
  for p in "${pids[@]}"; do kill -TERM "$p" 2>/dev/null || true; done
  for p in "${pids[@]}"; do wait "$p" 2>/dev/null || true; done
}
trap 'stop_all; exit 130' INT TERM

step() { printf '\n== %s\n' "$*"; }

step "1. V2X stack peer on the service's IPC ports (answers with the maps in $W/mapdata)"
# $! must be the peer itself (not a pipeline's last command) so that stopping it works.
"$STACK" -w "$W" -t 3600 > >(sed -u 's/^/[stack] /') &
pids+=($!)

step "2. v2x_map_convert -w $W (device $DEVICE)"
V2XLOG_STDERR=1 "$SERVICE" -w "$W" -f "$W/log/map_conv.log" 2> >(sed -u 's/^/[service] /' >&2) &
SVC=$!
pids+=($SVC)
sleep 1

step "3. cloud peer publishes a two-slice map (etc/samples/map_slice2.json, map_slice1.json)"
"$CLOUD" --device "$DEVICE" --map etc/samples/map_slice2.json --map etc/samples/map_slice1.json \
  --count 2 --kind ack --timeout 30 | sed -u 's/^/[cloud] /'

step "4. stored map files and records"
ls -l "$W/mapdata"
for rec in "$W"/mapdata/map_cfg_*; do
  echo "-- $rec"; cat "$rec"
done
for f in "$W"/mapdata/map_data_*; do md5sum "$f"; done
grep eTag "$W/conf/v2x_map_convert.cfg"

step "5. uploads: the stack peer answers with the stored map, the service uploads it (every second)"
"$CLOUD" --device "$DEVICE" --count 2 --kind up --ack-uploads --timeout 15 | sed -u 's/^/[cloud] /' || true

step "6. status and map records from the service (every 5 s)"
"$CLOUD" --device "$DEVICE" --count 1 --kind rsucloud --timeout 15 | grep -a --line-buffered -v '^UP ' | sed -u 's/^/[cloud] /' || true

step "7. log tool: the service's log levels"
"$LOGTOOL" -w "$W" read || true

if [ "$mode" = demo-only ]; then
  step "stopping"
  stop_all
  exit 0
fi
step "the service keeps running (requests reach the stack peer every second, uploads a quiet cloud peer); Ctrl-C to stop"
"$CLOUD" --device "$DEVICE" --ack-uploads --quiet --timeout 86400 >/dev/null &
pids+=($!)
wait "$SVC" || true
stop_all
