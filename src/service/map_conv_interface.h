/* Service status and the two periodic tasks. */
#ifndef MAP_CONV_INTERFACE_H
#define MAP_CONV_INTERFACE_H

#include "map_conv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

void v2xmapconv_SetMapConvStatus(e_run_status_value run_st);
void v2xmapconv_GetMapConvStatus(service_status_t* st);
void v2xmapconv_SetCloudStatus(e_run_status_value run_st);
void v2xmapconv_GetCloudStatus(service_status_t* st);
int32 v2xmapconv_TaskInit(void);
/* Stops both tasks and waits for them (a routine in progress finishes first). */
void v2xmapconv_TaskExit(void);
void SendMapConvStatusToCommSoft(void* arg);

#ifdef __cplusplus
}
#endif

#endif
