/* The MAP library from C, through its public headers only: a map with a lane
 * of every type, lane maneuvers, sharing and connection maneuvers set with
 * the flag setters encodes, and the decoded map carries each named bit where
 * the message set puts it (bit 0 first). The expected bit texts are written
 * out by hand from the message set's bit lists. Also: ownership of elements
 * that are never attached, refused second parents, the decode that replaces
 * a held map, the stamp setter that frees, and position offsets made from
 * plain records. Exit status 0 when every check
 * holds; run under ASan/LSan for the leak checks. */
#include <ctype.h>
#include <stdio.h>
#include <string.h>

#include "c_check.h"
#include "v2xapp_commoncodec.h"
#include "v2xapp_gbmap.h"
#include "v2xapp_gbmap_build.h"
#include "v2xapp_gbmap_query.h"

/* One lane a type; flags as the setter takes them, the bits as XER writes the
 * decoded string (its first character is the message set's bit 0). */
static const struct LaneCase {
  int type;
  const char* tag;
  uint16_t flags;
  const char* bits;
} kLanes[] = {
    {1, "vehicle", 0x0081, "10000001"},           /* revocable, permission on request */
    {2, "crosswalk", 0x0120, "0000010010000000"}, /* push button, unsignalised segments */
    {3, "bikeLane", 0x0042, "0100001000000000"},  {4, "sidewalk", 0x0008, "0001000000000000"},
    {5, "median", 0x0200, "0000000001000000"}, /* high curbs */
    {6, "striping", 0x0021, "1000010000000000"},  {7, "trackedVehicle", 0x0010, "0000100000000000"},
    {8, "parking", 0x8040, "0000001000000001"}, /* no public parking, last reserved bit */
};

static const uint16_t kLaneManeuvers = 0x0805; /* straight, right, reserved1 */
static const char kLaneManeuverBits[] = "101000000001";
static const uint16_t kSharing = 0x0250; /* buses, pedestrians, pedestrian traffic */
static const char kSharingBits[] = "0000101001";
static const uint16_t kConnectionManeuvers = 0x0002; /* left */
static const char kConnectionManeuverBits[] = "010000000000";

static V2XAPP_GBMHANDLE buildMap(void) {
  V2XAPP_GBMHANDLE map = NULL, node = NULL, link = NULL;
  CHECK(v2xapp_GBMapStrInit(&map) == 0);
  CHECK(v2xapp_GBMapSetMsgCnt(map, 3) == 0);
  CHECK(v2xapp_GBMapNodeInit(&node, 7, NULL, NULL, 0) == 0);
  CHECK(v2xapp_GBMapNodeSetRefPos(node, 397870006, 1165119042, NULL) == 0);
  CHECK(v2xapp_GBMapLinkInit(&link) == 0);
  CHECK(v2xapp_GBMapLinkSetUpStreamNodeID(link, 6, NULL) == 0);
  CHECK(v2xapp_GBMapLinkSetlinkWidth(link, 350 * 8) == 0);
  for (size_t i = 0; i < sizeof(kLanes) / sizeof(kLanes[0]); ++i) {
    V2XAPP_GBMHANDLE lane = NULL, connection = NULL;
    CHECK(v2xapp_GBMapLinkLaneInit(&lane, i + 1) == 0);
    CHECK(v2xapp_GBMapLaneSetTypeFlags(lane, kLanes[i].type, kLanes[i].flags) == 0);
    CHECK(v2xapp_GBMapLaneSetManeuverFlags(lane, kLaneManeuvers) == 0);
    CHECK(v2xapp_GBMapLaneSetShareFlags(lane, kSharing) == 0);
    CHECK(v2xapp_GBMapLaneConnectToInit(&connection, 8, NULL) == 0);
    CHECK(v2xapp_GBMapLaneConnectToSetConnectingLane(connection, 2, NULL) == 0);
    CHECK(v2xapp_GBMapConnectToSetManeuverFlags(connection, kConnectionManeuvers) == 0);
    CHECK(v2xapp_GBMapLaneAddConnectTo(lane, connection) == 0);
    CHECK(v2xapp_GBMapLinkAddlane(link, lane) == 0);
  }
  CHECK(v2xapp_GBMapNodeAddLink(node, link) == 0);
  CHECK(v2xapp_GBMapAddNode(map, node) == 0);
  return map;
}

