#!/usr/bin/env bash
# Command-line manners of the installed programs, and their manual pages:
#   - each tool: --help prints its usage line to standard output, nothing to
#     standard error, exit 0; --version prints "<tool> VERSION", exit 0; an
#     unknown option goes to standard error with the usage, nothing to
#     standard output, exit 2;
#   - the service keeps its own texts: -v/--version print its version text;
#   - every program has a manual page that man renders without a warning.
#   cli_test.sh BINDIR VERSION MANDIR
set -euo pipefail
bin="$1" version="$2" mandir="$3"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# run NAME ARGS...: status, standard output and standard error into $tmp
run() {
  local name="$1"
  shift
  set +e
  "$bin/$name" "$@" >"$tmp/out" 2>"$tmp/err" </dev/null
  echo $? >"$tmp/rc"
  set -e
}
expect() {  # WHAT STATUS OUT_PATTERN ERR_PATTERN (grep -E; empty: must be empty)
  local what="$1" rc="$2"
  [ "$(cat "$tmp/rc")" = "$rc" ] || fail "$what: exit $(cat "$tmp/rc"), not $rc; stderr: $(head -3 "$tmp/err")"
  check "$what: standard output" "$tmp/out" "$3"
  check "$what: standard error" "$tmp/err" "$4"
}
check() {  # WHAT FILE PATTERN
  if [ -z "$3" ]; then
    [ ! -s "$2" ] || fail "$1 not empty: $(head -3 "$2")"
  else
    grep -qE -- "$3" "$2" || fail "$1 lacks /$3/: $(head -3 "$2")"
  fi
}

for tool in v2x_map_tool v2x_cloud_sim v2x_stack_sim v2x_logtool; do
  run "$tool" --help
  expect "$tool --help" 0 "^usage: $tool " ""
  run "$tool" --version
  expect "$tool --version" 0 "^$tool ${version//./\\.}\$" ""
  [ "$(wc -l <"$tmp/out")" = 1 ] || fail "$tool --version printed more than one line"
  run "$tool" --no-such-option
  expect "$tool --no-such-option" 2 "" "usage: $tool "
done
for opt in -v --version; do
  run v2x_map_convert "$opt"
  expect "v2x_map_convert $opt" 0 '^version:map_conv_v[0-9]+\.[0-9]+$' ""
done

for name in v2x_map_convert v2x_map_tool v2x_cloud_sim v2x_stack_sim v2x_logtool; do
  page="$mandir/$name.1"
  [ -f "$page" ] || page="$page.gz"
  [ -f "$page" ] || fail "no manual page for $name in $mandir"
  LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$page" >"$tmp/page" 2>"$tmp/warn" || fail "man -l $page failed"
  [ ! -s "$tmp/warn" ] || fail "man -l $page: $(cat "$tmp/warn")"
  grep -q "$name" "$tmp/page" || fail "$page does not name $name"
done
echo "command lines and manual pages ok"
