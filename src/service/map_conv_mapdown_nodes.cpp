// Map download: nodes with their identity and reference position, and each
// node's incoming links with their speed limits, widths and movements.
#include <Elevation.h>
#include <Latitude.h>
#include <Link.h>
#include <LinkList.h>
#include <Longitude.h>
#include <MapData.h>
#include <Movement.h>
#include <MovementList.h>
#include <Node.h>
#include <PhaseID.h>
#include <RegulatorySpeedLimit.h>
#include <Speed.h>
#include <SpeedLimitList.h>

#include <cstring>

#include "map_conv_mapdown_detail.h"
#include "v2xapp_commoncodec.h"

using namespace v2xmapconv::mapdown::detail;

namespace {

// The reference position of a node, in this order: "lon", "lat", then the
// optional "ele". The degrees and metres also go into the floating-point
// position that the link reader carries.
int32 readRefPos(const char* reader, cJSON* json, Node_t* node, c_pos3D_t* refPos) {
  cJSON* pos = member(json, "refPos");
  if (pos == nullptr) return report(reader, {"Get refPos item failed!", -9, ERROR_CODE_NODE_REFPOS}, {json, "refPos"});
  refPos->posIsValid = true;
  int32 ret = readNumber(
      reader, pos, "lon", &node->refPos.Long, {"Get refPos->lon item failed!", -4, ERROR_CODE_NODE_REFPOS_LON},
      degreesView,
      {Longitude_constraint, &asn_DEF_Longitude, {"error: longitude out of range", -3, ERROR_CODE_NODE_REFPOS_LON}},
      &refPos->lon);
  if (ret != 0) return ret;
  ret = readNumber(
      reader, pos, "lat", &node->refPos.lat, {"Get refPos->lat item failed!", -6, ERROR_CODE_NODE_REFPOS_LAT},
      degreesView,
      {Latitude_constraint, &asn_DEF_Latitude, {"error: latitude out of range", -5, ERROR_CODE_NODE_REFPOS_LAT}},
      &refPos->lat);
  if (ret != 0) return ret;
  cJSON* ele = member(pos, "ele");
  refPos->elevIsValid = ele != nullptr;
  if (ele != nullptr) refPos->elevation = ele->valuedouble;
  return readOptionalNumber(
      reader, ele, &node->refPos.elevation, {"refPos.elevation calloc failed", -8}, metresView,
      {Elevation_constraint, &asn_DEF_Elevation, {"error: elevation out of range", -7, ERROR_CODE_NODE_REFPOS_ELE}});
}

// One node: identity and reference position decide; its links never reject it.
int32 readNode(const char* reader, cJSON* item, Node_t* node) {
  c_pos3D_t refPos{};
  GetNameFromNodesJson(item, node);
  int32 ret = checked(reader, GetIdFromNodesJson(item, node), "GetIdFromNodesJson return failed!");
  if (ret == 0)
    ret = checked(reader, GetRefPosFromNodesJson(item, node, &refPos), "GetRefPosFromNodesJson return failed!");
  // The node keeps the links read before a faulty one.
  if (ret == 0) GetInLinksFromNodesJson(item, node, &refPos);
  return ret;
}

// One link; upstream node, width and lanes decide, the rest only record codes.
int32 readLink(const char* reader, cJSON* item, Link_t* link) {
  GetNameFromLinkJson(item, link);
  int32 ret = checked(reader, GetUpstreamNodeIdFromLinkJson(item, link), "GetUpstreamNodeIdFromLinkJson return failed!",
                      ERROR_CODE_LINK_UPSTREAMNODEID);
  if (ret != 0) return ret;
  GetSpeedLimitsFromJson(item, &link->speedLimits);
  ret = checked(reader, GetLinkWidthFromLinkJson(item, link), "GetLinkWidthFromLinkJson return failed!",
                ERROR_CODE_LINK_LINKWIDTH);
  if (ret != 0) return ret;
  GetPointsFromJson(item, &link->points);
  GetMovementsFromLinkJson(item, link);
  return checked(reader, GetLanesFromLinkJson(item, link), "GetLanesFromLinkJson return failed!",
                 ERROR_CODE_LINK_LANES);
}

int32 readSpeedLimit(const char* reader, cJSON* item, RegulatorySpeedLimit_t* limit) {
  const cJSON* type = member(item, "type");
  if (type == nullptr)
    return report(reader, {"Get speedLimit->type item failed!", -3, ERROR_CODE_LINK_SPEEDLIMIT}, {item, "type"});
  const Fault wrongType = {"Get speedLimit->type item failed!", -3, ERROR_CODE_LINK_SPEEDLIMIT};
  int32 ret = 0;
  if (cJSON_IsString(type)) {
    GetSpeedLimitsTypeFromStr(type->valuestring, &limit->type);
  } else if (cJSON_IsNumber(type)) {
    ret = viewNumber(reader, type, intView, &limit->type, wrongType);  // the enumeration value as sent
  } else {
    ret = reportMisfit(reader, type, "neither a text nor a number", "0", wrongType);
  }
  if (ret != 0) return ret;
  return readNumber(reader, item, "speed", &limit->speed,
                    {"Get speedLimit->speed item failed!", -5, ERROR_CODE_LINK_SPEEDLIMIT}, intView,
                    {Speed_constraint, &asn_DEF_Speed, {"error: speed out of range", -4, ERROR_CODE_LINK_SPEEDLIMIT}});
}

}  // namespace

