/* The cloud link over DDS: topics, reception with reassembly, sending. */
#ifndef MAP_CONV_V2XCLOUD_DDS_H
#define MAP_CONV_V2XCLOUD_DDS_H

#include "map_conv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define V2XCLOUD_DDS_DOMAIN_ID 200

int32 v2xcloud_ddsInit(v2xcloud_comm_ddsinfo_t* ddsinfo, char* rsu_esn);
/* Leaves the link: callbacks end (the one in progress finishes), sends blocked
 * on a reader that does not answer give up, later sends return -2, the DDS
 * object and the topic names are released. Bounded: well under a second. */
int32 v2xcloud_ddsExit(v2xcloud_comm_ddsinfo_t* ddsinfo);
int32 v2xcloud_ddsSend(void* dds_handle, const char* topic, void* data, unsigned int data_len);
void v2xcloud_ddsRecvCommSoft(void* data, unsigned int len);
void v2xcloud_ddsRecvMapDown(void* data, unsigned int len);
void v2xcloud_ddsRecvMapAck(void* data, unsigned int len);
/* The last map received (its frame pointer is null). Rewritten by the map-down
 * callback: read it on that callback's thread only. */
int32 v2xcloud_GetMapDownData(v2xcloud_map_data_t** map_down_data);
/* Slice and eTag of the last map received (slice 0 and an empty eTag before
 * the first), copied consistently; from any thread. 0, or -2 for null. */
int32 v2xcloud_GetLastMapRecord(map_to_rsucloud_t* record);

#ifdef __cplusplus
}
#endif

#endif
