/**
 * \file v2xapp_gbmap_query.h
 * \brief Reading a MAP message: counts, elements, field values.
 *
 * The map's structure and units are described in v2xapp_gbmap_build.h. Two
 * families of operations read it:
 *
 *  - the index family walks the tree and hands out element handles: nodes of
 *    the map, links of a node, speed limits of a link;
 *  - the "matched" family reads the fields of a node, link or lane handle
 *    (for example the ones v2xapp_GBMapMatchLane found, v2xapp_gbmap_match.h)
 *    as plain values. An optional field comes with a flag (has_...) that
 *    tells whether the map carries it; the value is then left as it was or
 *    set to a stated default. Connections are read through their lane and an
 *    index, movements through their link and an index.
 *
 * Values are returned raw, in the message's units, cut to the output's width.
 * Results: 0 on success, -2 for a null handle or output; for indexed reads
 * -3 and -4 as listed (no list, index out of range). Nothing is read past the
 * end of a list. Trace lines at level 7 under the log tag "GMAP".
 *
 * Threads: the queries only read; several threads may query one message at
 * once as long as none changes it.
 */
#ifndef V2XAPP_GBMAP_QUERY_H
#define V2XAPP_GBMAP_QUERY_H

#include <stdbool.h>
#include <stdint.h>

#include "v2xapp_commoncodec.h"
#include "v2xapp_gbmap.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Longest name a node or link carries, in bytes. */
#define V2XAPP_GBMAP_NAME_MAX 63

/* Index family. */

/** Number of nodes. -2 also for a frame that is not a map. */
int32_t v2xapp_GBMapGetNodesCnt(V2XAPP_GBMHANDLE mapHandle, uint32_t* pCnt);
/** Node `index` (0-based). -3 when index is not below the count
 * (*p_nodeHandle is then set to NULL). */
int32_t v2xapp_GBMapGetNodeByIndex(V2XAPP_GBMHANDLE mapHandle, uint32_t index, V2XAPP_GBMHANDLE* p_nodeHandle);
/** Reference position of a node (1e-7 degree, elevation 0.1 m); *piselev tells
 * whether it has an elevation (*pelev is left as it was without one). */
int32_t v2xapp_GBMapNodeGetRefPos(V2XAPP_GBMHANDLE mapNodeHandle, int64_t* plat, int64_t* plong, bool* piselev,
                                  int64_t* pelev);
/** Number of links entering the node (0 without any). */
int32_t v2xapp_GBMapNodeGetLinkCnt(V2XAPP_GBMHANDLE mapNodeHandle, uint32_t* pCnt);
/** Link `index` of a node. -2 also when the node has no links; -3 when index is
 * not below the count (*p_linkHandle is then set to NULL). */
int32_t v2xapp_GBMapNodeGetLinkByIndex(V2XAPP_GBMHANDLE mapNodeHandle, uint32_t index, V2XAPP_GBMHANDLE* p_linkHandle);
/** Number of a link's speed limits (0 without any). */
int32_t v2xapp_GBMapLinkSpeedLimitsCnt(V2XAPP_GBMHANDLE mapLinkHandle, uint16_t* pCnt);
/** Speed limit `index` of a link, as a handle. -3 when the link has none; -4
 * when index is not below the count (*p_speedLimitHandle set to NULL). */
int32_t v2xapp_GBMapLinkGetSpeedLimitByIndex(V2XAPP_GBMHANDLE mapLinkHandle, uint32_t index,
                                             V2XAPP_GBMHANDLE* p_speedLimitHandle);

/* Matched family: nodes. */

/** Number of nodes of a map, cut to 16 bits. -2 also for a frame that is not a map. */
int32_t v2xapp_GBMapGetNodeCount(V2XAPP_GBMHANDLE mapHandle, int16_t* nodeCnt);
/** Copies the node's name (at most V2XAPP_GBMAP_NAME_MAX bytes, no terminating
 * zero added: pass a zero-filled buffer of V2XAPP_GBMAP_NAME_MAX + 1 bytes). */
