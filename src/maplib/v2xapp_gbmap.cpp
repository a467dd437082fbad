// Placeholder: the MAP codec arrives with the ASN.1 module.
#include "v2xapp_gbmap.h"

extern "C" int32_t v2xapp_GBMapStrDel(V2XAPP_GBMHANDLE* p_handle) {
  if (*p_handle == nullptr) return -2;
  *p_handle = nullptr;
  return 0;
}
