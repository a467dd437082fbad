// Map upload rendering: the writers that turn a MessageFrame and its upload
// envelope into the cloud's JSON map document.
#include "map_conv_mapup_render.h"

#include <ConnectingLane.h>
#include <Connection.h>
#include <ConnectsToList.h>
#include <Lane.h>
#include <LaneAttributes.h>
#include <Link.h>
#include <LinkList.h>
#include <MessageFrame.h>
#include <Movement.h>
#include <MovementList.h>
#include <Node.h>
#include <PointList.h>
#include <RegulatorySpeedLimit.h>
#include <RoadPoint.h>
#include <SpeedLimitList.h>
#include <cjson/cJSON.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include "map_conv_mapup_items.h"
#include "map_conv_mapup_print.h"
#include "map_conv_profile.h"
#include "v2xapp_commoncodec.h"
#include "v2xlog.h"

namespace {

using namespace mapup;

v2xlog_config_t g_curTag = {nullptr, "MAPU"};

// The bytes of a buffer that carries no terminator of its own, as text: up to
// the first zero byte, or to the end of the buffer when there is none. Other
// bytes go out as they are (only quotes, backslashes and control characters
// are escaped in JSON text).
void addBytesText(cJSON* obj, const char* key, const uint8_t* buf, int size) {
  const char* text = reinterpret_cast<const char*>(buf);
  const size_t n = (text != nullptr && size > 0) ? strnlen(text, static_cast<size_t>(size)) : 0;
  addText(obj, key, n > 0 ? text : "", n);
}

// A text field of `size` bytes that should, but need not, hold its terminator.
void addFieldText(cJSON* obj, const char* key, const char* field, size_t size) {
  addText(obj, key, field, strnlen(field, size));
}

int64_t bitStringValue(const BIT_STRING_t* bits) {
  int64_t value = 0;
  v2xcodec_bitString2Long(const_cast<BIT_STRING_t*>(bits), &value);
  return value;
}

// Elements of an asn1c list, none when the list holds no array.
template <class List>
int listCount(const List* list) {
  return list->list.array != nullptr && list->list.count > 0 ? list->list.count : 0;
}

// An error line in the name of the writer that called, with its line.
void logError(const char* text, const char* func, int line) {
  if (v2xlog_IsEnabled(&g_curTag, 2)) v2xlog_Print(&g_curTag, 2, "%s:%s:%d:%s", __FILE__, func, line, text);
}

using Attach = bool (*)(cJSON*, const char*, cJSON*);

// What the list writers share: an array with one object per element, filled
// by fill, attached to obj under key. A missing element (or an object that
// cannot be made) drops the array; arrayText and elementText are the calling
// writer's lines for those two failures.
template <class List, class Fill>
int32 writeList(cJSON* obj, const char* key, Attach attach, List* list, const char* arrayText, const char* elementText,
                Fill fill, const char* func = __builtin_FUNCTION(), int line = __builtin_LINE()) {
  cJSON* array = newArray();
  if (array == nullptr) {
    logError(arrayText, func, line);
    return -2;
  }
  for (int i = 0, n = listCount(list); i < n; ++i) {
    auto* element = list->list.array[i];
    cJSON* element_json = element != nullptr ? newObject() : nullptr;
    if (element_json == nullptr) {
      logError(elementText, func, line);
      release(array);
      return -2;
    }
    fill(element_json, *element);
    cJSON_AddItemToArray(array, element_json);
  }
  return attach(obj, key, array) ? 0 : -2;
}

// Length of the last text printed: the next print starts with room for it.
std::atomic<size_t> g_lastTextLen{0};

}  // namespace