/* The element named tag in xml, from its n-th occurrence on (0-based). */
static const char* nthElement(const char* xml, const char* tag, int n) {
  char open[64];
  snprintf(open, sizeof(open), "<%s>", tag);
  const char* at = xml;
  for (int k = 0; at != NULL && k <= n; ++k) {
    at = strstr(at, open);
    if (at != NULL && k < n) at += strlen(open);
  }
  return at != NULL ? at + strlen(open) : NULL;
}

/* The n-th element named tag holds exactly bits (XER lays it out on its own
 * indented line). */
static int bitsAre(const char* xml, const char* tag, int n, const char* bits) {
  const char* at = nthElement(xml, tag, n);
  if (at == NULL) return 0;
  while (isspace((unsigned char)*at)) ++at;
  if (strncmp(at, bits, strlen(bits)) != 0) return 0;
  at += strlen(bits);
  while (isspace((unsigned char)*at)) ++at;
  return *at == '<';
}

static void encodeDecodeAndReadTheBits(void) {
  V2XAPP_GBMHANDLE map = buildMap();
  uint8_t per[512];
  uint32_t perLen = sizeof(per);
  CHECK(v2xapp_GBMapUperEncode(map, per, &perLen) == 0 && perLen <= sizeof(per));

  /* Decoded into a handle that already holds this map: replaced, not grown. */
  CHECK(v2xapp_GBMapUperDecodeFresh(&map, per, perLen) == 0);
  uint32_t nodes = 0;
  CHECK(v2xapp_GBMapGetNodesCnt(map, &nodes) == 0 && nodes == 1);
  CHECK(v2xapp_GBMapUperDecodeFresh(&map, per, perLen - 8) == -2); /* truncated: map kept */
  CHECK(v2xapp_GBMapGetNodesCnt(map, &nodes) == 0 && nodes == 1);

  static char xml[16384];
  uint32_t xmlLen = sizeof(xml) - 1;
  CHECK(v2xapp_GBMapXerEncode(map, (uint8_t*)xml, &xmlLen) == 0 && xmlLen < sizeof(xml));
  xml[xmlLen < sizeof(xml) ? xmlLen : sizeof(xml) - 1] = '\0';
  CHECK(v2xapp_GBMapXerDecodeFresh(&map, (const uint8_t*)xml, xmlLen) == 0); /* XML: replaced as well */
  CHECK(v2xapp_GBMapGetNodesCnt(map, &nodes) == 0 && nodes == 1);
  CHECK(v2xapp_GBMapXerDecodeFresh(&map, (const uint8_t*)xml, xmlLen / 2) == -2);
  CHECK(v2xapp_GBMapGetNodesCnt(map, &nodes) == 0 && nodes == 1);
  for (int i = 0; i < (int)(sizeof(kLanes) / sizeof(kLanes[0])); ++i) {
    CHECK(bitsAre(xml, kLanes[i].tag, 0, kLanes[i].bits));
    CHECK(bitsAre(xml, "maneuvers", i, kLaneManeuverBits));
    CHECK(bitsAre(xml, "shareWith", i, kSharingBits));
    CHECK(bitsAre(xml, "maneuver", i, kConnectionManeuverBits));
  }

  /* The same bits through the query calls: first octet most significant. */
  V2XAPP_GBMHANDLE node = NULL, link = NULL, lane = NULL;
  CHECK(v2xapp_GBMapGetNodeByIndex(map, 0, &node) == 0);
  CHECK(v2xapp_GBMapNodeGetLinkByIndex(node, 0, &link) == 0);
  CHECK(v2xapp_GBMapLinkGetLaneByIndex(link, 7, &lane) == 0);
  bool hasAttr = false, hasShare = false, hasLane = false, hasManeuver = false;
  uint16_t type = 0, typeBits = 0, share = 0, maneuvers = 0, connection = 0;
  int16_t laneId = 0;
  CHECK(v2xapp_GBMapGetLaneAttrs(lane, &hasAttr, &type, &typeBits, &hasShare, &share) == 0);
  CHECK(hasAttr && hasShare && type == 8 && typeBits == 0x0201);
  CHECK(v2xapp_GBMapGetConnectToAllowedManeuvers(lane, &maneuvers) == 0 && maneuvers == 0xA010);
  CHECK(v2xapp_GBMapGetConnectToLaneInfo(lane, 0, &hasLane, &laneId, &hasManeuver, &connection) == 0);
  CHECK(hasLane && hasManeuver && laneId == 2 && connection == 0x4000);
  CHECK(v2xapp_GBMapStrDel(&map) == 0);
}

