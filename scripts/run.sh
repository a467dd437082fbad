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
# The demonstration ends with one verdict line (maps stored, acknowledgements,
# uploads, records seen, or what went wrong) and exits 0 only when all came.
# Long lines (the uploaded documents) are cut to their start; bytes that are
# not UTF-8 text are shown as \xHH.
#
#   --demo-only   stop everything after step 7
#   --serve       no demonstration: only run the service until Ctrl-C
#   --full        show the uploaded documents whole
set -euo pipefail
cd "$(dirname "$0")/.."
mode=demo
width=160
for arg in "$@"; do
  case "$arg" in
    --demo-only) mode=demo-only ;;
    --serve) mode=serve ;;
    --full) width=0 ;;
    *) echo "usage: $0 [--demo-only|--serve] [--full]" >&2; exit 2 ;;
  esac
done

bash scripts/install-deps.sh
echo "== building the service and its peers (log: build/demo-build.log)"
mkdir -p build
bash scripts/build.sh release v2x_map_convert v2x_cloud_sim v2x_stack_sim v2x_logtool >build/demo-build.log 2>&1 ||
  { tail -n 30 build/demo-build.log; echo "demo: FAILED: the build failed (build/demo-build.log)"; exit 1; }
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

# show PREFIX: lines of standard input as text, prefixed, cut at $width
# characters (0: whole), each byte that is not UTF-8 text as \xHH.
show() {
  PREFIX="$1" WIDTH="$width" perl -MEncode -ne '
    BEGIN { $| = 1; binmode STDOUT, ":encoding(UTF-8)" }
    chomp;
    my $t = Encode::decode("UTF-8", $_, sub { sprintf "\\x%02X", shift });
    $t =~ s/([\x00-\x08\x0B-\x1F\x7F])/sprintf "\\x%02X", ord $1/ge;
    my $w = $ENV{WIDTH};
    $t = substr($t, 0, $w) . sprintf(" ... (%d characters; --full shows all)", length $t) if $w && length $t > $w;
    print "$ENV{PREFIX}$t\n";'
}
# cloud ARGS...: runs the cloud peer, shows its lines, keeps them in $log.
log="$(mktemp)"
cloud() {
  "$CLOUD" --device "$DEVICE" "$@" | tee -a "$log" | show '[cloud] '
}
# count FIELD: the sum of FIELD=N over the cloud peer's summary lines
count() { sed -n "s/^DONE .*\b$1=\([0-9]*\).*/\1/p" "$log" | awk '{ n += $1 } END { print n + 0 }'; }

step "1. V2X stack peer on the service's IPC ports (answers with the maps in $W/mapdata)"
# $! must be the peer itself (not a pipeline's last command) so that stopping it works.
"$STACK" -w "$W" -t 3600 > >(show '[stack] ') &
pids+=($!)

step "2. v2x_map_convert -w $W (device $DEVICE)"
V2XLOG_STDERR=1 "$SERVICE" -w "$W" -f "$W/log/map_conv.log" 2> >(show '[service] ' >&2) &
SVC=$!
pids+=($SVC)
sleep 1

step "3. cloud peer publishes a two-slice map (etc/samples/map_slice2.json, map_slice1.json)"
cloud --map etc/samples/map_slice2.json --map etc/samples/map_slice1.json --count 2 --kind ack --timeout 30 || true

step "4. stored map files and records"
ls -l "$W/mapdata"
for rec in "$W"/mapdata/map_cfg_*; do
  echo "-- $rec"; cat "$rec"
done
for f in "$W"/mapdata/map_data_*; do md5sum "$f"; done
grep eTag "$W/conf/v2x_map_convert.cfg"

step "5. uploads: the stack peer answers with the stored map, the service uploads it (every second)"
cloud --count 2 --kind up --ack-uploads --timeout 15 || true

step "6. status and map records from the service (every 5 s)"
"$CLOUD" --device "$DEVICE" --count 1 --kind rsucloud --timeout 15 | grep -a --line-buffered -v '^UP ' | tee -a "$log" |
  show '[cloud] ' || true

step "7. log tool: the service's log levels"
levels=ok
"$LOGTOOL" -w "$W" read || levels=failed

# One line: what the demonstration saw, or what it missed.
maps=$(find "$W/mapdata" -name 'map_data_*' | wc -l)
acks=$(count acks) uploads=$(count uploads) records=$(count rsucloud)
missed=()
[ "$maps" -ge 2 ] || missed+=("$maps of 2 map files stored")
[ "$acks" -ge 2 ] || missed+=("$acks of 2 acknowledgements")
[ "$uploads" -ge 2 ] || missed+=("$uploads of 2 uploads")
[ "$records" -ge 1 ] || missed+=("no map record from the service")
[ "$levels" = ok ] || missed+=("the log tool got no answer")
kill -0 "$SVC" 2>/dev/null || missed+=("the service stopped")
rm -f "$log"
if [ ${#missed[@]} -eq 0 ]; then
  verdict="demo: OK: $maps map files stored, $acks acknowledgements, $uploads uploads, $records map records seen, log levels read"
else
  verdict="demo: FAILED: $(IFS=';'; echo "${missed[*]}" | sed 's/;/; /g')"
fi

if [ "$mode" = demo-only ]; then
  step "stopping"
  stop_all
  echo "$verdict"
  [ ${#missed[@]} -eq 0 ]
  exit
fi
echo "$verdict"
step "the service keeps running (requests reach the stack peer every second, uploads a quiet cloud peer); Ctrl-C to stop"
"$CLOUD" --device "$DEVICE" --ack-uploads --quiet --timeout 86400 >/dev/null &
pids+=($!)
wait "$SVC" || true
stop_all
