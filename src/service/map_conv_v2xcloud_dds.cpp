// Cloud link over DDS: topic names, the DDS object, reception of the three
// inbound topics (joining 1024-byte samples into messages) and sending.
#include "map_conv_v2xcloud_dds.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <shared_mutex>

#include "map_conv_interface.h"
#include "map_conv_mapdown.h"
#include "map_conv_mapdown_stage.h"
#include "map_conv_profile.h"
#include "map_conv_stack_interface.h"
#include "v2xapp_gbmap.h"
#include "v2xdds.h"
#include "v2xlog.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "MDDS"};

// The last map received: filled on the map-down callback's thread, read by
// the status task through v2xcloud_GetLastMapRecord, both under g_lastMapLock.
v2xcloud_map_data_t g_map_down_data;
std::mutex g_lastMapLock;

// Sends take it shared; exit takes it once, exclusively, to mark the link
// closed before the object and the topic strings go away. Later sends (a
// task that has not been stopped yet) return -2 without touching either.
std::shared_mutex g_linkLock;
bool g_linkClosed = false;

constexpr unsigned int kSampleLen = 1024;
constexpr unsigned int kRecvBufLen = 10000;  // one message: at most 9999 bytes and a zero

int32 dds_TopicStrPreHandle(char** mp_topic, const char* start_topic_str, const char* rsu_esn,
                            const char* end_topic_str) {
  if (start_topic_str == nullptr || mp_topic == nullptr) return -2;
  char topic[128];
  std::memset(topic, 0, sizeof(topic));
  if (rsu_esn != nullptr && end_topic_str != nullptr)
    std::snprintf(topic, sizeof(topic), "%s%s%s", start_topic_str, rsu_esn, end_topic_str);
  else
    std::snprintf(topic, sizeof(topic), "%s", start_topic_str);
  size_t len = std::strlen(topic);
  char* p = static_cast<char*>(std::malloc(len + 1));
  if (p == nullptr) {
    V2XLOG(&g_curTag, 2, "malloc failed!");
    return -2;
  }
  std::memcpy(p, topic, len + 1);
  *mp_topic = p;
  return 0;
}

// The topic text, or null when it cannot be allocated.
char* buildTopic(const char* start_topic_str, const char* rsu_esn, const char* end_topic_str) {
  char* topic = nullptr;
  dds_TopicStrPreHandle(&topic, start_topic_str, rsu_esn, end_topic_str);
  return topic;
}