int32_t v2xapp_GBMapGetNodeName(V2XAPP_GBMHANDLE nodeHandle, bool* has_name, char* nodeName);
/** Node id and region; without a region *has_regin is false and *regin 65535. */
int32_t v2xapp_GBMapGetNodeReginId(V2XAPP_GBMHANDLE nodeHandle, bool* has_regin, uint16_t* regin, uint16_t* id);
/** Reference position (longitude first), cut to 32 bits. */
int32_t v2xapp_GBMapGetNodePos3d(V2XAPP_GBMHANDLE nodeHandle, int32_t* lon, int32_t* lat, bool* has_ele, int32_t* ele);
/** Number of links entering the node (0 without any). */
int32_t v2xapp_GBMapGetLinkCountInMatchedNode(V2XAPP_GBMHANDLE nodeHandle, int16_t* linkCnt);

/* Matched family: links. */

/** As v2xapp_GBMapGetNodeName. */
int32_t v2xapp_GBMapGetLinkName(V2XAPP_GBMHANDLE linkHandle, bool* has_name, char* Name);
/** Id and region of the link's upstream node; without a region *has_regin is
 * false and *regin is left as it was. */
int32_t v2xapp_GBMapGetLinkReginId(V2XAPP_GBMHANDLE linkHandle, bool* has_regin, uint16_t* regin, uint16_t* id);
/** Number of the link's speed limits (0 without any). */
int32_t v2xapp_GBMapGetLinkSpeedLimitsCount(V2XAPP_GBMHANDLE linkHandle, uint8_t* speedLimitCnt);
/** Type and speed (0.02 m/s) of speed limit `index`. -2 also when the link has
 * none; -3 when index is not below the count. */
int32_t v2xapp_GBMapGetLinkSpeedLimits(V2XAPP_GBMHANDLE linkHandle, int32_t index, int16_t* limitType,
                                       int16_t* limitValue);
/** Link width in cm (always present: *has_linkWidth is true). */
int32_t v2xapp_GBMapGetLinkWidth(V2XAPP_GBMHANDLE linkHandle, bool* has_linkWidth, int16_t* linkWidth);
/** Number of the link's lanes. */
int32_t v2xapp_GBMapGetLaneCountInMatchedLink(V2XAPP_GBMHANDLE linkHandle, int32_t* laneCnt);
/** Number of the link's centre-line points (0 without any). */
int32_t v2xapp_GBMapGetLinkPointsNumber(V2XAPP_GBMHANDLE linkHandle, int32_t* pointsNumer);
/** Centre-line point `index` as stored: an offset from the node's reference
 * position, or absolute (m_codeType 7); see v2xcodec_GBpraseMsgPos to resolve
 * it. -3 when the link has no points; -4 when index is not below the count. */
int32_t v2xapp_GBMapLinkGetPointByIndex(V2XAPP_GBMHANDLE linkHandle, uint32_t index,
                                        v2xapp_gbMsg_PosStr_t* p_linkpoint);
/** Number of the link's movements (0 without any). */
int32_t v2xapp_GBMapGetLinkMovementsNumber(V2XAPP_GBMHANDLE linkHandle, int8_t* movementsNumer);
/** Signal phase of movement `index`. -3 when the link has no movements or
 * index is above the count or negative; -4 when index equals the count. */
int32_t v2xapp_GBMapLinkGetMovementsPhaseIdByIndex(V2XAPP_GBMHANDLE linkHandle, int32_t index, bool* has_phaseid,
                                                   uint8_t* phaseId);
/** Node a movement leads to: id, and region when present (else left as it
 * was). Codes as the phase query. */
int32_t v2xapp_GBMapLinkGetMovementsRegionIdByIndex(V2XAPP_GBMHANDLE linkHandle, int32_t index, bool* has_region,
                                                    uint16_t* region, uint16_t* id);
/** Lane `index` of a link. -3 when index is not below the count
 * (*p_laneHandle set to NULL). */
