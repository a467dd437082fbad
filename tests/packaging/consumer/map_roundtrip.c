/*
 * Decodes a stored map file (one UPER MessageFrame) with the MAP library,
 * encodes it again and checks that the bytes are the same. Prints the map's
 * message count and size; exit status 0 when the round trip holds.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "v2xapp_gbmap.h"

int main(int argc, char** argv) {
  static uint8_t in[65536];
  static uint8_t out[65536];
  if (argc != 2) {
    fprintf(stderr, "usage: %s MAP_FILE\n", argv[0]);
    return 2;
  }
  FILE* f = fopen(argv[1], "rb");
  if (f == NULL) {
    perror(argv[1]);
    return 2;
  }
  size_t n = fread(in, 1, sizeof(in), f);
  fclose(f);

  V2XAPP_GBMHANDLE map = NULL;
  if (n == 0 || v2xapp_GBMapUperDecode(&map, in, (uint32_t)n) != 0) {
    fprintf(stderr, "decode failed (%zu bytes)\n", n);
    v2xapp_GBMapStrDel(&map);
    return 1;
  }
  uint32_t msgCnt = 0;
  uint32_t len = sizeof(out);
  int ok = v2xapp_GBMapGetMsgCnt(map, &msgCnt) == 0 && v2xapp_GBMapUperEncode(map, out, &len) == 0 && len == n &&
           memcmp(in, out, n) == 0;
  v2xapp_GBMapStrDel(&map);
  if (!ok) {
    fprintf(stderr, "re-encoding differs (%u bytes, read %zu)\n", len, n);
    return 1;
  }
  printf("map msgCnt=%u bytes=%zu round trip ok\n", msgCnt, n);
  return 0;
}