extern "C" {

int32 AddNodeReferenceIDToObject(cJSON* obj, const char* item, NodeReferenceID* node_ref_id) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || item == nullptr || node_ref_id == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  cJSON* id_json = newObject();
  if (id_json == nullptr) {
    V2XLOG(&g_curTag, 2, "create id_json is null");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  if (node_ref_id->region != nullptr) addNumber(id_json, "region", *node_ref_id->region);
  addNumber(id_json, "id", node_ref_id->id);
  int32 ret = attachNamed(obj, item, id_json) ? 0 : -2;
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 AddRefPostoNodeObject(cJSON* obj, Position3D* refPos) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || refPos == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  cJSON* refPos_obj = newObject();
  if (refPos_obj == nullptr) {
    V2XLOG(&g_curTag, 2, "create refPos_obj is null");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  addNumber(refPos_obj, "lon", refPos->Long);
  addNumber(refPos_obj, "lat", refPos->lat);
  if (refPos->elevation != nullptr) addNumber(refPos_obj, "ele", *refPos->elevation);
  int32 ret = attachLiteral(obj, "refPos", refPos_obj) ? 0 : -2;
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 SetPositionOffsetLLVFromStruct(cJSON* obj, PositionOffsetLLV* pos_llv) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || pos_llv == nullptr) {
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  // Every alternative holds its lon/lat pair (and every vertical alternative
  // its one integer) in the same place; nothing in the text tells which
  // alternative the numbers came from. No alternative chosen gives 0 and 0.
  const PositionOffsetLL_t& ll = pos_llv->offsetLL;
  int64_t lon = 0, lat = 0;
  switch (ll.present) {
    case PositionOffsetLL_PR_position_LL2: lon = ll.choice.position_LL2.lon, lat = ll.choice.position_LL2.lat; break;
    case PositionOffsetLL_PR_position_LL3: lon = ll.choice.position_LL3.lon, lat = ll.choice.position_LL3.lat; break;
    case PositionOffsetLL_PR_position_LL4: lon = ll.choice.position_LL4.lon, lat = ll.choice.position_LL4.lat; break;
    case PositionOffsetLL_PR_position_LL5: lon = ll.choice.position_LL5.lon, lat = ll.choice.position_LL5.lat; break;
    case PositionOffsetLL_PR_position_LL6: lon = ll.choice.position_LL6.lon, lat = ll.choice.position_LL6.lat; break;
    case PositionOffsetLL_PR_position_LatLon:
      lon = ll.choice.position_LatLon.lon, lat = ll.choice.position_LatLon.lat;
      break;
    default: lon = ll.choice.position_LL1.lon, lat = ll.choice.position_LL1.lat; break;
  }
  addNumber(obj, "lon", lon);
  addNumber(obj, "lat", lat);
  if (pos_llv->offsetV != nullptr) {
    const VerticalOffset_t& v = *pos_llv->offsetV;
    int64_t ele = 0;
    switch (v.present) {
      case VerticalOffset_PR_offset2: ele = v.choice.offset2; break;
      case VerticalOffset_PR_offset3: ele = v.choice.offset3; break;
      case VerticalOffset_PR_offset4: ele = v.choice.offset4; break;
      case VerticalOffset_PR_offset5: ele = v.choice.offset5; break;
      case VerticalOffset_PR_offset6: ele = v.choice.offset6; break;
      case VerticalOffset_PR_elevation: ele = v.choice.elevation; break;
      default: ele = v.choice.offset1; break;
    }
    addNumber(obj, "ele", ele);
  }
  V2XLOG_END(&g_curTag, 0);
  return 0;
}

int32 AddSpeedLimitsToObject(cJSON* obj, const char* item, SpeedLimitList* speedLimits) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || item == nullptr || speedLimits == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  auto fill = [](cJSON* element_json, RegulatorySpeedLimit_t& limit) {
    char type[24];
    const int typeLen = std::snprintf(type, sizeof(type), "%ld", static_cast<long>(limit.type));
    addText(element_json, "type", type, static_cast<size_t>(typeLen));
    addNumber(element_json, "speed", limit.speed);
  };
  int32 ret = writeList(obj, item, attachNamed, speedLimits, "create array_json_obj is null",
                        "create element_json or get speedLimits is null", fill);
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 AddPointsToObject(cJSON* obj, const char* item, PointList* points) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || item == nullptr || points == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  auto fill = [](cJSON* element_json, RoadPoint_t& point) {
    SetPositionOffsetLLVFromStruct(element_json, &point.posOffset);
  };
  // The same text as the speed limits' on purpose: log filters rely on it.
  int32 ret = writeList(obj, item, attachNamed, points, "create array_json_obj is null",
                        "create element_json or get speedLimits is null", fill);
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 AddMovementsToObject(cJSON* obj, const char* item, MovementList* movements) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || item == nullptr || movements == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  auto fill = [](cJSON* element_json, Movement_t& movement) {
    AddNodeReferenceIDToObject(element_json, kRemoteIntersection, &movement.remoteIntersection);
    if (movement.phaseId != nullptr) addNumber(element_json, "phaseId", *movement.phaseId);
  };
  int32 ret = writeList(obj, item, attachNamed, movements, "create array_json_obj is null",
                        "create element_json or get speedLimits is null", fill);
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 AddLaneTypeToObject(cJSON* obj, const char* item, LaneTypeAttributes* laneType) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || laneType == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  cJSON* laneType_obj = newObject();
  if (laneType_obj == nullptr) {
    V2XLOG(&g_curTag, 2, "create laneType_obj is null");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  // One member named after the chosen alternative; none chosen (or a value
  // the message set does not know) is "nothing": 0.
  const BIT_STRING_t* bits = nullptr;
  const char* name = "nothing";
  switch (laneType->present) {
    case LaneTypeAttributes_PR_vehicle: name = "vehicle", bits = &laneType->choice.vehicle; break;
    case LaneTypeAttributes_PR_crosswalk: name = "crosswalk", bits = &laneType->choice.crosswalk; break;
    case LaneTypeAttributes_PR_bikeLane: name = "bikeLane", bits = &laneType->choice.bikeLane; break;
    case LaneTypeAttributes_PR_sidewalk: name = "sidewalk", bits = &laneType->choice.sidewalk; break;
    case LaneTypeAttributes_PR_median: name = "median", bits = &laneType->choice.median; break;
    case LaneTypeAttributes_PR_striping: name = "striping", bits = &laneType->choice.striping; break;
    case LaneTypeAttributes_PR_trackedVehicle: name = "trackedVehicle", bits = &laneType->choice.trackedVehicle; break;
    case LaneTypeAttributes_PR_parking: name = "parking", bits = &laneType->choice.parking; break;
    default: break;
  }
  addNumber(laneType_obj, name, bits != nullptr ? bitStringValue(bits) : 0);
  // The name is not checked here: cJSON refuses a null one and the member is
  // left out.
  int32 ret = attachNamed(obj, item, laneType_obj) ? 0 : -2;
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 AddLaneAttributesToObject(cJSON* obj, const char* item, LaneAttributes* laneAttributes) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || item == nullptr || laneAttributes == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  cJSON* laneAttributes_obj = newObject();
  if (laneAttributes_obj == nullptr) {
    V2XLOG(&g_curTag, 2, "create laneAttributes_obj is null");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  if (laneAttributes->shareWith != nullptr)
    addNumber(laneAttributes_obj, "shareWith", bitStringValue(laneAttributes->shareWith));
  AddLaneTypeToObject(laneAttributes_obj, kLaneType, &laneAttributes->laneType);
  int32 ret = attachNamed(obj, item, laneAttributes_obj) ? 0 : -2;
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 AddConnectingLaneToObject(cJSON* obj, const char* item, ConnectingLane* connectingLane) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || item == nullptr || connectingLane == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  cJSON* lane_obj = newObject();
  if (lane_obj == nullptr) {
    V2XLOG(&g_curTag, 2, "cJSON_CreateObject Failed");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  addNumber(lane_obj, "laneId", connectingLane->lane);
  // A connecting lane is expected to carry its maneuvers; one without them
  // simply has no "maneuvers".
  if (connectingLane->maneuver != nullptr)
    addBytesText(lane_obj, "maneuvers", connectingLane->maneuver->buf, connectingLane->maneuver->size);
  int32 ret = attachNamed(obj, item, lane_obj) ? 0 : -2;
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 AddConnectsToToObject(cJSON* obj, const char* item, ConnectsToList* connectsTo) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || item == nullptr || connectsTo == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  auto fill = [](cJSON* element_json, Connection_t& connection) {
    AddNodeReferenceIDToObject(element_json, kRemoteIntersection, &connection.remoteIntersection);
    if (connection.connectingLane != nullptr)
      AddConnectingLaneToObject(element_json, kConnectingLane, connection.connectingLane);
    if (connection.phaseId != nullptr) addNumber(element_json, "phaseId", *connection.phaseId);
  };
  int32 ret = writeList(obj, item, attachNamed, connectsTo, "create array_json_obj is null",
                        "create element_json or get connection pointer is null", fill);
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 AddLanesToObject(cJSON* obj, const char* item, LaneList* lanes) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || item == nullptr || lanes == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  auto fill = [](cJSON* element_json, Lane_t& lane) {
    addNumber(element_json, "laneId", lane.laneID);
    if (lane.laneWidth != nullptr) addNumber(element_json, "laneWidth", *lane.laneWidth);
    if (lane.laneAttributes != nullptr) AddLaneAttributesToObject(element_json, kLaneAttributes, lane.laneAttributes);
    if (lane.maneuvers != nullptr) addBytesText(element_json, "maneuvers", lane.maneuvers->buf, lane.maneuvers->size);
    if (lane.connectsTo != nullptr) AddConnectsToToObject(element_json, kConnectsTo, lane.connectsTo);
    if (lane.speedLimits != nullptr) AddSpeedLimitsToObject(element_json, kSpeedLimits, lane.speedLimits);
    if (lane.points != nullptr) AddPointsToObject(element_json, kPoints, lane.points);
  };
  int32 ret = writeList(obj, item, attachNamed, lanes, "create array_json_obj is null",
                        "create element_json or get lane pointer is null", fill);
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 AddInLinkstoNodeObject(cJSON* obj, LinkList* inLinks) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || inLinks == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  auto fill = [](cJSON* link_json, Link_t& link) {
    if (link.name != nullptr) addBytesText(link_json, "name", link.name->buf, link.name->size);
    AddNodeReferenceIDToObject(link_json, kUpstreamNodeId, &link.upstreamNodeId);
    if (link.speedLimits != nullptr) AddSpeedLimitsToObject(link_json, kSpeedLimits, link.speedLimits);
    addNumber(link_json, "linkWidth", link.linkWidth);
    // Movements go with points: the test is on the points, so a link with
    // movements but no points loses them, and one with points but no
    // movements gets no "movements" (the writer refuses the missing list).
    if (link.points != nullptr) {
      AddPointsToObject(link_json, kPoints, link.points);
      AddMovementsToObject(link_json, kMovements, link.movements);
    }
    AddLanesToObject(link_json, kLanes, &link.lanes);
  };
  int32 ret = writeList(obj, "inLinks", attachLiteral, inLinks, "create inlinks_list_json is null",
                        "create link_json or get link pointer is null", fill);
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 AddNodesToMapObject(cJSON* obj, NodeList* nodes) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || nodes == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  auto fill = [](cJSON* node_json, Node_t& node) {
    if (node.name != nullptr) addBytesText(node_json, "name", node.name->buf, node.name->size);
    AddNodeReferenceIDToObject(node_json, kId, &node.id);
    AddRefPostoNodeObject(node_json, &node.refPos);
    if (node.inLinks != nullptr) AddInLinkstoNodeObject(node_json, node.inLinks);
  };
  int32 ret = writeList(obj, "nodes", attachLiteral, nodes, "create node_list is null",
                        "create node_json or get node pointer is null", fill);
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 AddMapToObject(cJSON* obj, MessageFrame* msgFrame) {
  V2XLOG_START(&g_curTag);
  if (obj == nullptr || msgFrame == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  // Only the map choice can be read as a map: another message's members
  // would be taken for lists and pointers.
  if (msgFrame->present != MessageFrame_PR_mapFrame) {
    V2XLOG(&g_curTag, 2, "frame holds message %d, not a map", static_cast<int>(msgFrame->present));
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  cJSON* map_json = newObject();
  if (map_json == nullptr) {
    V2XLOG(&g_curTag, 2, "create map_json is null");
    V2XLOG_END(&g_curTag, -2);
    return -2;
  }
  MapData_t& map = msgFrame->choice.mapFrame;
  if (map.timeStamp != nullptr) addNumber(map_json, "timeStamp", *map.timeStamp);
  AddNodesToMapObject(map_json, &map.nodes);
  int32 ret = attachLiteral(obj, "map", map_json) ? 0 : -2;
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

char* v2xmapconv_StructToJson(v2xcloud_map_data_t* mapdata) {
  V2XLOG_START(&g_curTag);
  if (mapdata == nullptr) return nullptr;
  // The whole tree lives in the thread's arena (plain cJSON values should
  // there be no memory for one).
  ArenaScope scope(RenderArena::forThisThread());
  cJSON* root = newObject();
  if (root == nullptr) {
    V2XLOG(&g_curTag, 2, "cJSON_Parse Error!");
    return nullptr;
  }
  char slice[8];
  const int sliceLen = std::snprintf(slice, sizeof(slice), "%d", mapdata->mapSlice);
  addText(root, "mapSlice", slice, static_cast<size_t>(sliceLen));
  AddMapToObject(root, mapdata->map);
  addFieldText(root, "eTag", mapdata->eTag, sizeof(mapdata->eTag));
  if (mapdata->ack) {
    attachLiteral(root, "ack", newTrue());
    if (mapdata->seqNum[0] != '\0') addFieldText(root, "seqNum", mapdata->seqNum, sizeof(mapdata->seqNum));
  }
  // Printed as cJSON_PrintUnformatted would, with room for a text as long as
  // the last one; under the field profile as valid UTF-8 (texts made from
  // bytes, such as "maneuvers" and "name", may hold any byte).
  char* text = v2xmapconv_PrintUnformattedAscii(root, g_lastTextLen.load(std::memory_order_relaxed) + 256,
                                                v2xmapconv_IsFieldProfile());
  release(root);
  if (text != nullptr) g_lastTextLen.store(std::strlen(text), std::memory_order_relaxed);
  V2XLOG(&g_curTag, 7, "%s end", __func__);
  return text;
}

}  // extern "C"
