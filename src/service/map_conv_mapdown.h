/* Map download: the cloud's JSON map document into MapData, error codes,
 * acknowledgement and storage of each slice. */
#ifndef MAP_CONV_MAPDOWN_H
#define MAP_CONV_MAPDOWN_H

#include "map_conv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* -18: the document's eTag equals the stored one. */
#define MAP_CONV_ETAG_UNCHANGED (-18)

/* Largest UPER encoding of one slice; a slice that does not fit is not stored. */
#define MAP_CONV_UPER_BUF_SIZE 4096

/* The last problem found in a map-down document; reported in the acknowledgement. */
typedef enum ErrorCode_MapDown {
  ERROR_CODE_NONE = 0,
  ERROR_CODE_ETAG = 1,
  ERROR_CODE_NODE_ID = 2,
  ERROR_CODE_NODE_REFPOS = 3,
  ERROR_CODE_NODE_REFPOS_LON = 4,
  ERROR_CODE_NODE_REFPOS_LAT = 5,
  ERROR_CODE_NODE_REFPOS_ELE = 6,
  ERROR_CODE_LINK_UPSTREAMNODEID = 7,
  ERROR_CODE_LINK_LINKWIDTH = 8,
  ERROR_CODE_LINK_LANES = 9,
  ERROR_CODE_LINK_SPEEDLIMIT = 10,
  ERROR_CODE_LINK_MOVEMENTS_PHASEID = 11,
  ERROR_CODE_LINK_LANES_LANEID = 12,
  ERROR_CODE_LINK_LANES_LANEWIDTH = 13,
  ERROR_CODE_LINK_LANES_CONNECTSTO_PHASEID = 14,
  ERROR_CODE_LINK_LANES_POINTS_LON = 15,
  ERROR_CODE_LINK_LANES_POINTS_LAT = 16,
  ERROR_CODE_LINK_LANES_POINTS_ELE = 17,
  ERROR_CODE_SET_MAP_CFG = 18,
  ERROR_CODE_MAPDOWN_NUM = 19
} ErrorCode_MapDown;

/* Reads one map-down document into map_data (whose map is a zeroed frame with
 * the map choice). 0: stored next; -18: eTag unchanged; other: rejected. */
int32 v2xmapconv_MapDownJsonToStruct(char* map_json, v2xcloud_map_data_t* map_data);
/* Encodes and stores one converted slice; fills refresh (may be null) with the
 * file number and the MD5 digest. 0 also when there was nothing to store. */
int32 v2xmapconv_WriteMapDataToCfg(v2xcloud_map_data_t* map_data, v2xipc_mapRefresh_t* refresh);
/* Records the current download error code (0 to 18; others are refused with -2). */
int32 v2xmapconv_SetErrorCode(int32 error_code);
int32 v2xmapconv_GetErrorCode(void);
/* Description of a code; an unknown code gives "Unknown error". */
const char* v2xmapconv_GetErrorDesc(int32 error_code);
/* Sends the acknowledgement of the document just handled. -2 for a null
 * argument, otherwise -1 (the send's own result is not reported). */
int32 v2xmapconv_MapDownAckToCloud(v2xcloud_map_data_t* map_data);
/* The acknowledgement text for map_data and the current code, unformatted JSON,
 * into text (size bytes). Its length, or -2 (bad argument) / -3 (no room). */
int32 v2xmapconv_MapDownAckBuild(const v2xcloud_map_data_t* map_data, char* text, uint32 size);
int32 v2xmapconv_GetMapDownLastTimestamp(uint64* timeStamp);
/* Empties a directory (recursively); the directory itself stays. */
int32 delete_directory(const char* path);
#ifdef V2X_TEST_SEAMS
/* Tests only (built into mapconv_service_testing): the module state as at start-up. */
void v2xmapconv_MapDownResetForTest(void);
#endif

/* The readers, in calling order. Each returns 0 on success; the targets are
 * records of the message-set codec. */
