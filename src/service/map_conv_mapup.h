/* Map upload: a MessageFrame rendered as the cloud's JSON document. */
#ifndef MAP_CONV_MAPUP_H
#define MAP_CONV_MAPUP_H

#include "map_conv_types.h"
#include "v2xapp_gbmap.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Uploads the map behind *p_handle; always releases it and clears the handle. */
int32 v2xmapconv_MapDataUp(V2XAPP_GBMHANDLE* p_handle, int32_t index);

#ifdef __cplusplus
}
#endif

#endif
