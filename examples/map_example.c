/* Builds a MAP message with one intersection, one road entering it and a
 * lane of every type, encodes it with UPER, decodes it again, reads it back,
 * matches a vehicle position to its lane and turns the absolute lane points
 * into offsets from the intersection. Prints what it did; exit status 0 when
 * all went well. */
#include <stdio.h>
#include <string.h>

#include "v2xapp_gbmap.h"
#include "v2xapp_gbmap_build.h"
#include "v2xapp_gbmap_match.h"
#include "v2xapp_gbmap_query.h"

#define TRY(call)                                                               \
  do {                                                                          \
    int32_t rc_ = (call);                                                       \
    if (rc_ != 0) {                                                             \
      fprintf(stderr, "%s:%d: %s = %d\n", __FILE__, __LINE__, #call, (int)rc_); \
      return 1;                                                                 \
    }                                                                           \
  } while (0)

/* Intersection 101 at 39.9 N, 116.4 E; the road comes from node 100 in the
 * south. Lane k runs north, 3.5 m wide, 3.5 m further east than lane k-1. */
enum { kLanes = 8 };
static const int64_t kRefLat = 399000000, kRefLon = 1164000000; /* 1e-7 degree */
static const int64_t kLaneStepLon = 410;                        /* about 3.5 m */

static int buildMap(V2XAPP_GBMHANDLE* p_map) {
  V2XAPP_GBMHANDLE map = NULL, node = NULL, link = NULL;
  uint8_t name[] = "Main St";
  TRY(v2xapp_GBMapStrInit(&map));
  *p_map = map; /* released by the caller, with everything attached */
  TRY(v2xapp_GBMapSetMsgCnt(map, 1));
  TRY(v2xapp_GBMapReplaceTimStamp(map, 1440)); /* minute of the year */
  TRY(v2xapp_GBMapNodeInit(&node, 101, NULL, NULL, 0));
  TRY(v2xapp_GBMapNodeSetRefPos(node, kRefLat, kRefLon, NULL));
  TRY(v2xapp_GBMapAddNode(map, node)); /* the map owns the node from here */
  TRY(v2xapp_GBMapLinkInit(&link));
  TRY(v2xapp_GBMapNodeAddLink(node, link));
  TRY(v2xapp_GBMapLinkSetName(link, name, (uint16_t)strlen((char*)name)));
  TRY(v2xapp_GBMapLinkSetUpStreamNodeID(link, 100, NULL));
  TRY(v2xapp_GBMapLinkSetlinkWidth(link, 350 * kLanes)); /* cm */
  TRY(v2xapp_GBMapLinkAddSpeedLimits(link, 5, 833));     /* vehicle max, 0.02 m/s: 60 km/h */

  for (int k = 0; k < kLanes; ++k) {
    V2XAPP_GBMHANDLE lane = NULL, connection = NULL;
    const int64_t lon = kRefLon + k * kLaneStepLon;
    uint64_t phase = 2;
    TRY(v2xapp_GBMapLinkLaneInit(&lane, (uint64_t)k + 1));
    TRY(v2xapp_GBMapLinkAddlane(link, lane));
    TRY(v2xapp_GBMapLinkLaneSetLaneWidth(lane, 350));
    /* Type 1 vehicle .. 8 parking; bit 0 of every type: "revocable lane". */
    TRY(v2xapp_GBMapLaneSetTypeFlags(lane, V2XAPP_GBMAP_LANE_VEHICLE + k, 1u << 0));
    TRY(v2xapp_GBMapLaneSetManeuverFlags(lane, (1u << 0) | (1u << 1))); /* straight, left */
    TRY(v2xapp_GBMapLaneSetShareFlags(lane, 1u << 4));                  /* buses */
    /* Absolute points 200 m and 20 m south of the stop line. */
    TRY(v2xapp_GBMapLaneAddPoint(lane, V2XAPP_GBMAP_POS_LATLON, (uint64_t)(kRefLat - 18000), (uint64_t)lon, NULL, 0));
    TRY(v2xapp_GBMapLaneAddPoint(lane, V2XAPP_GBMAP_POS_LATLON, (uint64_t)(kRefLat - 1800), (uint64_t)lon, NULL, 0));
    TRY(v2xapp_GBMapLaneConnectToInit(&connection, 102, NULL));
    TRY(v2xapp_GBMapLaneConnectToSetConnectingLane(connection, 1, NULL));
    TRY(v2xapp_GBMapConnectToSetManeuverFlags(connection, 1u << 1)); /* left */
    TRY(v2xapp_GBMapLaneConnectToSetPhaseID(connection, &phase));
    TRY(v2xapp_GBMapLaneAddConnectTo(lane, connection));
  }
  return 0;
}

static int readBack(V2XAPP_GBMHANDLE map) {
  V2XAPP_GBMHANDLE node = NULL, link = NULL, lane = NULL;
  uint32_t nodes = 0;
  int32_t lanes = 0;
  TRY(v2xapp_GBMapGetNodesCnt(map, &nodes));
  TRY(v2xapp_GBMapGetNodeByIndex(map, 0, &node));
  TRY(v2xapp_GBMapNodeGetLinkByIndex(node, 0, &link));
  TRY(v2xapp_GBMapGetLaneCountInMatchedLink(link, &lanes));
  printf("decoded: %u node(s), %d lanes\n", nodes, (int)lanes);
  for (uint32_t i = 0; v2xapp_GBMapLinkGetLaneByIndex(link, i, &lane) == 0; ++i) {
    bool hasAttr = false, hasShare = false, hasWidth = false;
    uint16_t type = 0, typeBits = 0, share = 0, maneuvers = 0;
    int16_t id = 0, width = 0;
    TRY(v2xapp_GBMapGetLaneId(lane, &id));
    TRY(v2xapp_GBMapGetLaneWidth(lane, &hasWidth, &width));
    TRY(v2xapp_GBMapGetLaneAttrs(lane, &hasAttr, &type, &typeBits, &hasShare, &share));
    TRY(v2xapp_GBMapGetConnectToAllowedManeuvers(lane, &maneuvers));
    /* Bit strings read as numbers, the first octet most significant. */
    printf("  lane %d: width %d cm, type %u bits 0x%04x, maneuvers 0x%04x\n", id, width, type, typeBits, maneuvers);
  }
  return 0;
}

int main(void) {
  V2XAPP_GBMHANDLE map = NULL, decoded = NULL;
  uint8_t per[1024];
  uint32_t len = sizeof(per);
  v2xapp_GBMapSetLogLevel(3); /* warnings and errors (the default without a logger) */
  if (buildMap(&map) != 0) return 1;
  TRY(v2xapp_GBMapUperEncode(map, per, &len));
  if (len > sizeof(per)) return fprintf(stderr, "buffer too small: %u\n", len), 1;
  printf("encoded: %u bytes of UPER\n", len);
  TRY(v2xapp_GBMapUperDecodeFresh(&decoded, per, len));
  if (readBack(decoded) != 0) return 1;

  /* A vehicle 100 m south of the stop line, on the centre line of lane 3. */
  c_pos3D_t vehicle;
  memset(&vehicle, 0, sizeof(vehicle));
  vehicle.posIsValid = true;
  vehicle.lat = (kRefLat - 9000) * 1e-7;
  vehicle.lon = (kRefLon + 2 * kLaneStepLon) * 1e-7;
  MapSearch_t found = {-1, -1, -1};
  TRY(v2xapp_GBMapMatchLane(&vehicle, decoded, &found));
  printf("matched: node %d, link %d, lane index %d\n", found.CurrentNode, found.CurrentLink, found.CurrentLane);

  /* Absolute points become offsets from the intersection: a smaller message. */
  TRY(v2xapp_convAbsPoint2RelPoint(decoded));
  uint32_t relLen = sizeof(per);
  TRY(v2xapp_GBMapUperEncode(decoded, per, &relLen));
  printf("with relative points: %u bytes\n", relLen);

  TRY(v2xapp_GBMapStrDel(&map));
  TRY(v2xapp_GBMapStrDel(&decoded));
  if (found.CurrentLane != 2 || relLen >= len) return fprintf(stderr, "unexpected result\n"), 1;
  puts("example ok");
  return 0;
}
