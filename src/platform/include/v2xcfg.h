/*
 * Configuration trees over libconfig files.
 *
 * Keys are dotted paths through groups: "rsuMapConvertInfo.eTag" is the
 * setting eTag in the group rsuMapConvertInfo.
 */
#ifndef V2XCFG_H
#define V2XCFG_H

#include "v2x_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum e_v2xcfg_status {
  V2XCFG_GET_ERROR = -1,
  V2XCFG_SUCCESS = 0,
  V2XCFG_FAIL = 1,
  V2XCFG_NODE_EXIST = 2,
  V2XCFG_NODE_NOTEXIST = 3,
  V2XCFG_NODE_TYPE_ERROR = 4,
} e_v2xcfg_status;

typedef enum v2xcfg_member_type {
  V2XCFG_MEM_TYPE_ERROR = 0,
  V2XCFG_MEM_TYPE_INT32 = 1,
  V2XCFG_MEM_TYPE_INT64 = 2,
  V2XCFG_MEM_TYPE_BOOL = 3,
  V2XCFG_MEM_TYPE_DOUBLE = 4,
  V2XCFG_MEM_TYPE_STRING = 5,
  V2XCFG_MEM_TYPE_NODE = 6,
} v2xcfg_member_type;

typedef void* V2XCFGNODE_HANDLE;

/* Parses the file into a tree. V2XCFG_SUCCESS, or V2XCFG_FAIL when the file is
 * missing or does not parse (the reason is logged under "VCFG"). */
int32 v2xcfg_InitContext(V2XCFGNODE_HANDLE* handle, const char* filePath);

/*
 * Reads the value at key into value. For STRING, *valueLength holds the most
 * characters to copy (the buffer needs one more for the terminator) and
 * receives the number copied; a longer value is cut. For INT32 (int32),
 * INT64 (int64), BOOL (bool) and DOUBLE (double) value points to that type.
 * V2XCFG_SUCCESS; V2XCFG_NODE_NOTEXIST for a missing key; V2XCFG_NODE_TYPE_ERROR
 * for a setting of another type; V2XCFG_FAIL on a bad argument.
 */
int32 v2xcfg_GetNodeValue(V2XCFGNODE_HANDLE handle, v2xcfg_member_type type, const char* key, void* value,
                          uint16* valueLength);

/*
 * Sets the value at key (value as for v2xcfg_GetNodeValue; a STRING is a
 * zero-terminated text). A missing setting is created, with missing groups on
 * its path. V2XCFG_SUCCESS; V2XCFG_NODE_TYPE_ERROR when the setting exists with
 * another type; V2XCFG_FAIL on a bad argument.
 */
int32 v2xcfg_SetNodeValue(V2XCFGNODE_HANDLE handle, v2xcfg_member_type type, const char* key, const void* value);

/*
 * Writes the tree back to the file it was read from, atomically (temporary
 * file, flush, rename). flags: 0 = write now; any other value is reserved.
 * V2XCFG_SUCCESS or V2XCFG_FAIL (the old file is then untouched).
 */
int32 v2xcfg_UpdateFile(V2XCFGNODE_HANDLE handle, int32 flags);

/* Releases the tree; a null handle is accepted. */
int32 v2xcfg_ExitContext(V2XCFGNODE_HANDLE handle);

#ifdef __cplusplus
}
#endif

#endif
