/* Service entry: options, start-up sequence, main loop. */
#ifndef MAP_CONV_DEAMON_H
#define MAP_CONV_DEAMON_H

#include "map_conv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define MAP_CONV_VERSION "map_conv_v230522.001"

int32 v2xmapconv_init(int32 argc, char** argv);
int32 v2xmapconv_exec(void);
v2xcloud_comm_ddsinfo_t* v2xmapconv_GetddsInfo(void);

#ifdef __cplusplus
}
#endif

#endif
