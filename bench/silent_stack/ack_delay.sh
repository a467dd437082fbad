#!/usr/bin/env bash
# Acknowledgement delay with a V2X protocol process that never answers: the
# real service, a UDP socket on its stack port that reads and stays silent,
# and the cloud peer publishing one-slice maps, each after the last one's
# acknowledgement, printing the publish-to-acknowledgement times.
#   bench/silent_stack/ack_delay.sh BUILD_DIR [MAPS]   (SERVICE_BIN=... runs another service binary)
set -euo pipefail
build="${1:?usage: $0 BUILD_DIR [MAPS]}"
maps="${2:-5}"
root="$(cd "$(dirname "$0")/../.." && pwd)"
work="$(mktemp -d /tmp/ack_delay.XXXXXX)"
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
"$root/scripts/prepare-workdir.sh" "$work" >/dev/null
device="ACKDELAY_$$"
sed -i "s#<device_id>.*</device_id>#<device_id>${device}</device_id>#" "$work/conf/rsu_sysinfo.xml"
# Free ports: the silent stack's and the service's own (0: any).
stack_port="$(python3 -c 'import socket;s=socket.socket(socket.AF_INET,socket.SOCK_DGRAM);s.bind(("127.0.0.1",0));print(s.getsockname()[1])')"
sed -i -e "s/m_app_rs_rcvport = .*/m_app_rs_rcvport = ${stack_port};/" \
  -e "s/m_map_conv_sndport = .*/m_map_conv_sndport = 0;/" \
  -e "s/m_mapconv_logtool_rcvport = .*/m_mapconv_logtool_rcvport = 0;/" "$work/conf/v2x_ipc_port.cfg"
python3 - "$stack_port" <<'PY' &
import socket, sys, time
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.bind(("127.0.0.1", int(sys.argv[1])))
s.settimeout(1.0)
end = time.time() + 300
while time.time() < end:
    try:
        s.recv(65536)  # read and never answer
    except socket.timeout:
        pass
PY
pids+=($!)
"${SERVICE_BIN:-$build/src/service/v2x_map_convert}" -w "$work" -f "$work/log/map_conv.log" -d 4 >/dev/null 2>&1 &
pids+=($!)
sleep 2  # the service's first map-data requests are under way
"$build/tools/v2x_cloud_sim/v2x_cloud_sim" --device "$device" --bench "$maps" --timeout 120
