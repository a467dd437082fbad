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

int32 v2xmapconv_MapDownJsonToStruct(char* map_json, v2xcloud_map_data_t* map_data);
int32 v2xmapconv_WriteMapDataToCfg(v2xcloud_map_data_t* map_data, v2xipc_mapRefresh_t* refresh);
int32 v2xmapconv_SetErrorCode(int32 error_code);
int32 v2xmapconv_MapDownAckToCloud(v2xcloud_map_data_t* map_data);
int32 v2xmapconv_GetMapDownLastTimestamp(uint64* timeStamp);

#ifdef __cplusplus
}
#endif

#endif