extern "C" {

int32 GetNodesFromJson(cJSON* json, MapData* map) {
  MAPDOWN_TRACE_START();
  int32 ret = 0;
  cJSON* nodes = nullptr;
  if (json == nullptr || map == nullptr) {
    ret = -2;
  } else if ((nodes = member(json, "nodes")) == nullptr) {
    ret = report(__func__, {"Parse nodes error!", -3}, {json, "nodes"});
  } else {
    ret = readElements(__func__, nodes, &map->nodes.list, asn_DEF_Node,
                       {{"node calloc failed!", -2}, {"ASN_SEQUENCE_ADD failed!", -4}},
                       [reader = __func__](cJSON* item, Node_t* node) { return readNode(reader, item, node); });
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetNameFromNodesJson(cJSON* json, Node* node) {
  MAPDOWN_TRACE_START();
  int32 ret = (json == nullptr || node == nullptr) ? -2 : readName(__func__, json, &node->name, "node");
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetIdFromNodesJson(cJSON* json, Node* node) {
  MAPDOWN_TRACE_START();
  int32 ret = (json == nullptr || node == nullptr)
                  ? -2
                  : readReference(__func__, json, "id", &node->id, {"Get id item failed!", -3, ERROR_CODE_NODE_ID},
                                  ERROR_CODE_NODE_ID);
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetNodeReferenceIDFromJson(cJSON* json, NodeReferenceID* id) {
  MAPDOWN_TRACE_START();
  int32 ret = -2;
  if (json != nullptr && id != nullptr) {
    ret = readOptionalNumber(__func__, member(json, "region"), &id->region, {"id->region calloc failed", -2});
    if (ret == 0) ret = readNumber(__func__, json, "id", &id->id, {"Get id->id item failed!", -3});
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetRefPosFromNodesJson(cJSON* json, Node* node, c_pos3D* refPos) {
  MAPDOWN_TRACE_START();
  int32 ret = json == nullptr || node == nullptr || refPos == nullptr ? -2 : readRefPos(__func__, json, node, refPos);
  MAPDOWN_TRACE_END(ret);
  return ret;
}

// ---------------------------------------------------------------- links

int32 GetInLinksFromNodesJson(cJSON* json, Node* node, const c_pos3D* refPos) {
  MAPDOWN_TRACE_START();
  // The node's position is carried for relative point lists; the link and
  // lane points are read as absolute positions.
  (void)refPos;
  int32 ret = 0;
  cJSON* links = nullptr;
  if (json == nullptr || node == nullptr) {
    ret = -2;
  } else if ((links = member(json, "inLinks")) == nullptr) {
    ret = report(__func__, {"Get inLinks item failed!", -3}, {json, "inLinks"});
  } else {
    // A dropped link ends the node's list; the links before it stay.
    ret = readList(__func__, links, &node->inLinks, {"node->inLinks calloc failed!", -2}, asn_DEF_Link,
                   {{"node->inLinks calloc failed!", -2}, kNotAdded},
                   [reader = __func__](cJSON* item, Link_t* link) { return readLink(reader, item, link); });
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetNameFromLinkJson(cJSON* json, Link* link) {
  MAPDOWN_TRACE_START();
  int32 ret = (json == nullptr || link == nullptr) ? -2 : readName(__func__, json, &link->name, "link");
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetUpstreamNodeIdFromLinkJson(cJSON* json, Link* link) {
  MAPDOWN_TRACE_START();
  int32 ret = (json == nullptr || link == nullptr)
                  ? -2
                  : readReference(__func__, json, "upstreamNodeId", &link->upstreamNodeId,
                                  {"Get link->upstreamNodeId item failed!", -3}, ERROR_CODE_LINK_UPSTREAMNODEID);
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetSpeedLimitsFromJson(cJSON* json, SpeedLimitList** speedLimits) {
  MAPDOWN_TRACE_START();
  int32 ret = -2;
  if (json != nullptr && speedLimits != nullptr) {
    ret = readList(__func__, member(json, "speedLimits"), speedLimits, {"speedLimits calloc failed!", -9},
                   asn_DEF_RegulatorySpeedLimit, {{"speedLimit calloc failed!", -6}, {"ASN_SEQUENCE_ADD faild \n", -7}},
                   [reader = __func__](cJSON* item, RegulatorySpeedLimit_t* limit) {
                     return readSpeedLimit(reader, item, limit);
                   });
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetSpeedLimitsTypeFromStr(const char* typeStr, long* type) {
  MAPDOWN_TRACE_START();
  int32 ret = 0;
  if (typeStr == nullptr || type == nullptr) {
    ret = -2;
  } else if (std::strcmp(typeStr, "vehicleMaxSpeed") == 0) {
    *type = SpeedLimitType_vehicleMaxSpeed;
  } else if (std::strcmp(typeStr, "truckMaxSpeed") == 0) {
    *type = SpeedLimitType_truckMaxSpeed;
  } else {
    *type = SpeedLimitType_unknown;
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetLinkWidthFromLinkJson(cJSON* json, Link* link) {
  MAPDOWN_TRACE_START();
  int32 ret = (json == nullptr || link == nullptr)
                  ? -2
                  : readNumber(__func__, json, "linkWidth", &link->linkWidth, {"Get link->linkWidth item failed!", -3});
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetMovementsFromLinkJson(cJSON* json, Link* link) {
  MAPDOWN_TRACE_START();
  int32 ret = -2;
  if (json != nullptr && link != nullptr) {
    ret =
        readList(__func__, member(json, "movements"), &link->movements, {"link->movements calloc failed!", -2},
                 asn_DEF_Movement, {{"movement calloc failed!", -2}, kNotAdded}, [](cJSON* item, Movement_t* movement) {
                   GetRemoteIntersectionFromMovementJson(item, movement);
                   GetPhaseIdFromMovementJson(item, movement);
                   return 0;
                 });
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetRemoteIntersectionFromMovementJson(cJSON* json, Movement* movement) {
  MAPDOWN_TRACE_START();
  // The message names another key; log readers know it by this text.
  int32 ret = (json == nullptr || movement == nullptr)
                  ? -2
                  : readReference(__func__, json, "remoteIntersection", &movement->remoteIntersection,
                                  {"Get link->upstreamNodeId item failed!", -3});
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetPhaseIdFromMovementJson(cJSON* json, Movement* movement) {
  MAPDOWN_TRACE_START();
  int32 ret = -2;
  if (json != nullptr && movement != nullptr) {
    // An out-of-range phase is kept as sent; only the code tells the cloud.
    ret = readOptionalNumber(
        __func__, member(json, "phaseId"), &movement->phaseId, {"movement->phaseId calloc failed!", -4}, intView,
        {PhaseID_constraint, &asn_DEF_PhaseID, {"error: phaseId out of range", -3, ERROR_CODE_LINK_MOVEMENTS_PHASEID}});
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}
}  // extern "C"
