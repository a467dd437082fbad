// Map upload. Rendering and publishing come later; for now a map handed in
// is released, as the caller expects.
#include "map_conv_mapup.h"

#include "v2xlog.h"

namespace {
v2xlog_config_t g_curTag = {nullptr, "MAPU"};
}  // namespace

extern "C" {

int32 v2xmapconv_MapDataUp(V2XAPP_GBMHANDLE* p_handle, int32_t index) {
  if (p_handle == nullptr || *p_handle == nullptr) return -2;
  V2XLOG(&g_curTag, 6, "map %d received, upload not available in this build", index);
  v2xapp_GBMapStrDel(p_handle);
  return 0;
}

}  // extern "C"