static void refusedFlagsChangeNothing(void) {
  V2XAPP_GBMHANDLE lane = NULL, connection = NULL;
  CHECK(v2xapp_GBMapLinkLaneInit(&lane, 1) == 0);
  CHECK(v2xapp_GBMapLaneConnectToInit(&connection, 1, NULL) == 0);
  const struct {
    int32_t got, want;
  } cases[] = {
      {v2xapp_GBMapLaneSetManeuverFlags(lane, 0x1000), -3}, /* bit 12 */
      {v2xapp_GBMapLaneSetShareFlags(lane, 0x0400), -3},    /* bit 10 */
      {v2xapp_GBMapLaneSetTypeFlags(lane, 1, 0x0100), -3},  /* vehicle bit 8 */
      {v2xapp_GBMapLaneSetTypeFlags(lane, 0, 1), -3},
      {v2xapp_GBMapLaneSetTypeFlags(lane, 9, 1), -3},
      {v2xapp_GBMapConnectToSetManeuverFlags(connection, 0x8000), -3},
      {v2xapp_GBMapLaneSetManeuverFlags(NULL, 1), -2},
      {v2xapp_GBMapLaneSetTypeFlags(NULL, 2, 1), -2},
      {v2xapp_GBMapLaneSetShareFlags(NULL, 1), -2},
      {v2xapp_GBMapConnectToSetManeuverFlags(NULL, 1), -2},
      {v2xapp_GBMapLaneSetTypeFlags(lane, 2, 0xFFFF), 0}, /* all 16 bits of a crosswalk */
  };
  for (size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i) {
    if (cases[i].got != cases[i].want) fprintf(stderr, "flag case %zu: %d\n", i, (int)cases[i].got);
    CHECK(cases[i].got == cases[i].want);
  }
  uint16_t maneuvers = 0;
  CHECK(v2xapp_GBMapGetConnectToAllowedManeuvers(lane, &maneuvers) == -3); /* still none */
  CHECK(v2xapp_GBMapElementRelease(&lane) == 0 && lane == NULL);
  CHECK(v2xapp_GBMapElementRelease(&connection) == 0 && connection == NULL);
}

/* Every kind released unattached, with what was set on it; second parents
 * and second releases refused. */
static void ownership(void) {
  V2XAPP_GBMHANDLE map = NULL, other = NULL, node = NULL, link = NULL, lane = NULL, movement = NULL, connection = NULL;
  uint64_t region = 3, phase = 4;
  uint8_t name[] = "N1";
  CHECK(v2xapp_GBMapStrInit(&map) == 0 && v2xapp_GBMapStrInit(&other) == 0);
  CHECK(v2xapp_GBMapNodeInit(&node, 1, &region, name, 2) == 0);
  CHECK(v2xapp_GBMapLinkInit(&link) == 0 && v2xapp_GBMapLinkSetName(link, name, 2) == 0);
  CHECK(v2xapp_GBMapLinkAddSpeedLimits(link, 5, 500) == 0);
  CHECK(v2xapp_GBMapLinkLaneInit(&lane, 1) == 0 && v2xapp_GBMapLaneSetShareFlags(lane, 1) == 0);
  CHECK(v2xapp_GBMapLinkMovementInit(&movement, 2, &region) == 0);
  CHECK(v2xapp_GBMapLinkMovementSetPhaseID(movement, 4) == 0);
  CHECK(v2xapp_GBMapLaneConnectToInit(&connection, 2, &region) == 0);
  CHECK(v2xapp_GBMapLaneConnectToSetPhaseID(connection, &phase) == 0);
  CHECK(v2xapp_GBMapLaneAddPoint(lane, 7, 1, 2, NULL, 0) == 0);

  V2XAPP_GBMHANDLE all[] = {node, link, lane, movement, connection};
  for (size_t i = 0; i < sizeof(all) / sizeof(all[0]); ++i) CHECK(v2xapp_GBMapElementRelease(&all[i]) == 0);
  for (size_t i = 0; i < sizeof(all) / sizeof(all[0]); ++i) CHECK(all[i] == NULL);
  CHECK(v2xapp_GBMapElementRelease(&all[0]) == -2);
  CHECK(v2xapp_GBMapElementRelease(NULL) == -2);

  CHECK(v2xapp_GBMapNodeInit(&node, 1, NULL, NULL, 0) == 0);
  CHECK(v2xapp_GBMapLinkInit(&link) == 0);
  CHECK(v2xapp_GBMapNodeAddLink(node, link) == 0);
  CHECK(v2xapp_GBMapAddNode(map, node) == 0);
  CHECK(v2xapp_GBMapAddNode(other, node) == -4);  /* a second parent */
  CHECK(v2xapp_GBMapAddNode(map, node) == -2);    /* the same list again */
  CHECK(v2xapp_GBMapAddNode(other, link) == -4);  /* a link is no node */
  CHECK(v2xapp_GBMapElementRelease(&node) == -4); /* its map owns it */
  CHECK(v2xapp_GBMapReplaceTimStamp(map, 1440) == 0);
  CHECK(v2xapp_GBMapReplaceTimStamp(map, 1441) == 0); /* the first one freed */
  uint32_t stamp = 0;
  CHECK(v2xapp_GBMapGetTimStamp(map, &stamp) == 0 && stamp == 1441);
  CHECK(v2xapp_GBMapStrDel(&map) == 0 && v2xapp_GBMapStrDel(&other) == 0);
  CHECK(v2xapp_GBMapStrInit(NULL) == -2 && v2xapp_GBMapStrDel(NULL) == -2);
}

