#!/usr/bin/env bash
# The MAP library's example program as an integrator builds it: the -dev and
# runtime files installed into a staging prefix, the installed example
# project configured against that prefix with the shared and with the static
# library, each program run. The installed API reference is checked too when
# this build made one.
#   example_install_test.sh BUILD_DIR C_COMPILER DOCS_BUILT(0|1)
set -euo pipefail
build="$1" cc="$2" docs="$3"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
quiet() { "$@" >"$tmp/out.log" 2>&1 || { cat "$tmp/out.log" >&2; fail "$*"; }; }

prefix="$tmp/prefix"
for component in dev runtime; do
  quiet cmake --install "$build" --prefix "$prefix" --component "$component"
done
share="$prefix/share/doc/libv2xmap-dev"
[ -f "$share/examples/map_example.c" ] || fail "example not installed"
if [ "$docs" = 1 ]; then
  grep -q "v2xapp_GBMapLaneSetManeuverFlags" "$share/html/v2xapp__gbmap__build_8h.html" ||
    fail "API reference not installed or incomplete"
fi

for static in OFF ON; do
  out="$tmp/example-$static"
  quiet cmake -S "$share/examples" -B "$out" -DCMAKE_C_COMPILER="$cc" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DV2XMAP_EXAMPLE_STATIC="$static"
  quiet cmake --build "$out"
  LD_LIBRARY_PATH="$prefix/lib:$prefix/lib/$(gcc -print-multiarch 2>/dev/null || true)" "$out/map_example" \
    >"$tmp/run.log" 2>&1 || { cat "$tmp/run.log" >&2; fail "map_example ($static)"; }
  grep -q "example ok" "$tmp/run.log" || fail "map_example ($static): $(cat "$tmp/run.log")"
  ! grep -q "\[GMAP\]" "$tmp/run.log" || fail "the example logged: $(cat "$tmp/run.log")"
done
echo "example built against the installed package (shared and static): ok"
