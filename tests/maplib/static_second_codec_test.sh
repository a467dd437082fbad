#!/usr/bin/env bash
# Links the static MAP library into one program together with a second codec
# that Debian's asn1c generates here from a small module of its own, whose
# top type is also called MessageFrame (as a BSM or SPAT codec's may be): the
# program must link, and both codecs must encode and decode their messages.
#   static_second_codec_test.sh LIBV2XMAP_A INCLUDE_DIR C_COMPILER CXX_COMPILER PC_MODULES LINK_FLAGS
# (the pkg-config modules and the other link flags a static user needs).
set -euo pipefail
lib="$1" include="$2" cc="$3" cxx="$4"
read -ra extra <<<"$(pkg-config --libs --static $5) $6 -lstdc++ -lm"
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# Only the public API may be global in the library.
others="$(nm -g --defined-only "$lib" | awk 'NF == 3 && $2 ~ /[A-TV-Z]/ { print $3 }' |
  grep -Ev '^(v2xapp_|v2xcodec_|setPosOffset|prasePosOffset)' || true)"
[ -z "$others" ] || fail "libv2xmap.a exports more than its API: $(echo "$others" | head -5)"

mkdir "$tmp/gen"
cat >"$tmp/gen/Probe.asn" <<'ASN'
Probe DEFINITIONS AUTOMATIC TAGS ::= BEGIN
MessageFrame ::= SEQUENCE {
  id INTEGER (0..255),
  flags BIT STRING (SIZE(4)),
  ...
}
END
ASN
(cd "$tmp/gen" && asn1c -fcompound-names -fincludes-quoted -gen-PER Probe.asn >/dev/null 2>&1) || fail "asn1c"
rm -f "$tmp/gen/converter-sample.c" "$tmp/gen/pdu_collection.c"

cat >"$tmp/main.c" <<'C'
#include <stdio.h>
#include <string.h>

#include "MessageFrame.h" /* the second codec's own MessageFrame */
#include "v2xapp_gbmap.h"
#include "v2xapp_gbmap_build.h"

int main(void) {
  /* Second codec: id 5, flags 1010 -> 0 (ext) 00000101 1010 = 02 D0 */
  MessageFrame_t probe;
  memset(&probe, 0, sizeof(probe));
  uint8_t bits = 0xA0;
  probe.id = 5;
  probe.flags.buf = &bits;
  probe.flags.size = 1;
  probe.flags.bits_unused = 4;
  uint8_t out[16];
  asn_enc_rval_t er = uper_encode_to_buffer(&asn_DEF_MessageFrame, &probe, out, sizeof(out));
  if (er.encoded != 13 || out[0] != 0x02 || out[1] != 0xD0) return printf("probe encode %zd\n", er.encoded), 1;
  MessageFrame_t* back = NULL;
  asn_dec_rval_t dr = uper_decode_complete(NULL, &asn_DEF_MessageFrame, (void**)&back, out, 2);
  if (dr.code != RC_OK || back->id != 5 || back->flags.buf[0] != 0xA0) return puts("probe decode"), 1;
  ASN_STRUCT_FREE(asn_DEF_MessageFrame, back);

  /* The MAP library: the fact sheet's vector D1 and back. */
  static const uint8_t d1[] = {0x10, 0x08, 0x00, 0x00, 0x05, 0x35, 0x6f, 0xb2, 0xda, 0xc2, 0xf0, 0x81, 0x04};
  V2XAPP_GBMHANDLE map = NULL, node = NULL, again = NULL;
  uint8_t buf[64];
  uint32_t len = sizeof(buf);
  if (v2xapp_GBMapStrInit(&map) || v2xapp_GBMapSetMsgCnt(map, 1) || v2xapp_GBMapNodeInit(&node, 1, NULL, NULL, 0) ||
      v2xapp_GBMapNodeSetRefPos(node, 397870006, 1165119042, NULL) || v2xapp_GBMapAddNode(map, node) ||
      v2xapp_GBMapUperEncode(map, buf, &len) || len != sizeof(d1) || memcmp(buf, d1, len) != 0)
    return puts("map encode"), 1;
  if (v2xapp_GBMapUperDecodeFresh(&again, d1, sizeof(d1)) != 0) return puts("map decode"), 1;
  len = sizeof(buf);
  if (v2xapp_GBMapUperEncode(again, buf, &len) || len != sizeof(d1) || memcmp(buf, d1, len) != 0)
    return puts("map re-encode"), 1;
  v2xapp_GBMapStrDel(&map);
  v2xapp_GBMapStrDel(&again);
  puts("both codecs ok");
  return 0;
}
C
for f in "$tmp"/gen/*.c; do
  "$cc" -c -w -D_DEFAULT_SOURCE -I"$tmp/gen" "$f" -o "${f%.c}.o" || fail "compile $f"
done
"$cc" -c -Wall -Werror -D_DEFAULT_SOURCE -I"$tmp/gen" -I"$include" "$tmp/main.c" -o "$tmp/main.o" || fail "compile main"
"$cxx" -o "$tmp/both" "$tmp/main.o" "$tmp"/gen/*.o "$lib" "${extra[@]}" >"$tmp/link.log" 2>&1 ||
  { cat "$tmp/link.log" >&2; fail "link"; }
"$tmp/both" | grep -q "both codecs ok" || fail "run: $("$tmp/both" 2>&1)"
echo "static library and a second codec in one program: ok"
