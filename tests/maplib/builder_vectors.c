/* The MAP library from C, through its public headers only: the fact sheet's
 * vector D1 built element by element encodes to its published bytes, and
 * D2's elements built with absolute points get the offsets worked out by hand
 * below once converted. Exit status 0 when every check holds. */
#include <stdio.h>
#include <string.h>

#include "c_check.h"
#include "v2xapp_gbmap.h"
#include "v2xapp_gbmap_build.h"
#include "v2xapp_gbmap_query.h"

/* D1: msgCnt 1; one node {id 1, no region, lat 397870006, long 1165119042}. */
static void buildD1(void) {
  static const uint8_t expected[] = {0x10, 0x08, 0x00, 0x00, 0x05, 0x35, 0x6f, 0xb2, 0xda, 0xc2, 0xf0, 0x81, 0x04};
  V2XAPP_GBMHANDLE map = NULL, node = NULL;
  uint8_t buf[64];
  uint32_t len = sizeof(buf);
  CHECK(v2xapp_GBMapStrInit(&map) == 0);
  CHECK(v2xapp_GBMapSetMsgCnt(map, 1) == 0);
  CHECK(v2xapp_GBMapNodeInit(&node, 1, NULL, NULL, 0) == 0);
  CHECK(v2xapp_GBMapNodeSetRefPos(node, 397870006, 1165119042, NULL) == 0);
  CHECK(v2xapp_GBMapAddNode(map, node) == 0);
  CHECK(v2xapp_GBMapUperEncode(map, buf, &len) == 0);
  CHECK(len == sizeof(expected) && memcmp(buf, expected, sizeof(expected)) == 0);
  CHECK(v2xapp_GBMapStrDel(&map) == 0);
}

struct Point {
  int code;
  int64_t lat, lon;
  int vKind; /* 0: no vertical part */
  int64_t v;
};

static struct Point pointAt(V2XAPP_GBMHANDLE element, int isLane, uint32_t index) {
  v2xapp_gbMsg_PosStr_t rec;
  memset(&rec, 0, sizeof(rec));
  CHECK((isLane ? v2xapp_GBMapLaneGetPointByIndex(element, index, &rec)
                : v2xapp_GBMapLinkGetPointByIndex(element, index, &rec)) == 0);
  struct Point p = {rec.m_codeType, rec.m_lat, rec.m_lon, rec.m_isContainV ? rec.m_elevType : 0,
                    rec.m_isContainV ? rec.m_elev : 0};
  return p;
}

static int samePoint(struct Point a, struct Point b) {
  return a.code == b.code && a.lat == b.lat && a.lon == b.lon && a.vKind == b.vKind && a.v == b.v;
}

