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
/** The process's exit status after v2xmapconv_exec: 0, or under the field
 * profile 1 when start-up failed (configuration or device file unreadable,
 * working directory held by another instance, IPC sockets not opened). A
 * configuration whose profile cannot be known (no readable file) gives 0 as
 * in the reference behaviour, unless its text names another profile. */
int32 v2xmapconv_ExitStatus(void);

#ifdef __cplusplus
}
#endif

#endif
