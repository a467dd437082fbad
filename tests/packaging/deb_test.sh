#!/usr/bin/env bash
# Builds the Debian packages from this build with CPack and checks them as an
# RSU would get them: where the README says the files are, the dependencies
# dpkg-shlibdeps computed, the maintainer scripts; then, from the extracted
# runtime package, the service prints its version, the systemd unit passes
# systemd-analyze verify (when systemd-analyze is present) and the working
# directory helper prepares a working directory.
#   deb_test.sh BUILD_DIR LIBDIR VERSION
set -euo pipefail
build="$1" libdir="$2" version="$3"
tmp="$(mktemp -d)"
work="$(mktemp -d /tmp/v2xdeb.XXXXXX)"  # short: the service takes at most 63 characters
trap 'rm -rf "$tmp" "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cpack --config "$build/CPackConfig.cmake" -G DEB -B "$tmp" >"$tmp/cpack.log" 2>&1 ||
  { cat "$tmp/cpack.log" >&2; fail "cpack"; }
arch="$(dpkg --print-architecture)"
deb="$tmp/v2x-map-convert_${version}_${arch}.deb"
dev="$tmp/v2x-map-convert-dev_${version}_${arch}.deb"
[ -f "$deb" ] && [ -f "$dev" ] || fail "packages missing: $(ls "$tmp")"

# has PACKAGE PATH...: every path is in the package's file list
has() {
  local pkg="$1" list
  shift
  list="$(dpkg-deb -c "$pkg" | awk '{ print $6 }')"
  for p in "$@"; do
    grep -qxF "./$p" <<<"$list" || fail "$(basename "$pkg") lacks /$p"
  done
}
has "$deb" usr/bin/v2x_map_convert usr/bin/v2x_map_tool usr/bin/v2x_cloud_sim usr/bin/v2x_stack_sim \
  usr/bin/v2x_logtool usr/lib/systemd/system/v2x_map_convert.service \
  usr/libexec/v2x_map_convert/prepare-workdir usr/share/v2x_map_convert/workdir/conf/v2x_map_convert.cfg \
  usr/share/v2x_map_convert/workdir/conf/rsu_sysinfo.xml usr/share/v2x_map_convert/workdir/conf/v2x_ipc_port.cfg \
  usr/share/v2x_map_convert/workdir/mapdata/ usr/share/v2x_map_convert/workdir/log/ \
  "usr/$libdir/libv2xmap.so.1" usr/share/doc/v2x_map_convert/README.md
has "$dev" usr/include/v2x/v2xapp_gbmap.h "usr/$libdir/libv2xmap.so" "usr/$libdir/libv2xmap.a" \
  "usr/$libdir/cmake/V2xMap/V2xMapConfig.cmake" "usr/$libdir/pkgconfig/v2xmap.pc"
dpkg-deb -c "$deb" | grep -qE '/include/|\.a$' && fail "runtime package carries development files"

field() { dpkg-deb -f "$1" "$2"; }
[ "$(field "$deb" Version)" = "$version" ] || fail "version $(field "$deb" Version), project $version"
for d in libc6 libspdlog libcjson libddsc libmbedcrypto libconfig; do
  [[ "$(field "$deb" Depends)" == *"$d"* ]] || fail "Depends lacks $d: $(field "$deb" Depends)"
done
[[ "$(field "$dev" Depends)" == *"v2x-map-convert (= $version)"* ]] || fail "-dev Depends: $(field "$dev" Depends)"
control="$(dpkg-deb --ctrl-tarfile "$deb" | tar t)"
for f in postinst prerm postrm triggers shlibs; do
  grep -qxF "./$f" <<<"$control" || fail "runtime package has no $f"
done

root="$tmp/root"
dpkg-deb -x "$deb" "$root"
out="$("$root/usr/bin/v2x_map_convert" -v)" || fail "v2x_map_convert -v exited $?"
[ "$out" = "version:map_conv_v230522.001" ] || fail "v2x_map_convert -v printed '$out'"

unit="$root/usr/lib/systemd/system/v2x_map_convert.service"
grep -qx 'ExecStart=/usr/bin/v2x_map_convert -w %S/v2x_service -f %L/v2x_service/map_conv.log' "$unit" ||
  fail "unit does not start /usr/bin/v2x_map_convert in /var/lib/v2x_service"
if command -v systemd-analyze >/dev/null; then
  # The unit with its programs taken from the extracted package.
  sed "s#=/usr/#=$root/usr/#" "$unit" >"$tmp/v2x_map_convert.service"
  verify="$(systemd-analyze verify "$tmp/v2x_map_convert.service" 2>&1)" || true
  [ -z "$verify" ] || fail "systemd-analyze verify: $verify"
else
  echo "systemd-analyze not found: the unit was not verified"
fi

# Working directory helper: template, operator files, the 63-character limit.
helper="$root/usr/libexec/v2x_map_convert/prepare-workdir"
mkdir "$work/etc"
printf '<device_id>RSU_PKG_TEST</device_id>\n' >"$work/etc/rsu_sysinfo.xml"
"$helper" "$work/w" "$work/etc"
cfg="$work/w/conf/v2x_map_convert.cfg"
grep -qF "Sysinfoname = \"$work/w/conf/rsu_sysinfo.xml\";" "$cfg" || fail "seeded configuration: $(cat "$cfg")"
cmp -s "$work/etc/rsu_sysinfo.xml" "$work/w/conf/rsu_sysinfo.xml" || fail "device file not taken from CONFDIR"
[ -f "$work/w/conf/v2x_ipc_port.cfg" ] && [ -d "$work/w/mapdata" ] && [ -d "$work/w/log" ] ||
  fail "working directory incomplete: $(find "$work/w")"
sed -i 's/eTag = ""/eTag = "stored"/' "$cfg"
printf '<device_id>RSU_PKG_TEST2</device_id>\n' >"$work/etc/rsu_sysinfo.xml"
"$helper" "$work/w" "$work/etc"
grep -qF 'eTag = "stored"' "$cfg" || fail "a second start replaced the service's configuration"
grep -qF RSU_PKG_TEST2 "$work/w/conf/rsu_sysinfo.xml" || fail "a second start kept an old device file"
long="$work/$(printf 'd%.0s' {1..63})"
"$helper" "$long" "$work/etc" 2>/dev/null && fail "helper accepted a working directory of ${#long} characters"
[ ! -e "$long" ] || fail "helper made the refused working directory"
echo "packages ok: $(basename "$deb"), $(basename "$dev")"
