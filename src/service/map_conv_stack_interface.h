/* Local IPC with the V2X protocol process and the log tool. */
#ifndef MAP_CONV_STACK_INTERFACE_H
#define MAP_CONV_STACK_INTERFACE_H

#include "map_conv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

int32 v2xmapconv_StackInterfaceInit(void);
int32 v2xmapconv_UpdataMapDataNotify(v2xipc_mapRefresh_t* pmap_refresh_data);
void SendGetMapDataToAPP(void* arg);

#ifdef __cplusplus
}
#endif

#endif
