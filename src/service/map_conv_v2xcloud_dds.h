/* The cloud link over DDS: topics, reception with reassembly, sending. */
#ifndef MAP_CONV_V2XCLOUD_DDS_H
#define MAP_CONV_V2XCLOUD_DDS_H

#include "map_conv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define V2XCLOUD_DDS_DOMAIN_ID 200

int32 v2xcloud_ddsInit(v2xcloud_comm_ddsinfo_t* ddsinfo, char* rsu_esn);
int32 v2xcloud_ddsExit(v2xcloud_comm_ddsinfo_t* ddsinfo);
int32 v2xcloud_ddsSend(void* dds_handle, const char* topic, void* data, unsigned int data_len);
void v2xcloud_ddsRecvCommSoft(void* data, unsigned int len);
void v2xcloud_ddsRecvMapDown(void* data, unsigned int len);
void v2xcloud_ddsRecvMapAck(void* data, unsigned int len);
int32 v2xcloud_GetMapDownData(v2xcloud_map_data_t** map_down_data);

#ifdef __cplusplus
}
#endif

#endif