struct cJSON;
struct MapData;
struct Node;
struct NodeReferenceID;
struct Link;
struct Lane;
struct LaneAttributes;
struct Movement;
struct Connection;
struct ConnectingLane;
struct SpeedLimitList;
struct PointList;
struct BIT_STRING_s;
struct c_pos3D;

int32 GetMapSliceFromJson(struct cJSON* json, v2xcloud_map_data_t* map_data);
int32 GetMapDwonAckFromJson(struct cJSON* json, v2xcloud_map_data_t* map_data);
int32 GetMapDwonSeqNumFromJson(struct cJSON* json, v2xcloud_map_data_t* map_data);
int32 GetMapEtagFromJson(struct cJSON* json, v2xcloud_map_data_t* map_data);
int32 GetMapFromJson(struct cJSON* json, struct MapData* map);
int32 GetNodesFromJson(struct cJSON* json, struct MapData* map);
int32 GetNameFromNodesJson(struct cJSON* json, struct Node* node);
int32 GetIdFromNodesJson(struct cJSON* json, struct Node* node);
int32 GetNodeReferenceIDFromJson(struct cJSON* json, struct NodeReferenceID* id);
int32 GetRefPosFromNodesJson(struct cJSON* json, struct Node* node, struct c_pos3D* refPos);
int32 GetInLinksFromNodesJson(struct cJSON* json, struct Node* node, const struct c_pos3D* refPos);
int32 GetNameFromLinkJson(struct cJSON* json, struct Link* link);
int32 GetUpstreamNodeIdFromLinkJson(struct cJSON* json, struct Link* link);
int32 GetSpeedLimitsFromJson(struct cJSON* json, struct SpeedLimitList** speedLimits);
int32 GetSpeedLimitsTypeFromStr(const char* typeStr, long* type);
int32 GetLinkWidthFromLinkJson(struct cJSON* json, struct Link* link);
int32 GetMovementsFromLinkJson(struct cJSON* json, struct Link* link);
int32 GetRemoteIntersectionFromMovementJson(struct cJSON* json, struct Movement* movement);
int32 GetPhaseIdFromMovementJson(struct cJSON* json, struct Movement* movement);
int32 GetTimeStampFromJson(struct cJSON* json, struct MapData* map);

int32 GetLanesFromLinkJson(struct cJSON* json, struct Link* link);
int32 GetLaneIdFromLaneJson(struct cJSON* json, struct Lane* lan);
int32 GetLaneWidthFromLaneJson(struct cJSON* json, struct Lane* lan);
int32 GetLaneAttributesFromLaneJson(struct cJSON* json, struct Lane* lan);
int32 GetShareWithFromLaneAttributesJson(struct cJSON* json, struct LaneAttributes* laneAttributes);
int32 GetLaneTypeFromLaneAttributesJson(struct cJSON* json, struct LaneAttributes* laneAttributes);
int32 GetLaneTypeFromLaneAttributesJson_old(struct cJSON* json, struct LaneAttributes* laneAttributes);
int32 GetManeuversFromJson(struct cJSON* json, struct BIT_STRING_s** maneuver);
int32 GetConnectsToFromLaneJson(struct cJSON* json, struct Lane* lan);
int32 GetRemoteIntersectionFromConnectionJson(struct cJSON* json, struct Connection* connt);
int32 GetConnectingLaneFromConnectionJson(struct cJSON* json, struct Connection* connt);
int32 GetLaneIdFromConnectingLaneJson(struct cJSON* json, struct ConnectingLane* connt_lane);
int32 GetPhaseIdFromConnectionJson(struct cJSON* json, struct Connection* connt);
int32 Bitstring2Hex(int64* num, const char* bitstr);

int32 GetPointsFromJson(struct cJSON* json, struct PointList** points);
int32 GetPointsFromLinkJsonRelative(struct cJSON* json, struct PointList** points, struct c_pos3D* refPos);

#ifdef __cplusplus
}
#endif

#endif
