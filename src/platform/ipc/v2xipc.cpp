// UDP IPC (placeholder: the port configuration is not read yet).
#include "v2xipc.h"

extern "C" int32 v2xipc_CfgInit(const char* workDir) { return workDir == nullptr ? -2 : 0; }