int32 dds_TopicInit(v2xcloud_comm_ddsinfo_t* ddsinfo, char* rsu_esn) {
  V2XLOG_START(&g_curTag);
  if (ddsinfo == nullptr || rsu_esn == nullptr) {
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  // The record is packed: its pointer fields are filled by value.
  ddsinfo->mp_commsoft_recv_topic = buildTopic("/murel/cloud/v2x/service_status", nullptr, nullptr);
  ddsinfo->mp_map_conv_send_topic = buildTopic("/murel/v2x/cloud/service_status", nullptr, nullptr);
  ddsinfo->mp_map_to_rsucloud_topic = buildTopic("rsu/", rsu_esn, "/map/rsucloud");
  ddsinfo->mp_map_down_topic = buildTopic("rsu/", rsu_esn, "/map/down");
  ddsinfo->mp_map_down_ack_topic = buildTopic("rsu/", rsu_esn, "/map/down/ack");
  ddsinfo->mp_map_up_topic = buildTopic("rsu/", rsu_esn, "/map/up");
  ddsinfo->mp_map_up_ack_topic = buildTopic("rsu/", rsu_esn, "/map/up/ack");
  V2XLOG_END(&g_curTag, 0);
  return 0;
}

int32 dds_RegAndSet(void* dds_handle, unsigned int domainID, char* topic, dds_recv_cb* callback,
                    unsigned int data_type) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  if (dds_handle == nullptr || topic == nullptr) {
    ret = -2;
  } else if (!dds_reg(dds_handle, domainID, topic, callback, data_type)) {
    ret = -3;
  } else {
    // Keep-all history: the pieces of a message are never dropped.
    set_history_qos(dds_handle, topic, 2, 0);
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

// Field profile: a map-down message over 9999 bytes is dropped whole, none of
// it parsed, with one line giving its length. True when this sample belongs
// to such a message (the buffer is then empty).
bool dropOverlong(char* buf, uint32& bufLen, uint64 total, const void* data, unsigned int len) {
  static bool dropping = false;
  static uint64 length = 0;
  if (!dropping && total <= kRecvBufLen - 1) return false;
  if (!dropping) {
    dropping = true;
    length = bufLen;
    std::memset(buf, 0, kRecvBufLen);
    bufLen = 0;
  }
  // The zero byte that follows a message of whole samples is not part of it.
  const bool zeroTail = len == 1 && static_cast<const uint8*>(data)[0] == 0;
  if (!zeroTail) length += len;
  if (len < kSampleLen) {
    V2XLOG(&g_curTag, 2, "Map msg of %llu bytes is over %u, dropped", static_cast<unsigned long long>(length),
           kRecvBufLen - 1);
    dropping = false;
    length = 0;
  }
  return true;
}

}  // namespace

extern "C" {

int32 v2xcloud_ddsInit(v2xcloud_comm_ddsinfo_t* ddsinfo, char* rsu_esn) {
  V2XLOG_START(&g_curTag);
  if (rsu_esn == nullptr) {
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  int32 ret = dds_TopicInit(ddsinfo, rsu_esn);
  if (ret != 0) {
    V2XLOG(&g_curTag, 2, "dds_TopicInit return failed!");
    V2XLOG_END(&g_curTag, ret);
    return ret;
  }
  ddsinfo->m_domain_id = V2XCLOUD_DDS_DOMAIN_ID;
  ddsinfo->dds_object = create_dds();
  void* obj = ddsinfo->dds_object;
  const unsigned int domain = V2XCLOUD_DDS_DOMAIN_ID;
  dds_RegAndSet(obj, domain, ddsinfo->mp_map_conv_send_topic, nullptr, 0);
  dds_RegAndSet(obj, domain, ddsinfo->mp_map_to_rsucloud_topic, nullptr, 0);
  dds_RegAndSet(obj, domain, ddsinfo->mp_commsoft_recv_topic, v2xcloud_ddsRecvCommSoft, 0);
  dds_RegAndSet(obj, domain, ddsinfo->mp_map_down_topic, v2xcloud_ddsRecvMapDown, 0);
  dds_RegAndSet(obj, domain, ddsinfo->mp_map_down_ack_topic, nullptr, 0);
  dds_RegAndSet(obj, domain, ddsinfo->mp_map_up_topic, nullptr, 0);
  dds_RegAndSet(obj, domain, ddsinfo->mp_map_up_ack_topic, v2xcloud_ddsRecvMapAck, 0);
  {
    std::unique_lock<std::shared_mutex> lock(g_linkLock);
    g_linkClosed = false;
  }
  set_white_list_iface(obj, "127.0.0.1");
  dds_start(obj);
  V2XLOG_END(&g_curTag, 0);
  return 0;
}

int32 v2xcloud_ddsExit(v2xcloud_comm_ddsinfo_t* ddsinfo) {
  V2XLOG_START(&g_curTag);
  if (ddsinfo == nullptr) {
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  // No callback starts any more; the one in progress finishes (its sends still
  // go out) and a send blocked on a reader that does not answer gives up.
  dds_stop(ddsinfo->dds_object);
  {
    std::unique_lock<std::shared_mutex> lock(g_linkLock);
    g_linkClosed = true;
  }
  destroy_dds(ddsinfo->dds_object);
  std::free(ddsinfo->mp_map_conv_send_topic);
  std::free(ddsinfo->mp_commsoft_recv_topic);
  std::free(ddsinfo->mp_map_down_topic);
  std::free(ddsinfo->mp_map_down_ack_topic);
  std::free(ddsinfo->mp_map_up_topic);
  std::free(ddsinfo->mp_map_up_ack_topic);
  std::free(ddsinfo->mp_map_to_rsucloud_topic);
  V2XLOG_END(&g_curTag, 0);
  return 0;
}

int32 v2xcloud_ddsSend(void* dds_handle, const char* topic, void* data, unsigned int data_len) {
  if (data_len == 0 || dds_handle == nullptr || topic == nullptr || data == nullptr) return -2;
  std::shared_lock<std::shared_mutex> lock(g_linkLock);
  if (g_linkClosed) return -2;
  int32 cnt = get_match_cnt(dds_handle, topic);
  if (cnt <= 0) {
    V2XLOG(&g_curTag, 3, "Don't match:%s", topic);
    return cnt;
  }
  dds_send(dds_handle, topic, data, data_len);
  if (data_len % kSampleLen == 0) {
    // A message never ends with a full sample: receivers wait for a short one.
    uint8 null_data = 0;
    dds_send(dds_handle, topic, &null_data, 1);
  }
  return 0;
}

void v2xcloud_ddsRecvCommSoft(void* data, unsigned int len) {
  V2XLOG(&g_curTag, 7, "%s start recv:%d", __func__, static_cast<int>(len));
  if (data == nullptr || len < 2) return;  // type and status are the first two bytes
  const uint8* st = static_cast<const uint8*>(data);
  if (st[0] == V2X_CLOUD_SERVICE_TYPE_CLOUD) v2xmapconv_SetCloudStatus(static_cast<e_run_status_value>(st[1]));
}

void v2xcloud_ddsRecvMapDown(void* data, unsigned int len) {
  static char dds_data[kRecvBufLen];
  static uint32 dds_len = 0;
  int32 ret = 0;
  V2XLOG(&g_curTag, 7, "%s start recv:%d", __func__, static_cast<int>(len));
  if (data == nullptr) {
    V2XLOG(&g_curTag, 7, "%s end, ret=%d", __func__, -2);
    return;
  }
  uint64 total = static_cast<uint64>(dds_len) + len;
  if (v2xmapconv_IsFieldProfile() != 0 && dropOverlong(dds_data, dds_len, total, data, len)) return;
  if (total > kRecvBufLen - 1) {
    V2XLOG(&g_curTag, 3, "Map msg data is too long:%d", static_cast<int>(total));
    std::memset(dds_data, 0, sizeof(dds_data));
    dds_len = 0;
  } else {
    std::memcpy(dds_data + dds_len, data, len);
    dds_len += len;
  }
  if (len < kSampleLen) {
    V2XLOG(&g_curTag, 7, "recv_total:%d", static_cast<int>(dds_len));
    // Read into a record of this thread's own; the status task sees it once
    // it is read, as the last map.
    v2xcloud_map_data_t mapData;
    std::memset(&mapData, 0, sizeof(mapData));
    V2XAPP_GBMHANDLE frame = nullptr;
    if (v2xapp_GBMapStrInit(&frame) == 0 && frame != nullptr) {
      mapData.map = static_cast<struct MessageFrame*>(frame);
      ret = v2xmapconv_MapDownJsonToStruct(dds_data, &mapData);
      {
        std::lock_guard<std::mutex> lock(g_lastMapLock);
        g_map_down_data = mapData;
        g_map_down_data.map = nullptr;  // released below
      }
      if (ret == 0) {
        v2xipc_mapRefresh_t mapRefreshData;
        std::memset(&mapRefreshData, 0, sizeof(mapRefreshData));
        const int32 stored = v2xmapconv_WriteMapDataToCfg(&mapData, &mapRefreshData);
        if (stored != 0) {
          v2xmapconv_SetErrorCode(18);
          V2XLOG(&g_curTag, 2, "Write map data to cfg failed!");
        }
        if (v2xmapconv_IsFieldProfile()) {
          // Notices only for the files of a map that has just become current.
          while (v2xmapconv_TakeMapRefresh(&mapRefreshData) > 0) v2xmapconv_UpdataMapDataNotify(&mapRefreshData);
        } else if (stored == 0) {
          v2xmapconv_UpdataMapDataNotify(&mapRefreshData);
        }
      }
      // -18 (eTag unchanged) is a success with nothing to store; any other
      // failure has its error code set by the reader.
      frame = mapData.map;
      v2xapp_GBMapStrDel(&frame);
      mapData.map = nullptr;
      if (mapData.ack) v2xmapconv_MapDownAckToCloud(&mapData);
    }
    std::memset(dds_data, 0, sizeof(dds_data));
    dds_len = 0;
  }
  V2XLOG(&g_curTag, 7, "%s end, ret=%d", __func__, ret);
}

void v2xcloud_ddsRecvMapAck(void* data, unsigned int len) {
  static char dds_data[kRecvBufLen];
  static uint32 dds_len = 0;
  V2XLOG(&g_curTag, 7, "%s start recv:%d", __func__, static_cast<int>(len));
  if (data == nullptr) return;
  uint64 total = static_cast<uint64>(dds_len) + len;
  if (total > kRecvBufLen - 1) {
    V2XLOG(&g_curTag, 3, "Msg data is too long");
    std::memset(dds_data, 0, sizeof(dds_data));
    dds_len = 0;
  } else {
    std::memcpy(dds_data + dds_len, data, len);
    dds_len += len;
  }
  if (len < kSampleLen) {
    // The acknowledgement of an upload is only noted.
    V2XLOG(&g_curTag, 7, "Map_Ack recv_total:%d", static_cast<int>(dds_len));
    std::memset(dds_data, 0, sizeof(dds_data));
    dds_len = 0;
  }
}

int32 v2xcloud_GetMapDownData(v2xcloud_map_data_t** map_down_data) {
  if (map_down_data == nullptr) return -2;
  *map_down_data = &g_map_down_data;
  return 0;
}

int32 v2xcloud_GetLastMapRecord(map_to_rsucloud_t* record) {
  if (record == nullptr) return -2;
  std::memset(record, 0, sizeof(*record));
  std::lock_guard<std::mutex> lock(g_lastMapLock);
  record->mapSlice = g_map_down_data.mapSlice;
  std::snprintf(record->eTag, sizeof(record->eTag), "%.63s", g_map_down_data.eTag);
  return 0;
}

}  // extern "C"
