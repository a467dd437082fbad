// Map download: the lanes of a link with their attributes, maneuvers,
// connections to other intersections, speed limits and points.
#include <ConnectingLane.h>
#include <Connection.h>
#include <ConnectsToList.h>
#include <Lane.h>
#include <LaneAttributes.h>
#include <LaneWidth.h>
#include <Link.h>
#include <PhaseID.h>

#include <cstdlib>

#include "map_conv_mapdown_detail.h"
#include "v2xapp_commoncodec.h"

using namespace v2xmapconv::mapdown::detail;

extern "C" {

int32 GetLanesFromLinkJson(cJSON* json, Link* link) {
  MAPDOWN_TRACE_START();
  int32 ret = -2;
  if (json != nullptr && link != nullptr) {
    ret = readElements(__func__, member(json, "lanes"), &link->lanes.list, asn_DEF_Lane,
                       {{"lan calloc failed!", -2}, kNotAdded}, [reader = __func__](cJSON* item, Lane_t* lan) {
                         // The link reader records its own code over this one.
                         int32 laneRet = checked(reader, GetLaneIdFromLaneJson(item, lan),
                                                 "GetLanesFromLinkJson return failed!", ERROR_CODE_LINK_LANES_LANEID);
                         if (laneRet != 0) return laneRet;
                         // Everything else in a lane only records a code; the lane is kept.
                         GetLaneWidthFromLaneJson(item, lan);
                         GetLaneAttributesFromLaneJson(item, lan);
                         GetManeuversFromJson(item, &lan->maneuvers);
                         GetConnectsToFromLaneJson(item, lan);
                         GetSpeedLimitsFromJson(item, &lan->speedLimits);
                         GetPointsFromJson(item, &lan->points);
                         return 0;
                       });
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetLaneIdFromLaneJson(cJSON* json, Lane* lan) {
  MAPDOWN_TRACE_START();
  int32 ret = (json == nullptr || lan == nullptr)
                  ? -2
                  : readNumber(__func__, json, "laneId", &lan->laneID, {"Get lan->laneID item error", -2});
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetLaneWidthFromLaneJson(cJSON* json, Lane* lan) {
  MAPDOWN_TRACE_START();
  int32 ret = -2;
  if (json != nullptr && lan != nullptr) {
    ret = readOptionalNumber(__func__, member(json, "laneWidth"), &lan->laneWidth,
                             {"lan->laneWidth calloc failed!", -4}, intView,
                             {LaneWidth_constraint,
                              &asn_DEF_LaneWidth,
                              {"error: laneWidth out of range", -3, ERROR_CODE_LINK_LANES_LANEWIDTH}});
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetLaneAttributesFromLaneJson(cJSON* json, Lane* lan) {
  MAPDOWN_TRACE_START();
  int32 ret = -2;
  if (json != nullptr && lan != nullptr) {
    ret = withRecord(__func__, member(json, "laneAttributes"), &lan->laneAttributes,
                     {"lan->laneAttributes calloc failed!", -2}, [](cJSON* attributes, LaneAttributes_t* record) {
                       GetShareWithFromLaneAttributesJson(attributes, record);
                       GetLaneTypeFromLaneAttributesJson(attributes, record);
                       return 0;
                     });
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetShareWithFromLaneAttributesJson(cJSON* json, LaneAttributes* laneAttributes) {
  MAPDOWN_TRACE_START();
  int32 ret = 0;
  const cJSON* share = nullptr;
  if (json == nullptr || laneAttributes == nullptr) {
    ret = -2;
  } else if ((share = member(json, "shareWith")) != nullptr && laneAttributes->shareWith == nullptr) {
    // The number is the string's whole 16-bit value, not shifted into the 10 bits.
    long value = 0;
    viewNumber(__func__, share, intView, &value, kMisfitGoesOn);
    newBitString(value, 10, &laneAttributes->shareWith);
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetLaneTypeFromLaneAttributesJson(cJSON* json, LaneAttributes* laneAttributes) {
  MAPDOWN_TRACE_START();
  struct LaneTypeKey {
    const char* key;
    LaneTypeAttributes_PR present;
    int8 bits;
  };
  // Looked up in this order; the first key present decides.
  static const LaneTypeKey kKeys[] = {
      {"vehicle", LaneTypeAttributes_PR_vehicle, 8},
      {"crosswalk", LaneTypeAttributes_PR_crosswalk, 16},
      {"bikeLane", LaneTypeAttributes_PR_bikeLane, 16},
      {"sidewalk", LaneTypeAttributes_PR_sidewalk, 16},
      {"median", LaneTypeAttributes_PR_median, 16},
      {"striping", LaneTypeAttributes_PR_striping, 16},
      {"trackedVehicle", LaneTypeAttributes_PR_trackedVehicle, 16},
      {"parking", LaneTypeAttributes_PR_parking, 16},
  };
  int32 ret = 0;
  cJSON* type = nullptr;
  if (json == nullptr || laneAttributes == nullptr) {
    ret = -2;
  } else if ((type = member(json, "laneType")) == nullptr) {
    ret = report(__func__, {"Get laneAttributes->laneType item error", -2}, {json, "laneType"});
  } else if (laneAttributes->laneType.present == LaneTypeAttributes_PR_NOTHING) {
    LaneTypeAttributes_t& lt = laneAttributes->laneType;
    for (const LaneTypeKey& k : kKeys) {
      const cJSON* value = member(type, k.key);
      if (value == nullptr) continue;
      // Every alternative is a bit string; pick the member that belongs to it.
      BIT_STRING_t* bs = nullptr;
      switch (k.present) {
        case LaneTypeAttributes_PR_vehicle: bs = &lt.choice.vehicle; break;
        case LaneTypeAttributes_PR_crosswalk: bs = &lt.choice.crosswalk; break;
        case LaneTypeAttributes_PR_bikeLane: bs = &lt.choice.bikeLane; break;
        case LaneTypeAttributes_PR_sidewalk: bs = &lt.choice.sidewalk; break;
        case LaneTypeAttributes_PR_median: bs = &lt.choice.median; break;
        case LaneTypeAttributes_PR_striping: bs = &lt.choice.striping; break;
        case LaneTypeAttributes_PR_trackedVehicle: bs = &lt.choice.trackedVehicle; break;
        case LaneTypeAttributes_PR_parking: bs = &lt.choice.parking; break;
        default: break;
      }
      if (bs == nullptr) break;
      long read = 0;
      viewNumber(__func__, value, intView, &read, kMisfitGoesOn);
      int64 v = read;
      v2xcodec_long2BitString(&v, k.bits, bs);
      lt.present = k.present;
      break;
    }
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetLaneTypeFromLaneAttributesJson_old(cJSON* json, LaneAttributes* laneAttributes) {
  MAPDOWN_TRACE_START();
  int32 ret = 0;
  const cJSON* type = nullptr;
  if (json == nullptr || laneAttributes == nullptr) {
    ret = -2;
  } else if ((type = member(json, "laneType")) == nullptr) {
    ret = report(__func__, {"Get laneAttributes->laneType item error", -2}, {json, "laneType"});
  } else if (laneAttributes->laneType.present == LaneTypeAttributes_PR_NOTHING) {
    int64 v = 0;
    if (cJSON_IsString(type) && type->valuestring != nullptr) {
      v = static_cast<int64>(std::strtoll(type->valuestring, nullptr, 10));
    } else {
      v = intView(type);
    }
    v2xcodec_long2BitString(&v, 8, &laneAttributes->laneType.choice.vehicle);
    laneAttributes->laneType.present = LaneTypeAttributes_PR_vehicle;
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetManeuversFromJson(cJSON* json, BIT_STRING_s** maneuver) {
  MAPDOWN_TRACE_START();
  int32 ret = 0;
  const cJSON* value = nullptr;
  if (json == nullptr || maneuver == nullptr) {
    ret = -2;
  } else if ((value = member(json, "maneuvers")) == nullptr || *maneuver != nullptr) {
    ret = 0;
  } else {
    // The cloud sends the 12 maneuver bits as written; they fill the string
    // from its first bit once moved past the 4 padding bits.
    long read = 0;
    viewNumber(__func__, value, intView, &read, kMisfitGoesOn);
    int32 shifted = static_cast<int32>(static_cast<uint32>(read) << 4);
    if (newBitString(shifted, 12, maneuver) != 0) ret = report(__func__, {"maneuver calloc failed!", -2});
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetConnectsToFromLaneJson(cJSON* json, Lane* lan) {
  MAPDOWN_TRACE_START();
  int32 ret = -2;
  if (json != nullptr && lan != nullptr) {
    // A connection without its remote intersection ends the list; the lane stays.
    ret = readList(__func__, member(json, "connectsTo"), &lan->connectsTo, {"lan->connectsTo calloc failed!", -2},
                   asn_DEF_Connection, {{"connection calloc failed!", -2}, kNotAdded},
                   [reader = __func__](cJSON* item, Connection_t* connt) {
                     int32 connRet = checked(reader, GetRemoteIntersectionFromConnectionJson(item, connt),
                                             "GetRemoteIntersectionFromConnectionJson return failed!");
                     if (connRet != 0) return connRet;
                     GetConnectingLaneFromConnectionJson(item, connt);
                     GetPhaseIdFromConnectionJson(item, connt);
                     return 0;
                   });
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetRemoteIntersectionFromConnectionJson(cJSON* json, Connection* connt) {
  MAPDOWN_TRACE_START();
  int32 ret = (json == nullptr || connt == nullptr)
                  ? -2
                  : readReference(__func__, json, "remoteIntersection", &connt->remoteIntersection,
                                  {"Get remoteIntersection item failed!", -3});
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetConnectingLaneFromConnectionJson(cJSON* json, Connection* connt) {
  MAPDOWN_TRACE_START();
  int32 ret = -2;
  if (json != nullptr && connt != nullptr) {
    ret = withRecord(__func__, member(json, "connectingLane"), &connt->connectingLane,
                     {"connt->connectingLane calloc failed!", -2},
                     [reader = __func__](cJSON* lane, ConnectingLane_t* record) {
                       int32 laneRet = checked(reader, GetLaneIdFromConnectingLaneJson(lane, record),
                                               "GetLaneIdFromConnectingLaneJson return failed!");
                       if (laneRet == 0) GetManeuversFromJson(lane, &record->maneuver);
                       return laneRet;
                     });
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetLaneIdFromConnectingLaneJson(cJSON* json, ConnectingLane* connt_lane) {
  MAPDOWN_TRACE_START();
  int32 ret = (json == nullptr || connt_lane == nullptr)
                  ? -2
                  : readNumber(__func__, json, "laneId", &connt_lane->lane, {"Get laneId item failed!", -3});
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 GetPhaseIdFromConnectionJson(cJSON* json, Connection* connt) {
  MAPDOWN_TRACE_START();
  int32 ret = -2;
  if (json != nullptr && connt != nullptr) {
    ret = readOptionalNumber(__func__, member(json, "phaseId"), &connt->phaseId, {"connt->phaseId calloc failed!", -4},
                             intView,
                             {PhaseID_constraint,
                              &asn_DEF_PhaseID,
                              {"error: phaseId out of range", -3, ERROR_CODE_LINK_LANES_CONNECTSTO_PHASEID}});
  }
  MAPDOWN_TRACE_END(ret);
  return ret;
}

int32 Bitstring2Hex(int64* num, const char* bitstr) {
  V2XLOG(&g_curTag, 7, "%s start", __func__);
  if (num != nullptr && bitstr != nullptr) {
    // Unsigned arithmetic: a long text wraps instead of overflowing.
    uint64 value = static_cast<uint64>(*num);
    for (const char* p = bitstr; *p != '\0'; ++p) value = value * 2u + (*p == '1' ? 1u : 0u);
    *num = static_cast<int64>(value);
  }
  V2XLOG(&g_curTag, 7, "%s end", __func__);
  return 0;
}
}  // extern "C"
