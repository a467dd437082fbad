// Local IPC with the V2X protocol process and the log tool (not connected yet).
#include "map_conv_stack_interface.h"

#include "v2xlog.h"

namespace {
v2xlog_config_t g_curTag = {nullptr, "SINF"};
}  // namespace

extern "C" {

int32 v2xmapconv_StackInterfaceInit(void) {
  V2XLOG(&g_curTag, 4, "IPC sockets not available in this build");
  return 0;
}

int32 v2xmapconv_UpdataMapDataNotify(v2xipc_mapRefresh_t* pmap_refresh_data) {
  return pmap_refresh_data == nullptr ? -2 : -1;
}

void SendGetMapDataToAPP(void* arg) { (void)arg; }

}  // extern "C"
