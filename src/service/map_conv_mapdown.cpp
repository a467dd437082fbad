// Map download: reads the cloud's JSON map document into a MessageFrame. This
// file holds the entry point, the envelope and the map body; nodes and links,
// lanes and points have their own files, the error codes with the
// acknowledgement and the storage of each slice too.
#include <MessageFrame.h>
#include <cjson/cJSON.h>

#include <cstring>

#include "map_conv_config.h"
#include "map_conv_mapdown_detail.h"

namespace v2xmapconv::mapdown::detail {

v2xlog_config_t g_curTag = {nullptr, "DOWN"};
thread_local constinit DocumentScope t_document = {false, false};
thread_local constinit MapDownObserver* t_observer = nullptr;
thread_local constinit int32 t_holderCode = kNoCode;

}  // namespace v2xmapconv::mapdown::detail

namespace v2xmapconv {

MapDownObserver* setMapDownObserver(MapDownObserver* observer) {
  MapDownObserver* before = mapdown::detail::t_observer;
  mapdown::detail::t_observer = observer;
  return before;
}

}  // namespace v2xmapconv

using namespace v2xmapconv::mapdown::detail;

namespace {

// The trace level is asked once for the whole document.
class DocumentTrace {
 public:
  DocumentTrace() { t_document = {true, v2xlog_IsEnabled(&g_curTag, 7)}; }
  ~DocumentTrace() { t_document = {false, false}; }
  DocumentTrace(const DocumentTrace&) = delete;
  DocumentTrace& operator=(const DocumentTrace&) = delete;
};

}  // namespace

extern "C" {

// ---------------------------------------------------------------- envelope

int32 GetMapSliceFromJson(cJSON* json, v2xcloud_map_data_t* map_data) {
  MAPDOWN_TRACE_START();
  int32 ret = 0;
  const char* text = nullptr;
  if (json == nullptr || map_data == nullptr) {
    ret = -2;
  } else if ((text = textItem(json, "mapSlice")) == nullptr) {
    ret = report(__func__, {"Get mapSlice error!", -3}, {json, "mapSlice"});
  } else {
    map_data->mapSlice = leadingNumberMod256(text);
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetMapDwonAckFromJson(cJSON* json, v2xcloud_map_data_t* map_data) {
  MAPDOWN_TRACE_START();
  int32 ret = 0;
  if (json == nullptr || map_data == nullptr) {
    ret = -2;
  } else {
    const cJSON* item = member(json, "ack");
    if (item != nullptr) map_data->ack = cJSON_IsTrue(item);
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetMapDwonSeqNumFromJson(cJSON* json, v2xcloud_map_data_t* map_data) {
  MAPDOWN_TRACE_START();
  int32 ret = 0;
  if (json == nullptr || map_data == nullptr) {
    ret = -2;
  } else {
    const char* text = textItem(json, "seqNum");
    if (text != nullptr) {
      copyText(map_data->seqNum, sizeof(map_data->seqNum), text);
    } else if (const cJSON* item = member(json, "seqNum")) {
      reportMisfit(__func__, item, "not a text", "absent", kMisfitGoesOn);
    }
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetMapEtagFromJson(cJSON* json, v2xcloud_map_data_t* map_data) {
  MAPDOWN_TRACE_START();
  int32 ret = 0;
  const char* text = nullptr;
  if (json == nullptr || map_data == nullptr) {
    ret = -2;
  } else if ((text = textItem(json, "eTag")) == nullptr) {
    ret = report(__func__, {"Get eTag error!", -3}, {json, "eTag"});
  } else {
    copyText(map_data->eTag, sizeof(map_data->eTag), text);
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

// ---------------------------------------------------------------- map, nodes

int32 GetMapFromJson(cJSON* json, MapData* map) {
  MAPDOWN_TRACE_START();
  int32 ret = 0;
  cJSON* body = nullptr;
  if (json == nullptr || map == nullptr) {
    ret = -2;
  } else if ((body = member(json, "map")) == nullptr) {
    ret = report(__func__, {"Parse nodes error!", -3}, {json, "map"});
  } else {
    ret = checked(__func__, GetNodesFromJson(body, map), "GetNodesFromJson return failed!");
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetTimeStampFromJson(cJSON* json, MapData* map) {
  MAPDOWN_TRACE_START();
  int32 ret = (json == nullptr || map == nullptr)
                  ? -2
                  : readOptionalNumber(__func__, member(json, "timeStamp"), &map->timeStamp,
                                       {"timeStamp calloc failed!", -2}, wholeView);
  MAPDOWN_TRACE_END(ret);
  return ret;
}

// ---------------------------------------------------------------- entry point

int32 v2xmapconv_MapDownJsonToStruct(char* map_json, v2xcloud_map_data_t* map_data) {
  MAPDOWN_TRACE_START();
  int32 ret = -1;
  if (map_json == nullptr || map_data == nullptr) {
    ret = -2;
    MAPDOWN_TRACE_END(ret);
    return ret;
  }
  v2xmapconv_SetErrorCode(ERROR_CODE_NONE);
  DocumentTrace trace;
  DocumentArena arena;
  cJSON* root = parseDocument(map_json, arena);
  if (root == nullptr) {
    V2XLOG(&g_curTag, 2, "cJSON_Parse Error!");
    ret = -2;
    MAPDOWN_TRACE_END(ret);
    return ret;
  }
  if (t_observer != nullptr) t_observer->onDocument(root);
  map_conv_config_t* cfg = nullptr;
  GetMapSliceFromJson(root, map_data);
  GetMapDwonAckFromJson(root, map_data);
  GetMapDwonSeqNumFromJson(root, map_data);
  if ((ret = GetMapEtagFromJson(root, map_data)) != 0) {
    passOn(__func__, {"GetMapEtagFromJson return failed!", ret, ERROR_CODE_ETAG});
  } else if ((ret = v2xmapconv_GetCfgData(&cfg)) != 0 || cfg == nullptr) {
    V2XLOG(&g_curTag, 2, "Get config failed!");
    if (ret == 0) ret = -1;
  } else if (std::strncmp(map_data->eTag, cfg->m_eTag, sizeof(cfg->m_eTag)) == 0) {
    V2XLOG(&g_curTag, 4, "The etag of map is consistent, no need to update map! ");
    ret = MAP_CONV_ETAG_UNCHANGED;
  } else {
    if (map_data->mapSlice == 1) V2XLOG(&g_curTag, 4, "Recv MAP end, the eTag is: %s]", map_data->eTag);
    // The frame comes from the caller with the map choice; anything else is
    // not ours to fill (and would not be released as a map).
    MessageFrame_t* frame = map_data->map;
    if (frame != nullptr && frame->present == MessageFrame_PR_NOTHING) frame->present = MessageFrame_PR_mapFrame;
    MapData_t* map =
        (frame != nullptr && frame->present == MessageFrame_PR_mapFrame) ? &frame->choice.mapFrame : nullptr;
    if ((ret = GetMapFromJson(root, map)) != 0) passOn(__func__, {"GetMapFromJson return failed!", ret});
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

}  // extern "C"
