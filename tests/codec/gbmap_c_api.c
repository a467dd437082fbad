/* The MAP library's header used from C: a count set and read back through a
 * fresh message, and the release of that message. */
#include <stddef.h>

#include "v2xapp_gbmap.h"

int gbmap_c_round_trip(uint32_t msgCnt, uint32_t* out) {
  V2XAPP_GBMHANDLE map = NULL;
  int32_t rc = v2xapp_GBMapStrInit(&map);
  if (rc == 0) rc = v2xapp_GBMapSetMsgCnt(map, msgCnt);
  if (rc == 0) rc = v2xapp_GBMapGetMsgCnt(map, out);
  if (map != NULL && v2xapp_GBMapStrDel(&map) != 0) rc = -100;
  if (map != NULL) rc = -101;
  return (int)rc;
}
