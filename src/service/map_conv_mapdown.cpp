// Map download (not available yet).
#include "map_conv_mapdown.h"

#include "v2xlog.h"

namespace {
v2xlog_config_t g_curTag = {nullptr, "DOWN"};
uint64 g_last_mapdown_timestamp = 0;
}  // namespace

extern "C" {

int32 v2xmapconv_MapDownJsonToStruct(char* map_json, v2xcloud_map_data_t* map_data) {
  if (map_json == nullptr || map_data == nullptr) return -2;
  V2XLOG(&g_curTag, 2, "map download not available in this build");
  return -1;
}

int32 v2xmapconv_WriteMapDataToCfg(v2xcloud_map_data_t* map_data, v2xipc_mapRefresh_t* refresh) {
  if (map_data == nullptr || refresh == nullptr) return -2;
  return -1;
}

int32 v2xmapconv_SetErrorCode(int32 error_code) {
  (void)error_code;
  return 0;
}

int32 v2xmapconv_MapDownAckToCloud(v2xcloud_map_data_t* map_data) { return map_data == nullptr ? -2 : -1; }

int32 v2xmapconv_GetMapDownLastTimestamp(uint64* timeStamp) {
  if (timeStamp == nullptr) return -2;
  *timeStamp = g_last_mapdown_timestamp;
  return 0;
}

}  // extern "C"