/* D2's node, link, lane, movement and connection, the points absolute. */
static void buildD2AndConvert(void) {
  uint64_t region = 10, phase = 7, share = 0, laneManeuvers = 0x0C, connManeuvers = 0x40;
  int64_t refElev = 0;
  uint16_t absElev = V2XAPP_GBMAP_ELEV_ABS;
  V2XAPP_GBMHANDLE map = NULL, node = NULL, link = NULL, lane = NULL, movement = NULL, conn = NULL;
  CHECK(v2xapp_GBMapStrInit(&map) == 0);
  CHECK(v2xapp_GBMapSetMsgCnt(map, 5) == 0 && v2xapp_GBMapSetTimStamp(map, 100000) == 0);
  CHECK(v2xapp_GBMapNodeInit(&node, 19, &region, (uint8_t*)"N1", 2) == 0);
  CHECK(v2xapp_GBMapNodeSetRefPos(node, 397870006, 1165119042, &refElev) == 0);
  CHECK(v2xapp_GBMapLinkInit(&link) == 0);
  CHECK(v2xapp_GBMapLinkSetUpStreamNodeID(link, 18, &region) == 0);
  CHECK(v2xapp_GBMapLinkAddSpeedLimits(link, 5, 833) == 0 && v2xapp_GBMapLinkSetlinkWidth(link, 660) == 0);
  CHECK(v2xapp_GBMapLinkMovementInit(&movement, 12, &region) == 0);
  CHECK(v2xapp_GBMapLinkMovementSetPhaseID(movement, 7) == 0 && v2xapp_GBMapLinkAddMovement(link, movement) == 0);
  /* Link points: 1 degree north (beyond every offset kind) at 10.0 m, and
   * right on the reference position without elevation. */
  CHECK(v2xapp_GBMapLinkAddPoint(link, V2XAPP_GBMAP_POS_LATLON, 407870006, 1165119042, &absElev, 100) == 0);
  CHECK(v2xapp_GBMapLinkAddPoint(link, V2XAPP_GBMAP_POS_LATLON, 397870006, 1165119042, NULL, 0) == 0);
  CHECK(v2xapp_GBMapLinkLaneInit(&lane, 1) == 0 && v2xapp_GBMapLinkLaneSetLaneWidth(lane, 330) == 0);
  CHECK(v2xapp_GBMapLinkLaneSetLaneAttributes(lane, V2XAPP_GBMAP_LANE_VEHICLE, 0, &share) == 0);
  CHECK(v2xapp_GBMapLaneSetManeuvers(lane, &laneManeuvers) == 0);
  CHECK(v2xapp_GBMapLaneConnectToInit(&conn, 12, &region) == 0);
  CHECK(v2xapp_GBMapLaneConnectToSetConnectingLane(conn, 1, &connManeuvers) == 0);
  CHECK(v2xapp_GBMapLaneConnectToSetPhaseID(conn, &phase) == 0 && v2xapp_GBMapLaneAddConnectTo(lane, conn) == 0);
  /* Lane points: D2's offset (lon -100, lat 200) and its absolute point at -0.5 m. */
  CHECK(v2xapp_GBMapLaneAddPoint(lane, V2XAPP_GBMAP_POS_LATLON, 397870206, 1165118942, NULL, 0) == 0);
  CHECK(v2xapp_GBMapLaneAddPoint(lane, V2XAPP_GBMAP_POS_LATLON, 397868872, 1165120283, &absElev, (uint64_t)-5) == 0);
  /* A near point whose height is only relative: converted without a height. */
  uint16_t relElev = 1;
  CHECK(v2xapp_GBMapLaneAddPoint(lane, V2XAPP_GBMAP_POS_LATLON, 397870016, 1165119042, &relElev, 0) == 0);
  CHECK(v2xapp_GBMapLinkAddlane(link, lane) == 0 && v2xapp_GBMapNodeAddLink(node, link) == 0);
  CHECK(v2xapp_GBMapAddNode(map, node) == 0);

  CHECK(v2xapp_convAbsPoint2RelPoint(map) == 0);
  /* By hand: 397870206 - 397870006 = 200, 1165118942 - 1165119042 = -100:
   * both within 2047, the 24-bit kind (1). 397868872 - 397870006 = -1134,
   * 1165120283 - 1165119042 = 1241: kind 1 again; -0.5 m against the node's
   * 0.0 m is -5 decimetres, within 63: height kind 1. 1 degree is 10000000
   * units, beyond 8388607: the point stays absolute (7), and its 10.0 m
   * becomes a height offset of 100 (kind 2: 63 <= 100 < 127). */
  const struct Point lanePts[] = {{1, 200, -100, 0, 0}, {1, -1134, 1241, 1, -5}, {1, 10, 0, 0, 0}};
  const struct Point linkPts[] = {{7, 407870006, 1165119042, 2, 100}, {1, 0, 0, 0, 0}};
  for (int round = 0; round < 2; round++) {
    for (uint32_t i = 0; i < 3; i++) CHECK(samePoint(pointAt(lane, 1, i), lanePts[i]));
    for (uint32_t i = 0; i < 2; i++) CHECK(samePoint(pointAt(link, 0, i), linkPts[i]));
    /* A second conversion finds nothing left to do. */
    CHECK(v2xapp_convAbsPoint2RelPoint(map) == 0);
  }
  CHECK(v2xapp_convAbsPoint2RelPoint(NULL) == -2);
  CHECK(v2xapp_GBMapStrDel(&map) == 0);
}

int main(void) {
  buildD1();
  buildD2AndConvert();
  if (g_failures != 0) fprintf(stderr, "%d check(s) failed\n", g_failures);
  return g_failures == 0 ? 0 : 1;
}