static int recordIs(v2xapp_gbMsg_PosStr_t r, int code, int64_t lat, int64_t lon, int elevType, int64_t elev) {
  return r.m_codeType == code && r.m_lat == lat && r.m_lon == lon && r.m_isContainV == (elevType != 0) &&
         (elevType == 0 || (r.m_elevType == elevType && r.m_elev == elev));
}

/* Offsets from plain records; the degree values are binary fractions, so the
 * products by 1e7 are exact: 2^-13 deg = 1220.703125, 2^-12 deg = 2441.40625. */
static void plainOffsets(void) {
  c_pos3D_t ref, pos;
  memset(&ref, 0, sizeof(ref));
  memset(&pos, 0, sizeof(pos));
  ref.elevation = 2.5;
  pos.lat = 0.0001220703125;
  pos.lon = -0.000244140625;
  pos.elevation = 10.5;
  v2xapp_gbMsg_PosStr_t out;
  CHECK(v2xcodec_GBsetMsgPos(&pos, &ref, &out) == 0);
  CHECK(recordIs(out, 2, 1220, -2441, 2, 80)); /* 2441 > 2047: 14 bits; 8 m: 8 bits */
  ref.elevation = 0.0;                         /* no elevation: no vertical value */
  CHECK(v2xcodec_GBsetMsgPos(&pos, &ref, &out) == 0 && recordIs(out, 2, 1220, -2441, 0, 0));
  CHECK(v2xcodec_GBsetMsgPos(&pos, &ref, NULL) == -2);

  v2xapp_gbMsg_PosStr_t iref = {7, 397870006, 1165119042, true, 7, 100};
  v2xapp_gbMsg_PosStr_t ipos = {7, 397870006 + 2047, 1165119042 - 10, true, 7, 150};
  CHECK(v2xcodec_GBsetMsgPosOriginal(&ipos, &iref, &out) == 0 && recordIs(out, 1, 2047, -10, 1, 50));
  ipos.m_lat = 397870006 + 8388608; /* one beyond 24 bits: absolute */
  ipos.m_isContainV = false;
  CHECK(v2xcodec_GBsetMsgPosOriginal(&ipos, &iref, &out) == 0 && recordIs(out, 7, ipos.m_lat, ipos.m_lon, 0, 0));
  ipos.m_codeType = 1; /* an offset is no position */
  CHECK(v2xcodec_GBsetMsgPosOriginal(&ipos, &iref, &out) == -2);
}

int main(void) {
  plainOffsets();
  encodeDecodeAndReadTheBits();
  refusedFlagsChangeNothing();
  ownership();
  return g_failures == 0 ? 0 : 1;
}
