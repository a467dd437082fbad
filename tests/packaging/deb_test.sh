#!/usr/bin/env bash
# Checks the Debian packages that scripts/package.sh built, as an RSU and an
# integrator get them:
#   - lintian: no error and no warning (overrides carry their reasons);
#   - each package holds what the README says, with computed dependencies,
#     hardened and stripped programs, the unit and the conffiles;
#   - unpacked into a throw-away root: the service answers --version, the
#     tools and manual pages behave (cli_test.sh), the library serves a CMake
#     and a pkg-config consumer, shared and static (install_consumer_test.sh),
#     the unit passes systemd-analyze verify and the working directory helper
#     prepares a working directory.
#   deb_test.sh DEB_DIR SOURCE_DIR
set -euo pipefail
debs="$(realpath "$1")" src="$(realpath "$2")"
here="$(dirname "$(readlink -f "$0")")"
tmp="$(mktemp -d)"
work="$(mktemp -d /tmp/v2xdeb.XXXXXX)"  # short: the service takes at most 63 characters
trap 'rm -rf "$tmp" "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

version="$(dpkg-parsechangelog -l "$src/debian/changelog" -S Version)"
arch="$(dpkg --print-architecture)"
multiarch="$(dpkg-architecture -qDEB_HOST_MULTIARCH)"
deb() { echo "$debs/${1}_${version}_${arch}.deb"; }
for p in v2x-map-convert libv2xmap1 libv2xmap-dev v2x-map-convert-dbgsym libv2xmap1-dbgsym; do
  [ -f "$(deb $p)" ] || fail "no package $p in $debs: $(ls "$debs")"
done

# Errors and warnings fail; information tags are listed only.
lintian --fail-on error,warning "$debs"/*.changes >"$tmp/lintian" 2>&1 || { cat "$tmp/lintian" >&2; fail "lintian"; }

has() {  # PACKAGE PATH...: every path is in the package
  local pkg="$1" list
  shift
  list="$(dpkg-deb -c "$(deb "$pkg")" | awk '{ print $6 }')"
  for p in "$@"; do
    grep -qxF "./$p" <<<"$list" || fail "$pkg lacks /$p"
  done
}
lib="usr/lib/$multiarch"
has v2x-map-convert usr/bin/v2x_map_convert usr/bin/v2x_map_tool usr/bin/v2x_cloud_sim usr/bin/v2x_stack_sim \
  usr/bin/v2x_logtool lib/systemd/system/v2x_map_convert.service usr/libexec/v2x_map_convert/prepare-workdir \
  etc/v2x_service/v2x_map_convert.cfg etc/v2x_service/rsu_sysinfo.xml etc/v2x_service/v2x_ipc_port.cfg \
  usr/share/v2x_map_convert/workdir/conf/v2x_map_convert.cfg usr/share/man/man1/v2x_map_convert.1.gz \
  usr/share/doc/v2x-map-convert/README.md usr/share/doc/v2x-map-convert/copyright
has libv2xmap1 "$lib/libv2xmap.so.1"
has libv2xmap-dev usr/include/v2x/v2xapp_gbmap.h "$lib/libv2xmap.so" "$lib/libv2xmap.a" \
  "$lib/cmake/V2xMap/V2xMapConfig.cmake" "$lib/pkgconfig/v2xmap.pc" "$lib/pkgconfig/v2xmap-static.pc"
grep -E 'libv2xmap|/include/' <<<"$(dpkg-deb -c "$(deb v2x-map-convert)")" && fail "service package carries library files"

field() { dpkg-deb -f "$(deb "$1")" "$2"; }
for d in libc6 libspdlog libcjson libddsc libmbedcrypto libconfig; do
  [[ "$(field v2x-map-convert Depends)" == *"$d"* ]] || fail "Depends lacks $d: $(field v2x-map-convert Depends)"
done
[[ "$(field libv2xmap-dev Depends)" == *"libv2xmap1 (= $version)"* ]] || fail "-dev Depends: $(field libv2xmap-dev Depends)"
control="$(dpkg-deb --ctrl-tarfile "$(deb v2x-map-convert)" | tar xO ./conffiles ./postinst ./prerm ./postrm)"
for want in /etc/v2x_service/rsu_sysinfo.xml "deb-systemd-helper enable 'v2x_map_convert.service'" \
  "deb-systemd-invoke \$_dh_action 'v2x_map_convert.service'" 'rm -rf /var/lib/v2x_service'; do
  grep -qF "$want" <<<"$control" || fail "maintainer scripts or conffiles lack: $want"
done

root="$tmp/root"
for p in v2x-map-convert libv2xmap1 libv2xmap-dev; do dpkg-deb -x "$(deb $p)" "$root"; done
# Hardened ELF files: position independent, read-only relocations bound at
# start; the service and the library (which keep text in fixed buffers) with
# the stack protector and fortified calls. (Each tool's whole output is read:
# grep -q at the end of a pipe could stop it early.)
for prog in "$root"/usr/bin/* "$root/$lib/libv2xmap.so.1"; do
  grep -q ', stripped' <<<"$(file -L "$prog")" || fail "$prog is not stripped"
  grep -q 'Type: *DYN' <<<"$(readelf -h "$prog")" || fail "$prog is not position independent"
  grep -q 'BIND_NOW\|FLAGS.*NOW' <<<"$(readelf -d "$prog")" || fail "$prog is not linked with -z now"
  grep -q GNU_RELRO <<<"$(readelf -lW "$prog")" || fail "$prog has no RELRO"
done
for prog in "$root/usr/bin/v2x_map_convert" "$root/$lib/libv2xmap.so.1"; do
  grep -q __stack_chk_fail <<<"$(nm -D "$prog")" || fail "$prog has no stack protector"
  grep -q '_chk@' <<<"$(nm -D "$prog")" || fail "$prog has no fortified calls"
done
out="$("$root/usr/bin/v2x_map_convert" --version)" || fail "v2x_map_convert --version exited $?"
[ "$out" = "version:map_conv_v230522.001" ] || fail "v2x_map_convert --version printed '$out'"
bash "$here/cli_test.sh" "$root/usr/bin" "$version" "$root/usr/share/man/man1"
bash "$here/install_consumer_test.sh" --installed "$root/usr" "$src" "lib/$multiarch" "${CC:-cc}"

unit="$root/lib/systemd/system/v2x_map_convert.service"
grep -qx 'ExecStart=/usr/bin/v2x_map_convert -w %S/v2x_service -f %L/v2x_service/map_conv.log' "$unit" ||
  fail "unit does not start /usr/bin/v2x_map_convert in /var/lib/v2x_service"
# The unit with its programs and manual page taken from the unpacked package.
sed "s#=/usr/#=$root/usr/#" "$unit" >"$tmp/v2x_map_convert.service"
verify="$(MANPATH="$root/usr/share/man" systemd-analyze verify "$tmp/v2x_map_convert.service" 2>&1)" || true
[ -z "$verify" ] || fail "systemd-analyze verify: $verify"

# Working directory helper: the packaged configuration, operator files, the
# 63-character limit.
helper="$root/usr/libexec/v2x_map_convert/prepare-workdir"
cp -r "$root/etc/v2x_service" "$work/etc"
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
echo "packages ok: $(cd "$debs" && ls ./*.deb | tr '\n' ' ')"
