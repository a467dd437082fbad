// MAP queries: counts, elements by index and field values with presence
// flags, read without exposing the ASN.1 structures.
#include "v2xapp_gbmap_query.h"

#include <cstring>

#include "gbmap_internal.h"
#include "v2xapp_gbmap_match.h"

using gbmap::elementAt;

namespace {

v2xlog_config_t g_curTag = {nullptr, "GMAP"};

constexpr uint16_t kNoRegion = 65535;

template <class List>
int32_t countOf(const List* list) {
  return list != nullptr ? list->list.count : 0;
}

// Copies a name, at most V2XAPP_GBMAP_NAME_MAX bytes; false when absent.
bool copyName(const DescriptiveName_t* name, char* out) {
  if (name == nullptr || name->buf == nullptr) return false;
  const int size = name->size < V2XAPP_GBMAP_NAME_MAX ? name->size : V2XAPP_GBMAP_NAME_MAX;
  if (size > 0) std::memcpy(out, name->buf, static_cast<size_t>(size));
  return true;
}

int64_t bitsValue(const BIT_STRING_t* bits) {
  int64_t value = 0;
  v2xapp_GBMapbitString2Long(const_cast<BIT_STRING_t*>(bits), &value);
  return value;
}

// A point as stored: its kinds and their raw values.
void pointRecord(const RoadPoint_t& point, v2xapp_gbMsg_PosStr_t& out) {
  const PositionOffsetLL_t& ll = point.posOffset.offsetLL;
  out.m_codeType = static_cast<uint8_t>(ll.present);
  switch (ll.present) {
    case PositionOffsetLL_PR_position_LL1:
      out.m_lon = ll.choice.position_LL1.lon, out.m_lat = ll.choice.position_LL1.lat;
      break;
    case PositionOffsetLL_PR_position_LL2:
      out.m_lon = ll.choice.position_LL2.lon, out.m_lat = ll.choice.position_LL2.lat;
      break;
    case PositionOffsetLL_PR_position_LL3:
      out.m_lon = ll.choice.position_LL3.lon, out.m_lat = ll.choice.position_LL3.lat;
      break;
    case PositionOffsetLL_PR_position_LL4:
      out.m_lon = ll.choice.position_LL4.lon, out.m_lat = ll.choice.position_LL4.lat;
      break;
    case PositionOffsetLL_PR_position_LL5:
      out.m_lon = ll.choice.position_LL5.lon, out.m_lat = ll.choice.position_LL5.lat;
      break;
    case PositionOffsetLL_PR_position_LL6:
      out.m_lon = ll.choice.position_LL6.lon, out.m_lat = ll.choice.position_LL6.lat;
      break;
    case PositionOffsetLL_PR_position_LatLon:
      out.m_lon = ll.choice.position_LatLon.lon;
      out.m_lat = ll.choice.position_LatLon.lat;
      break;
    default: break;
  }
  const VerticalOffset_t* v = point.posOffset.offsetV;
  out.m_isContainV = v != nullptr;
  if (v == nullptr) return;
  out.m_elevType = static_cast<uint8_t>(v->present);
  switch (v->present) {
    case VerticalOffset_PR_offset1: out.m_elev = v->choice.offset1; break;
    case VerticalOffset_PR_offset2: out.m_elev = v->choice.offset2; break;
    case VerticalOffset_PR_offset3: out.m_elev = v->choice.offset3; break;
    case VerticalOffset_PR_offset4: out.m_elev = v->choice.offset4; break;
    case VerticalOffset_PR_offset5: out.m_elev = v->choice.offset5; break;
    case VerticalOffset_PR_offset6: out.m_elev = v->choice.offset6; break;
    case VerticalOffset_PR_elevation: out.m_elev = v->choice.elevation; break;
    default: break;
  }
}

// Point `index` of a list: 0, -3 without a list, -4 past its end.
int32_t pointAt(const PointList* points, uint32_t index, v2xapp_gbMsg_PosStr_t& out) {
  if (points == nullptr) return -3;
  const RoadPoint_t* point = elementAt(points->list, index);
  if (point == nullptr) return -4;
  pointRecord(*point, out);
  return 0;
}

// Movement `index` of a link: -3 without a list or above the count, -4 at the
// count (there is no movement there; callers have always seen a result other
// than -3 for it).
int32_t movementAt(const Link_t* link, int32_t index, const Movement_t*& movement) {
  if (link->movements == nullptr || index < 0 || index > link->movements->list.count) return -3;
  movement = elementAt(link->movements->list, index);
  return movement != nullptr ? 0 : -4;
}

// Connection `index` of a lane: -3 without a list, -4 past its end.
int32_t connectionAt(const Lane_t* lane, int32_t index, const Connection_t*& connection) {
  if (lane->connectsTo == nullptr) return -3;
  connection = elementAt(lane->connectsTo->list, index);
  return connection != nullptr ? 0 : -4;
}

void logResult(int32_t ret) {
  if (ret == -2) GBLOG(&g_curTag, 2, "null handle or output");
}

}  // namespace

