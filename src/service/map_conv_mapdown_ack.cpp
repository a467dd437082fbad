// Map download: the download error code with its texts, and the
// acknowledgement that reports it to the cloud.
#include <cjson/cJSON.h>

#include <cstring>

#include "map_conv_deamon.h"
#include "map_conv_mapdown_detail.h"
#include "map_conv_v2xcloud_dds.h"

using namespace v2xmapconv::mapdown::detail;

namespace {

const char* const g_errorDescriptions[ERROR_CODE_MAPDOWN_NUM] = {
    "No error",
    "Etag error",
    "NODE id error",
    "NODE refPos error",
    "NODE refPos longitude error",
    "NODE refPos latitude error",
    "NODE refPos elevation error",
    "NODE Link upstreamNodeId error",
    "NODE Link linkwidth",
    "NODE Link lanes error",
    "NODE Link speedlimit error",
    "NODE Link Movements phaseid error",
    "NODE Link lanes laneid error",
    "NODE Link lanes lanewidth error",
    "NODE Link lanes connectsTo phaseid error",
    "NODE Link lanes points longitude error",
    "NODE Link lanes points latitude error",
    "NODE Link lanes points elevation error",
    "Set MAP config error",
};

// Written by the readers and the reception, read by the acknowledgement; all
// on the thread that delivers the map-down topic.
ErrorCode_MapDown g_errorCode = ERROR_CODE_NONE;

}  // namespace

namespace v2xmapconv::mapdown::detail {

void resetErrorCode() { g_errorCode = ERROR_CODE_NONE; }

}  // namespace v2xmapconv::mapdown::detail

extern "C" {

int32 v2xmapconv_SetErrorCode(int32 error_code) {
  V2XLOG(&g_curTag, 7, "%s start", __func__);
  int32 ret = 0;
  if (error_code < ERROR_CODE_NONE || error_code >= ERROR_CODE_MAPDOWN_NUM) {
    V2XLOG(&g_curTag, 2, "unknown error code %d refused", error_code);
    ret = -2;
  } else {
    g_errorCode = static_cast<ErrorCode_MapDown>(error_code);
  }
  V2XLOG(&g_curTag, 7, "%s end ", __func__);
  return ret;
}

int32 v2xmapconv_GetErrorCode(void) { return g_errorCode; }

const char* v2xmapconv_GetErrorDesc(int32 error_code) {
  if (error_code < ERROR_CODE_NONE || error_code >= ERROR_CODE_MAPDOWN_NUM) return "Unknown error";
  return g_errorDescriptions[error_code];
}

int32 v2xmapconv_MapDownAckBuild(const v2xcloud_map_data_t* map_data, char* text, uint32 size) {
  if (map_data == nullptr || text == nullptr || size == 0) return -2;
  cJSON* ack = cJSON_CreateObject();
  if (ack == nullptr) {
    V2XLOG(&g_curTag, 2, "cJSON_Parse Error!");
    return -2;
  }
  char seqNum[sizeof(map_data->seqNum)];
  copyText(seqNum, sizeof(seqNum), map_data->seqNum);
  cJSON_AddStringToObject(ack, "seqNum", seqNum);
  if (g_errorCode != ERROR_CODE_NONE) {
    // The cloud reads the code from its text; the number only says "failed".
    cJSON_AddNumberToObject(ack, "errorCode", 1);
    cJSON_AddStringToObject(ack, "errorDesc", v2xmapconv_GetErrorDesc(g_errorCode));
  }
  int32 ret = -3;
  char* printed = cJSON_PrintUnformatted(ack);
  if (printed != nullptr) {
    size_t len = std::strlen(printed);
    if (len < size) {
      std::memcpy(text, printed, len + 1);
      ret = static_cast<int32>(len);
    }
    cJSON_free(printed);
  }
  cJSON_Delete(ack);
  if (ret < 0) V2XLOG(&g_curTag, 2, "acknowledgement text does not fit in %u bytes", size);
  return ret;
}

int32 v2xmapconv_MapDownAckToCloud(v2xcloud_map_data_t* map_data) {
  V2XLOG(&g_curTag, 7, "%s start ", __func__);
  if (map_data == nullptr) return -2;
  char text[512];
  int32 len = v2xmapconv_MapDownAckBuild(map_data, text, sizeof(text));
  if (len == -2) return -2;
  if (len < 0) return -1;
  v2xcloud_comm_ddsinfo_t* ddsinfo = v2xmapconv_GetddsInfo();
  if (ddsinfo != nullptr && ddsinfo->mp_map_down_ack_topic != nullptr) {
    v2xcloud_ddsSend(ddsinfo->dds_object, ddsinfo->mp_map_down_ack_topic, text, static_cast<unsigned int>(len));
  } else {
    V2XLOG(&g_curTag, 2, "Get ddsinfo failed!");
  }
  return -1;
}

}  // extern "C"
