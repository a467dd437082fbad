// Cloud link over DDS (not connected yet: every send reports -2).
#include "map_conv_v2xcloud_dds.h"

#include <cstring>

#include "v2xlog.h"

namespace {
v2xlog_config_t g_curTag = {nullptr, "MDDS"};
v2xcloud_map_data_t g_map_down_data;
}  // namespace

extern "C" {

int32 v2xcloud_ddsInit(v2xcloud_comm_ddsinfo_t* ddsinfo, char* rsu_esn) {
  if (rsu_esn == nullptr) return -2;
  (void)ddsinfo;
  V2XLOG(&g_curTag, 4, "cloud link not available in this build (device %s)", rsu_esn);
  return 0;
}

int32 v2xcloud_ddsExit(v2xcloud_comm_ddsinfo_t* ddsinfo) { return ddsinfo == nullptr ? -2 : 0; }

int32 v2xcloud_ddsSend(void* dds_handle, const char* topic, void* data, unsigned int data_len) {
  (void)dds_handle;
  (void)topic;
  (void)data;
  (void)data_len;
  return -2;
}

void v2xcloud_ddsRecvCommSoft(void* data, unsigned int len) {
  (void)data;
  (void)len;
}
void v2xcloud_ddsRecvMapDown(void* data, unsigned int len) {
  (void)data;
  (void)len;
}
void v2xcloud_ddsRecvMapAck(void* data, unsigned int len) {
  (void)data;
  (void)len;
}

int32 v2xcloud_GetMapDownData(v2xcloud_map_data_t** map_down_data) {
  if (map_down_data == nullptr) return -2;
  *map_down_data = &g_map_down_data;
  return 0;
}

}  // extern "C"