extern "C" {

int32_t v2xapp_GBMapbitString2Long(BITSTRING_HANDLE p_bitstring, int64_t* longData) {
  return v2xcodec_bitString2Long(p_bitstring, longData);
}

/* Index family. */

int32_t v2xapp_GBMapGetNodesCnt(V2XAPP_GBMHANDLE mapHandle, uint32_t* pCnt) {
  GMAP_START("v2xapp_GBMapGetNodesCnt");
  int32_t ret = -2;
  const MapData_t* map = gbmap::mapOf(mapHandle);
  if (map == nullptr || pCnt == nullptr) {
    GBLOG(&g_curTag, 2, "null map or output, or not a map frame");
  } else {
    *pCnt = static_cast<uint32_t>(map->nodes.list.count);
    ret = 0;
  }
  GMAP_END("v2xapp_GBMapGetNodesCnt", ret);
  return ret;
}

int32_t v2xapp_GBMapGetNodeByIndex(V2XAPP_GBMHANDLE mapHandle, uint32_t index, V2XAPP_GBMHANDLE* p_nodeHandle) {
  GMAP_START("v2xapp_GBMapGetNodeByIndex");
  int32_t ret = -2;
  const MapData_t* map = gbmap::mapOf(mapHandle);
  if (map == nullptr || p_nodeHandle == nullptr) {
    GBLOG(&g_curTag, 2, "null map or output, or not a map frame");
  } else {
    *p_nodeHandle = elementAt(map->nodes.list, index);
    ret = *p_nodeHandle != nullptr ? 0 : -3;
    if (ret != 0) GBLOG(&g_curTag, 3, "no node %u", index);
  }
  GMAP_END("v2xapp_GBMapSetTimStamp", ret);
  return ret;
}

int32_t v2xapp_GBMapNodeGetRefPos(V2XAPP_GBMHANDLE mapNodeHandle, int64_t* plat, int64_t* plong, bool* piselev,
                                  int64_t* pelev) {
  GMAP_START("v2xapp_GBMapNodeSetRefPos");
  int32_t ret = -2;
  const auto* node = static_cast<const Node_t*>(mapNodeHandle);
  if (node != nullptr && plat != nullptr && plong != nullptr && piselev != nullptr && pelev != nullptr) {
    *plat = node->refPos.lat;
    *plong = node->refPos.Long;
    *piselev = node->refPos.elevation != nullptr;
    if (*piselev) *pelev = *node->refPos.elevation;
    ret = 0;
  }
  logResult(ret);
  GMAP_END("v2xapp_GBMapNodeGetRefPos", ret);
  return ret;
}

int32_t v2xapp_GBMapNodeGetLinkCnt(V2XAPP_GBMHANDLE mapNodeHandle, uint32_t* pCnt) {
  GMAP_START("v2xapp_GBMapNodeAddLink");
  int32_t ret = -2;
  const auto* node = static_cast<const Node_t*>(mapNodeHandle);
  if (node != nullptr && pCnt != nullptr) {
    *pCnt = static_cast<uint32_t>(countOf(node->inLinks));
    ret = 0;
  }
  logResult(ret);
  GMAP_END("v2xapp_GBMapNodeGetLinkCnt", ret);
  return ret;
}

int32_t v2xapp_GBMapNodeGetLinkByIndex(V2XAPP_GBMHANDLE mapNodeHandle, uint32_t index, V2XAPP_GBMHANDLE* p_linkHandle) {
  GMAP_START("v2xapp_GBMapGetNodeByIndex");
  int32_t ret = -2;
  const auto* node = static_cast<const Node_t*>(mapNodeHandle);
  if (node == nullptr || p_linkHandle == nullptr || node->inLinks == nullptr) {
    GBLOG(&g_curTag, 2, "null node or output, or the node has no links");
  } else {
    *p_linkHandle = elementAt(node->inLinks->list, index);
    ret = *p_linkHandle != nullptr ? 0 : -3;
    if (ret != 0) GBLOG(&g_curTag, 3, "no link %u", index);
  }
  GMAP_END("v2xapp_GBMapGetNodeLinkByIndex", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkSpeedLimitsCnt(V2XAPP_GBMHANDLE mapLinkHandle, uint16_t* pCnt) {
  GMAP_START("v2xapp_GBMapLinkSpeedLimitsCnt");
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(mapLinkHandle);
  if (link != nullptr && pCnt != nullptr) {
    *pCnt = static_cast<uint16_t>(countOf(link->speedLimits));
    ret = 0;
  }
  logResult(ret);
  GMAP_END("v2xapp_GBMapLinkSpeedLimitsCnt", ret);
  return ret;
}

int32_t v2xapp_GBMapLinkGetSpeedLimitByIndex(V2XAPP_GBMHANDLE mapLinkHandle, uint32_t index,
                                             V2XAPP_GBMHANDLE* p_speedLimitHandle) {
  GMAP_START("v2xapp_GBMapLinkGetSpeedLimitByIndex");
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(mapLinkHandle);
  if (link != nullptr && p_speedLimitHandle != nullptr) {
    *p_speedLimitHandle = link->speedLimits != nullptr ? elementAt(link->speedLimits->list, index) : nullptr;
    ret = link->speedLimits == nullptr ? -3 : *p_speedLimitHandle == nullptr ? -4 : 0;
  }
  logResult(ret);
  GMAP_END("v2xapp_GBMapLinkGetSpeedLimitByIndex", ret);
  return ret;
}

/* Matched family: nodes. */

int32_t v2xapp_GBMapGetNodeCount(V2XAPP_GBMHANDLE mapHandle, int16_t* nodeCnt) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const MapData_t* map = gbmap::mapOf(mapHandle);
  if (map != nullptr && nodeCnt != nullptr) {
    *nodeCnt = static_cast<int16_t>(map->nodes.list.count);
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetNodeName(V2XAPP_GBMHANDLE nodeHandle, bool* has_name, char* nodeName) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* node = static_cast<const Node_t*>(nodeHandle);
  if (node != nullptr && has_name != nullptr && nodeName != nullptr) {
    *has_name = copyName(node->name, nodeName);
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetNodeReginId(V2XAPP_GBMHANDLE nodeHandle, bool* has_regin, uint16_t* regin, uint16_t* id) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* node = static_cast<const Node_t*>(nodeHandle);
  if (node != nullptr && has_regin != nullptr && regin != nullptr && id != nullptr) {
    *has_regin = node->id.region != nullptr;
    *regin = *has_regin ? static_cast<uint16_t>(*node->id.region) : kNoRegion;
    *id = static_cast<uint16_t>(node->id.id);
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetNodePos3d(V2XAPP_GBMHANDLE nodeHandle, int32_t* lon, int32_t* lat, bool* has_ele, int32_t* ele) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* node = static_cast<const Node_t*>(nodeHandle);
  if (node != nullptr && lon != nullptr && lat != nullptr && has_ele != nullptr && ele != nullptr) {
    *lon = static_cast<int32_t>(node->refPos.Long);
    *lat = static_cast<int32_t>(node->refPos.lat);
    *has_ele = node->refPos.elevation != nullptr;
    if (*has_ele) *ele = static_cast<int32_t>(*node->refPos.elevation);
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetLinkCountInMatchedNode(V2XAPP_GBMHANDLE nodeHandle, int16_t* linkCnt) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* node = static_cast<const Node_t*>(nodeHandle);
  if (node != nullptr && linkCnt != nullptr) {
    *linkCnt = static_cast<int16_t>(countOf(node->inLinks));
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

/* Matched family: links. */

int32_t v2xapp_GBMapGetLinkName(V2XAPP_GBMHANDLE linkHandle, bool* has_name, char* Name) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(linkHandle);
  if (link != nullptr && has_name != nullptr && Name != nullptr) {
    *has_name = copyName(link->name, Name);
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetLinkReginId(V2XAPP_GBMHANDLE linkHandle, bool* has_regin, uint16_t* regin, uint16_t* id) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(linkHandle);
  if (link != nullptr && has_regin != nullptr && regin != nullptr && id != nullptr) {
    *has_regin = link->upstreamNodeId.region != nullptr;
    if (*has_regin) *regin = static_cast<uint16_t>(*link->upstreamNodeId.region);
    *id = static_cast<uint16_t>(link->upstreamNodeId.id);
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetLinkSpeedLimitsCount(V2XAPP_GBMHANDLE linkHandle, uint8_t* speedLimitCnt) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(linkHandle);
  if (link != nullptr && speedLimitCnt != nullptr) {
    *speedLimitCnt = static_cast<uint8_t>(countOf(link->speedLimits));
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetLinkSpeedLimits(V2XAPP_GBMHANDLE linkHandle, int32_t index, int16_t* limitType,
                                       int16_t* limitValue) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(linkHandle);
  if (link != nullptr && limitType != nullptr && limitValue != nullptr && link->speedLimits != nullptr) {
    const RegulatorySpeedLimit_t* limit = elementAt(link->speedLimits->list, index);
    ret = -3;
    if (limit != nullptr) {
      *limitType = static_cast<int16_t>(limit->type);
      *limitValue = static_cast<int16_t>(limit->speed);
      ret = 0;
    }
  }
  if (ret == -2) GBLOG(&g_curTag, 2, "null handle or output, or the link has no speed limits");
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetLinkWidth(V2XAPP_GBMHANDLE linkHandle, bool* has_linkWidth, int16_t* linkWidth) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(linkHandle);
  if (link != nullptr && has_linkWidth != nullptr && linkWidth != nullptr) {
    *has_linkWidth = true;
    *linkWidth = static_cast<int16_t>(link->linkWidth);
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetLaneCountInMatchedLink(V2XAPP_GBMHANDLE linkHandle, int32_t* laneCnt) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(linkHandle);
  if (link != nullptr && laneCnt != nullptr) {
    *laneCnt = link->lanes.list.count;
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetLinkPointsNumber(V2XAPP_GBMHANDLE linkHandle, int32_t* pointsNumer) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(linkHandle);
  if (link != nullptr && pointsNumer != nullptr) {
    *pointsNumer = countOf(link->points);
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapLinkGetPointByIndex(V2XAPP_GBMHANDLE linkHandle, uint32_t index,
                                        v2xapp_gbMsg_PosStr_t* p_linkpoint) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(linkHandle);
  if (link != nullptr && p_linkpoint != nullptr) ret = pointAt(link->points, index, *p_linkpoint);
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetLinkMovementsNumber(V2XAPP_GBMHANDLE linkHandle, int8_t* movementsNumer) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(linkHandle);
  if (link != nullptr && movementsNumer != nullptr) {
    *movementsNumer = static_cast<int8_t>(countOf(link->movements));
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapLinkGetMovementsPhaseIdByIndex(V2XAPP_GBMHANDLE linkHandle, int32_t index, bool* has_phaseid,
                                                   uint8_t* phaseId) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(linkHandle);
  const Movement_t* movement = nullptr;
  if (link != nullptr && has_phaseid != nullptr && phaseId != nullptr) ret = movementAt(link, index, movement);
  if (ret == 0) {
    *has_phaseid = movement->phaseId != nullptr;
    if (*has_phaseid) *phaseId = static_cast<uint8_t>(*movement->phaseId);
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapLinkGetMovementsRegionIdByIndex(V2XAPP_GBMHANDLE linkHandle, int32_t index, bool* has_region,
                                                    uint16_t* region, uint16_t* id) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(linkHandle);
  const Movement_t* movement = nullptr;
  if (link != nullptr && has_region != nullptr && region != nullptr && id != nullptr) {
    ret = movementAt(link, index, movement);
  }
  if (ret == 0) {
    *has_region = movement->remoteIntersection.region != nullptr;
    if (*has_region) *region = static_cast<uint16_t>(*movement->remoteIntersection.region);
    *id = static_cast<uint16_t>(movement->remoteIntersection.id);
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapLinkGetLaneByIndex(V2XAPP_GBMHANDLE linkHandle, uint32_t index, V2XAPP_GBMHANDLE* p_laneHandle) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* link = static_cast<const Link_t*>(linkHandle);
  if (link != nullptr && p_laneHandle != nullptr) {
    *p_laneHandle = elementAt(link->lanes.list, index);
    ret = *p_laneHandle != nullptr ? 0 : -3;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

/* Matched family: lanes. */

int32_t v2xapp_GBMapGetLaneId(V2XAPP_GBMHANDLE laneHandle, int16_t* laneID) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* lane = static_cast<const Lane_t*>(laneHandle);
  if (lane != nullptr && laneID != nullptr) {
    *laneID = static_cast<int16_t>(lane->laneID);
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetLaneWidth(V2XAPP_GBMHANDLE laneHandle, bool* has_laneWidth, int16_t* laneWidth) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* lane = static_cast<const Lane_t*>(laneHandle);
  if (lane != nullptr && has_laneWidth != nullptr && laneWidth != nullptr) {
    *has_laneWidth = lane->laneWidth != nullptr;
    if (*has_laneWidth) *laneWidth = static_cast<int16_t>(*lane->laneWidth);
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetLaneSpeedLimitsCount(V2XAPP_GBMHANDLE laneHandle, uint8_t* speedLimitCnt) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* lane = static_cast<const Lane_t*>(laneHandle);
  if (lane != nullptr && speedLimitCnt != nullptr) {
    *speedLimitCnt = static_cast<uint8_t>(countOf(lane->speedLimits));
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetLaneSpeedLimits(V2XAPP_GBMHANDLE laneHandle, int32_t index, int8_t* limitType,
                                       int16_t* limitValue) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* lane = static_cast<const Lane_t*>(laneHandle);
  if (lane != nullptr && limitType != nullptr && limitValue != nullptr) {
    const RegulatorySpeedLimit_t* limit =
        lane->speedLimits != nullptr ? elementAt(lane->speedLimits->list, index) : nullptr;
    ret = lane->speedLimits == nullptr ? -3 : limit == nullptr ? -4 : 0;
    if (ret == 0) {
      *limitType = static_cast<int8_t>(limit->type);
      *limitValue = static_cast<int16_t>(limit->speed);
    }
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetLaneAttrs(V2XAPP_GBMHANDLE laneHandle, bool* has_attr, uint16_t* type, uint16_t* typeValueBit,
                                 bool* has_laneShare, uint16_t* laneShareBit10) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  auto* lane = static_cast<Lane_t*>(laneHandle);
  if (lane != nullptr && has_attr != nullptr && type != nullptr && typeValueBit != nullptr &&
      has_laneShare != nullptr && laneShareBit10 != nullptr) {
    ret = 0;
    *has_attr = lane->laneAttributes != nullptr;
    *has_laneShare = false;
    if (*has_attr) {
      *has_laneShare = lane->laneAttributes->shareWith != nullptr;
      if (*has_laneShare) *laneShareBit10 = static_cast<uint16_t>(bitsValue(lane->laneAttributes->shareWith));
      c_laneAttr_t attr{};
      v2xapp_GBMapPraseLaneAttributes(lane->laneAttributes, &attr);
      *type = attr.laneType;
      *typeValueBit = attr.laneTypeAttrBit;
      // The attribute parser leaves the sharing bits to its caller: what is
      // reported here has always been its empty value.
      *laneShareBit10 = attr.laneShareBit;
    }
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetLanePointsNumber(V2XAPP_GBMHANDLE laneHandle, int32_t* pointsNumer) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* lane = static_cast<const Lane_t*>(laneHandle);
  if (lane != nullptr && pointsNumer != nullptr) {
    *pointsNumer = countOf(lane->points);
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapLaneGetPointByIndex(V2XAPP_GBMHANDLE laneHandle, uint32_t index,
                                        v2xapp_gbMsg_PosStr_t* p_lanepoint) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* lane = static_cast<const Lane_t*>(laneHandle);
  if (lane != nullptr && p_lanepoint != nullptr) ret = pointAt(lane->points, index, *p_lanepoint);
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetConnectToAllowedManeuvers(V2XAPP_GBMHANDLE laneHandle, uint16_t* allowedManeuvers) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* lane = static_cast<const Lane_t*>(laneHandle);
  if (lane != nullptr && allowedManeuvers != nullptr) {
    ret = lane->maneuvers != nullptr ? 0 : -3;
    if (ret == 0) *allowedManeuvers = static_cast<uint16_t>(bitsValue(lane->maneuvers));
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

/* Matched family: connections. */

int32_t v2xapp_GBMapGetConnectToCount(V2XAPP_GBMHANDLE laneHandle, uint8_t* count) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* lane = static_cast<const Lane_t*>(laneHandle);
  if (lane != nullptr && count != nullptr) {
    *count = static_cast<uint8_t>(countOf(lane->connectsTo));
    ret = 0;
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetConnectToReginId(V2XAPP_GBMHANDLE laneHandle, int32_t index, bool* has_regin, uint16_t* regin,
                                        uint16_t* id) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* lane = static_cast<const Lane_t*>(laneHandle);
  const Connection_t* connection = nullptr;
  if (lane != nullptr && has_regin != nullptr && regin != nullptr && id != nullptr) {
    ret = connectionAt(lane, index, connection);
  }
  if (ret == 0) {
    *has_regin = connection->remoteIntersection.region != nullptr;
    *regin = *has_regin ? static_cast<uint16_t>(*connection->remoteIntersection.region) : kNoRegion;
    *id = static_cast<uint16_t>(connection->remoteIntersection.id);
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetConnectToPhaseId(V2XAPP_GBMHANDLE mapLaneHandle, int32_t index, bool* has_phaseId,
                                        int16_t* phaseId) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* lane = static_cast<const Lane_t*>(mapLaneHandle);
  const Connection_t* connection = nullptr;
  if (lane != nullptr && has_phaseId != nullptr && phaseId != nullptr) ret = connectionAt(lane, index, connection);
  if (ret == 0) {
    *has_phaseId = connection->phaseId != nullptr;
    if (*has_phaseId) *phaseId = static_cast<int16_t>(*connection->phaseId);
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetConnectToLaneInfo(V2XAPP_GBMHANDLE laneHandle, int32_t index, bool* has_laneInfo,
                                         int16_t* laneId, bool* has_maneuver, uint16_t* maneuver) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  const auto* lane = static_cast<const Lane_t*>(laneHandle);
  const Connection_t* connection = nullptr;
  if (lane != nullptr && has_laneInfo != nullptr && laneId != nullptr && has_maneuver != nullptr &&
      maneuver != nullptr) {
    ret = connectionAt(lane, index, connection);
  }
  if (ret == 0) {
    const ConnectingLane* reached = connection->connectingLane;
    *has_laneInfo = reached != nullptr;
    *has_maneuver = reached != nullptr && reached->maneuver != nullptr;
    if (*has_laneInfo) *laneId = static_cast<int16_t>(reached->lane);
    if (*has_maneuver) *maneuver = static_cast<uint16_t>(bitsValue(reached->maneuver));
  }
  logResult(ret);
  GBLOG_END(&g_curTag, ret);
  return ret;
}

}  // extern "C"
