// Placeholder: the MAP codec arrives with the ASN.1 module. Every operation
// reports failure so callers can be built and linked meanwhile.
#include "v2xapp_gbmap.h"

extern "C" {
int32_t v2xapp_GBMapStrInit(V2XAPP_GBMHANDLE*) { return -2; }
int32_t v2xapp_GBMapStrDel(V2XAPP_GBMHANDLE* p_handle) {
  if (*p_handle == nullptr) return -2;
  *p_handle = nullptr;
  return 0;
}
int32_t v2xapp_GBMapSetMsgCnt(V2XAPP_GBMHANDLE, uint32_t) { return -2; }
int32_t v2xapp_GBMapGetMsgCnt(V2XAPP_GBMHANDLE, uint32_t*) { return -2; }
int32_t v2xapp_GBMapSetTimStamp(V2XAPP_GBMHANDLE, uint32_t) { return -2; }
int32_t v2xapp_GBMapGetTimStamp(V2XAPP_GBMHANDLE, uint32_t*) { return -2; }
int32_t v2xapp_GBMapUperEncode(V2XAPP_GBMHANDLE, uint8_t*, uint32_t*) { return -3; }
int32_t v2xapp_GBMapUperDecode(V2XAPP_GBMHANDLE*, uint8_t*, uint32_t) { return -2; }
int32_t v2xapp_GBMapXerEncode(V2XAPP_GBMHANDLE, uint8_t*, uint32_t*) { return -3; }
int32_t v2xapp_GBMapXerDecode(V2XAPP_GBMHANDLE*, uint8_t*, uint32_t) { return -2; }
int32_t v2xapp_GBMapPrint(V2XAPP_GBMHANDLE) { return 0; }
}