int32_t v2xapp_GBMapLinkGetLaneByIndex(V2XAPP_GBMHANDLE linkHandle, uint32_t index, V2XAPP_GBMHANDLE* p_laneHandle);

/* Matched family: lanes. */

/** The lane's id (0..255). */
int32_t v2xapp_GBMapGetLaneId(V2XAPP_GBMHANDLE laneHandle, int16_t* laneID);
/** Lane width in cm, when present. */
int32_t v2xapp_GBMapGetLaneWidth(V2XAPP_GBMHANDLE laneHandle, bool* has_laneWidth, int16_t* laneWidth);
/** Number of the lane's speed limits (0 without any). */
int32_t v2xapp_GBMapGetLaneSpeedLimitsCount(V2XAPP_GBMHANDLE laneHandle, uint8_t* speedLimitCnt);
/** Type and speed of the lane's speed limit `index`. -3 when the lane has none;
 * -4 when index is not below the count. */
int32_t v2xapp_GBMapGetLaneSpeedLimits(V2XAPP_GBMHANDLE laneHandle, int32_t index, int8_t* limitType,
                                       int16_t* limitValue);
/** Lane type (V2XAPP_GBMAP_LANE_* of v2xapp_gbmap_build.h, 0 when unknown) and
 * its attribute bits read as a number (first octet most significant). When
 * the lane carries sharing bits *has_laneShare is true, but *laneShareBit10
 * is always 0 (this library has always reported it so). */
int32_t v2xapp_GBMapGetLaneAttrs(V2XAPP_GBMHANDLE laneHandle, bool* has_attr, uint16_t* type, uint16_t* typeValueBit,
                                 bool* has_laneShare, uint16_t* laneShareBit10);
/** Number of the lane's points (0 without any). */
int32_t v2xapp_GBMapGetLanePointsNumber(V2XAPP_GBMHANDLE laneHandle, int32_t* pointsNumer);
/** As v2xapp_GBMapLinkGetPointByIndex, from the lane's points. */
int32_t v2xapp_GBMapLaneGetPointByIndex(V2XAPP_GBMHANDLE laneHandle, uint32_t index,
                                        v2xapp_gbMsg_PosStr_t* p_lanepoint);
/** The lane's own allowed maneuvers read as a number (first octet most
 * significant). -3 when the lane has none. */
int32_t v2xapp_GBMapGetConnectToAllowedManeuvers(V2XAPP_GBMHANDLE laneHandle, uint16_t* allowedManeuvers);

/* Matched family: connections of a lane, by index. -3 when the lane has no
 * connections; -4 when index is not below their count. */

/** Number of the lane's connections (0 without any). */
int32_t v2xapp_GBMapGetConnectToCount(V2XAPP_GBMHANDLE laneHandle, uint8_t* count);
/** Node the connection leads to; without a region *has_regin is false and
 * *regin 65535. */
int32_t v2xapp_GBMapGetConnectToReginId(V2XAPP_GBMHANDLE laneHandle, int32_t index, bool* has_regin, uint16_t* regin,
                                        uint16_t* id);
/** Signal phase of connection `index` when it has one (*has_phaseId). */
int32_t v2xapp_GBMapGetConnectToPhaseId(V2XAPP_GBMHANDLE mapLaneHandle, int32_t index, bool* has_phaseId,
                                        int16_t* phaseId);
/** Lane reached and its maneuver bits read as a number, each when present. */
int32_t v2xapp_GBMapGetConnectToLaneInfo(V2XAPP_GBMHANDLE laneHandle, int32_t index, bool* has_laneInfo,
                                         int16_t* laneId, bool* has_maneuver, uint16_t* maneuver);

/** A bit string's octets read as a number, the first octet most significant
 * (octets beyond the fourth from the end wrap round). Always 0. */
int32_t v2xapp_GBMapbitString2Long(BITSTRING_HANDLE p_bitstring, int64_t* longData);

#ifdef __cplusplus
}
#endif

#endif
