/* Local UDP IPC between RSU processes: port configuration and sockets. */
#ifndef V2XIPC_H
#define V2XIPC_H

#include "v2x_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Loads the IPC port configuration found under the working directory. */
int32 v2xipc_CfgInit(const char* workDir);

#ifdef __cplusplus
}
#endif

#endif
