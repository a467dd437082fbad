// Map upload: every map the V2X stack returns is wrapped in its upload
// envelope, rendered as JSON and published on the map-up topic; the cloud's
// acknowledgements are joined and noted.
#include "map_conv_mapup.h"

#include <MessageFrame.h>
#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "map_conv_deamon.h"
#include "map_conv_profile.h"
#include "map_conv_v2xcloud_dds.h"
#include "v2xlog.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "MAPU"};

// Upload sequence number: from 1 at start, one per envelope filled, whether
// or not the upload then goes out. Not kept across restarts.
std::atomic<uint32> g_upSeqNum{1};

// The acknowledgement being joined; only the DDS dispatch thread touches it.
v2xmapconv_sampleJoin_t g_ackJoin;

// Field profile: an upload longer than a map-down message may be (the cloud's
// receiver may cut it) still goes out, with one warning per map. The maps
// warned about are known by their document without the sequence number; the
// last few are kept, on the uploading task's thread only.
constexpr size_t kUpWarnLen = 9999;
std::array<uint64, 16> g_warnedMaps{};
size_t g_warnedNext = 0;

void warnOverlong(const char* text, size_t len, int32_t index) {
  if (len <= kUpWarnLen) return;
  const char* seq = std::strstr(text, ",\"seqNum\":");
  const size_t keyLen = seq != nullptr ? static_cast<size_t>(seq - text) : len;
  uint64 key = 14695981039346656037ULL;
  for (size_t i = 0; i < keyLen; ++i) key = (key ^ static_cast<unsigned char>(text[i])) * 1099511628211ULL;
  if (std::find(g_warnedMaps.begin(), g_warnedMaps.end(), key) != g_warnedMaps.end()) return;
  g_warnedMaps[g_warnedNext] = key;
  g_warnedNext = (g_warnedNext + 1) % g_warnedMaps.size();
  V2XLOG(&g_curTag, 3, "map %d upload is %zu bytes, over %zu: sent all the same", index, len, kUpWarnLen);
}

}  // namespace

extern "C" {

int32 v2xmapconv_SetMapDataValue(v2xcloud_map_data_t* map_updata, void* handle, int32_t index) {
  V2XLOG_START(&g_curTag);
  if (map_updata == nullptr || handle == nullptr) {
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  map_updata->mapSlice = static_cast<uint8>(index);
  map_updata->map = static_cast<MessageFrame*>(handle);
  // One eTag per local day.
  std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::snprintf(map_updata->eTag, sizeof(map_updata->eTag), "%s%04d%02d%02d", "MapUpEtag", local.tm_year + 1900,
                local.tm_mon + 1, local.tm_mday);
  map_updata->ack = true;
  // Printed signed: past 2^31 - 1 the text turns negative.
  const uint32 seq = g_upSeqNum.fetch_add(1);
  std::snprintf(map_updata->seqNum, sizeof(map_updata->seqNum), "%d", static_cast<int32>(seq));
  V2XLOG_END(&g_curTag, 0);
  return 0;
}

int32 v2xmapconv_MapDataUp(V2XAPP_GBMHANDLE* p_handle, int32_t index) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  char* text = nullptr;
  auto* frame = p_handle != nullptr ? static_cast<MessageFrame_t*>(*p_handle) : nullptr;
  if (frame == nullptr || frame->present != MessageFrame_PR_mapFrame) {
    // Also any other message the stack might hand over: only maps go up.
    V2XLOG(&g_curTag, 2, "input param error");
    ret = -2;
  } else {
    v2xcloud_map_data_t up;
    std::memset(&up, 0, sizeof(up));
    v2xmapconv_SetMapDataValue(&up, frame, index);
    text = v2xmapconv_StructToJson(&up);
    v2xcloud_comm_ddsinfo_t* ddsinfo = v2xmapconv_GetddsInfo();
    if (text == nullptr) {
      V2XLOG(&g_curTag, 2, "v2xmapconv_StructToJson failed!");
      ret = -4;
    } else if (ddsinfo == nullptr || ddsinfo->dds_object == nullptr || ddsinfo->mp_map_up_topic == nullptr) {
      V2XLOG(&g_curTag, 2, "Get ddsinfo failed!");
      ret = -3;
    } else {
      if (v2xmapconv_IsFieldProfile() != 0) warnOverlong(text, std::strlen(text), index);
      // A send failure (no cloud listening, link closed) is the link's to log.
      v2xcloud_ddsSend(ddsinfo->dds_object, ddsinfo->mp_map_up_topic, text,
                       static_cast<unsigned int>(std::strlen(text)));
      V2XLOG(&g_curTag, 6, "map %d uploaded, %zu bytes", index, std::strlen(text));
    }
  }
  if (p_handle != nullptr) v2xapp_GBMapStrDel(p_handle);
  cJSON_free(text);
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 v2xmapconv_JoinSample(v2xmapconv_sampleJoin_t* join, const void* data, unsigned int len) {
  if (join == nullptr || (data == nullptr && len > 0)) return -2;
  int32 result = 0;
  if (static_cast<uint64>(join->m_len) + len > V2XMAPCONV_JOIN_BUF_LEN - 1) {
    v2xmapconv_JoinReset(join);
    result |= V2XMAPCONV_JOIN_OVERFLOW;
  } else if (len > 0) {
    std::memcpy(join->m_data + join->m_len, data, len);
    join->m_len += len;
  }
  if (len < V2XMAPCONV_JOIN_SAMPLE_LEN) result |= V2XMAPCONV_JOIN_DONE;
  return result;
}

void v2xmapconv_JoinReset(v2xmapconv_sampleJoin_t* join) {
  if (join == nullptr) return;
  std::memset(join->m_data, 0, sizeof(join->m_data));
  join->m_len = 0;
}

void v2xmapconv_ddsRecvMapUpAck(void* data, unsigned int len) {
  V2XLOG(&g_curTag, 7, "%s start recv:%d", __func__, static_cast<int>(len));
  int32 joined = v2xmapconv_JoinSample(&g_ackJoin, data, len);
  if (joined < 0) {
    V2XLOG(&g_curTag, 2, "input param error");
  } else {
    if ((joined & V2XMAPCONV_JOIN_OVERFLOW) != 0) V2XLOG(&g_curTag, 3, "Msg data is too long");
    if ((joined & V2XMAPCONV_JOIN_DONE) != 0) {
      // The acknowledgement is only noted; an upload is never repeated.
      V2XLOG(&g_curTag, 7, "MapUpAck recv_total:%d", static_cast<int>(g_ackJoin.m_len));
      v2xmapconv_JoinReset(&g_ackJoin);
    }
  }
  V2XLOG_END(&g_curTag, joined < 0 ? joined : 0);
}

}  // extern "C"
