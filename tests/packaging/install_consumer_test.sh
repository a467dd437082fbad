#!/usr/bin/env bash
# Installs the build into a staging prefix and checks the MAP library as an
# RSU program gets it:
#   - the shared library's SONAME, and that it exports exactly the functions
#     its public headers declare (each header compiles on its own as C);
#   - a consumer project (find_package(V2xMap CONFIG)) builds against the
#     shared and the static library, and a pkg-config build against both;
#   - each consumer decodes a map the installed v2x_map_tool stored from a
#     sample document and encodes it back to the same bytes;
#   - the installed programs' command lines and manual pages (cli_test.sh).
#   install_consumer_test.sh BUILD_DIR SOURCE_DIR LIBDIR C_COMPILER
#   install_consumer_test.sh --installed PREFIX SOURCE_DIR LIBDIR C_COMPILER
# The second form checks what is installed in PREFIX already (the unpacked
# Debian packages' usr/, whose pkg-config file names /usr).
set -euo pipefail
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
prefix="$tmp/prefix"
[ "$1" = --installed ] && { prefix="$(realpath "$2")"; shift; }
build="$1" src="$2" libdir="$3" cc="$4"
fail() { echo "FAIL: $*" >&2; exit 1; }
quiet() { "$@" >"$tmp/out.log" 2>&1 || { cat "$tmp/out.log" >&2; fail "$*"; }; }

if [ "$prefix" = "$tmp/prefix" ]; then
  quiet cmake --install "$build" --prefix "$prefix"
  version="$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")"
  bash "$(dirname "$0")/cli_test.sh" "$prefix/bin" "$version" "$prefix/share/man/man1"
fi
lib="$prefix/$libdir/libv2xmap.so"
soname="$(objdump -p "$lib" | awk '$1 == "SONAME" { print $2 }')"
[[ "$soname" =~ ^libv2xmap\.so\.[0-9]+$ ]] || fail "SONAME is '$soname'"
[ -e "$prefix/$libdir/$soname" ] || fail "$soname not installed"

# Functions the installed headers declare (GCC's -aux-info lists each
# prototype with the file it comes from; gcc whatever compiler is under test)
# against the library's exports.
for h in "$prefix"/include/v2x/*.h; do
  echo "#include \"$(basename "$h")\"" >"$tmp/one.c"
  quiet "$cc" -std=c11 -Wall -Wextra -Werror -I"$prefix/include/v2x" -c "$tmp/one.c" -o "$tmp/one.o"
  quiet gcc -std=c11 -I"$prefix/include/v2x" -fsyntax-only "$tmp/one.c" -aux-info "$tmp/one.aux"
  grep "^/\* $prefix/include/v2x/" "$tmp/one.aux" | grep -v ' static ' |
    sed -E 's/ *\(.*//; s/.*[ *]([A-Za-z_][A-Za-z0-9_]*)$/\1/' >>"$tmp/declared"
done
sort -u -o "$tmp/declared" "$tmp/declared"
nm -D --defined-only "$lib" | awk '$2 == "T" { sub(/@.*/, "", $3); print $3 }' | sort -u >"$tmp/exported"
[ -s "$tmp/declared" ] || fail "no function found in the installed headers"
if ! diff "$tmp/declared" "$tmp/exported" >"$tmp/diff"; then
  cat "$tmp/diff" >&2
  fail "exports differ from the public headers (< declared only, > exported only)"
fi

quiet "$prefix/bin/v2x_map_tool" convert "$src/etc/samples/map_slice1.json" -o "$tmp/maps"
map="$(ls "$tmp"/maps/map_data_*)"

run() {  # program, then what its output must say
  "$@" "$map" >"$tmp/run.log" 2>&1 || { cat "$tmp/run.log" >&2; fail "$*"; }
  grep -q "round trip ok" "$tmp/run.log" || fail "$*: $(cat "$tmp/run.log")"
}

quiet cmake -S "$src/tests/packaging/consumer" -B "$tmp/consumer" -DCMAKE_C_COMPILER="$cc" \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
quiet cmake --build "$tmp/consumer"
grep -q "$lib" <<<"$(ldd "$tmp/consumer/map_roundtrip")" || fail "CMake consumer does not load $lib"
grep -q libv2xmap <<<"$(ldd "$tmp/consumer/map_roundtrip_static")" && fail "static CMake consumer loads libv2xmap"
run "$tmp/consumer/map_roundtrip"
run "$tmp/consumer/map_roundtrip_static"

export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
consumer_c="$src/tests/packaging/consumer/map_roundtrip.c"
for module in v2xmap v2xmap-static; do
  read -ra flags <<<"$(pkg-config --define-variable=prefix="$prefix" --cflags --libs --static $module)"
  quiet "$cc" -Wall -Werror "$consumer_c" "${flags[@]}" -o "$tmp/pc_$module"
done
LD_LIBRARY_PATH="$prefix/$libdir" run "$tmp/pc_v2xmap"
grep -q "$lib" <<<"$(LD_LIBRARY_PATH="$prefix/$libdir" ldd "$tmp/pc_v2xmap")" || fail "pkg-config v2xmap does not load $lib"
grep -q libv2xmap <<<"$(ldd "$tmp/pc_v2xmap-static")" && fail "pkg-config v2xmap-static loads libv2xmap"
run "$tmp/pc_v2xmap-static"
echo "install and consumers ok ($(wc -l <"$tmp/exported") exported functions)"
