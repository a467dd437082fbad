/*
 * Local IPC with the V2X protocol process ("RSU_RCV") and the log tool: the
 * packet layouts, the map refresh notice, the periodic map data request and
 * the log tool's socket.
 *
 * Every packet is a 17-byte head and a body, packed, in host byte order.
 */
#ifndef MAP_CONV_STACK_INTERFACE_H
#define MAP_CONV_STACK_INTERFACE_H

#include "map_conv_types.h"
#include "v2xipc.h"
#include "v2xpub.h"

#ifdef __cplusplus
extern "C" {
#endif

#define V2XIPC_HEAD_FLAG0 0xA5
#define V2XIPC_HEAD_FLAG1 0x5A
#define V2XIPC_HEAD_INC 4

/* Command types. */
#define V2XIPC_CMD_RSU_REQ 20  /* service to V2X protocol process */
#define V2XIPC_CMD_RSU_RESP 21 /* its response, with maps */
#define V2XIPC_CMD_LOG_REQ 50  /* log tool to service */
#define V2XIPC_CMD_LOG_RESP 51 /* service to log tool */

/* Data types of the RSU body. */
#define V2XIPC_DATA_MAP_REFRESH 7
#define V2XIPC_DATA_GET_MAP 10

/* Log tool commands. */
#define V2XIPC_LOG_READ 1
#define V2XIPC_LOG_SET 2

/* Largest body of a map data response. */
#define V2XIPC_MAX_PACK_LEN 20480
/* Size of the buffers packets are built in. */
#define V2XIPC_BUFF_LEN 51200

typedef struct __attribute__((packed)) v2xipc_dataHead {
  uint8 m_headFlag[2];
  uint8 m_inc;
  uint8 m_direction;
  uint64 m_sendTime64;
  uint16 m_cmdType;
  uint16 m_packLen;
  uint8 m_checkSum;
  uint8 m_pack[];
} v2xipc_dataHead;
V2X_STATIC_ASSERT(sizeof(v2xipc_dataHead) == 17, "v2xipc_dataHead is 17 bytes on the wire");

/* Fills the head of a packet built in buf: flag, inc 4, direction 0, the
 * current time, the command and the body length; no checksum. */
static inline void v2xipc_FillDataHead(uint8* buf, uint16 cmdType, uint32 packLen) {
  v2xipc_dataHead* head = (v2xipc_dataHead*)buf;
  head->m_headFlag[0] = V2XIPC_HEAD_FLAG0;
  head->m_headFlag[1] = V2XIPC_HEAD_FLAG1;
  head->m_inc = V2XIPC_HEAD_INC;
  head->m_direction = 0;
  head->m_sendTime64 = v2xpub_CommGetCurrentTime64();
  head->m_cmdType = cmdType;
  head->m_packLen = (uint16)packLen;
  head->m_checkSum = 0;
}

typedef struct __attribute__((packed)) v2xipc_rsuData {
  int32 m_dataType;
  int32 m_dataNo;
  uint16 m_dataLen;
  uint8 m_checkSum;
  uint8 m_data[];
} v2xipc_rsuData;
V2X_STATIC_ASSERT(sizeof(v2xipc_rsuData) == 11, "v2xipc_rsuData is 11 bytes on the wire");

/* One map of a response: its UPER length, then the bytes. */
typedef struct __attribute__((packed)) v2xipc_pc5Data {
  uint16 m_uper_dataLen;
  uint8 m_uper_data[];
} v2xipc_pc5Data;
V2X_STATIC_ASSERT(sizeof(v2xipc_pc5Data) == 2, "v2xipc_pc5Data has a 2-byte length");

typedef struct __attribute__((packed)) v2xipc_getMapData {
  uint64 m_fileTime;
} v2xipc_getMapData;
V2X_STATIC_ASSERT(sizeof(v2xipc_getMapData) == 8, "v2xipc_getMapData is 8 bytes on the wire");

typedef struct __attribute__((packed)) v2xipc_logData {
  uint8 m_tagName[8];
  int16 m_level;
} v2xipc_logData;
V2X_STATIC_ASSERT(sizeof(v2xipc_logData) == 10, "v2xipc_logData is 10 bytes on the wire");

typedef struct __attribute__((packed)) v2xipc_logCmd {
  uint8 m_logCmd;
  int16 m_result;
  int16 m_dataLen;
  v2xipc_logData m_logData[];
} v2xipc_logCmd;
V2X_STATIC_ASSERT(sizeof(v2xipc_logCmd) == 5, "v2xipc_logCmd is 5 bytes on the wire");

/* Opens the client socket to the V2X protocol process and the log tool's
 * server socket. 0, or -3 when either fails. */
int32 v2xmapconv_StackInterfaceInit(void);
/* Sends a map refresh notice for a stored map file. -2 for null. */
int32 v2xmapconv_UpdataMapDataNotify(v2xipc_mapRefresh_t* pmap_refresh_data);
/* Builds a notice with command type opCode and sends it to "RSU_RCV". */
int32 v2xmapconv_PackMapRefreshAndSendData(int32_t opCode, v2xipc_mapRefresh_t* pmap_refresh_data);
/* The "Get_Map_Data" task: asks "RSU_RCV" for its maps and uploads them. */
void SendGetMapDataToAPP(void* arg);
/* Receive routine of the log tool socket. */
void GetLogCtl(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen);

/* First step of shutdown, while other threads may still use the sockets: an
 * exchange with the V2X protocol process in progress or begun later ends at
 * once with an error, and the log tool socket stops serving. */
void v2xmapconv_StackInterfaceStop(void);
/* Closes both sockets; no other thread may use them any more. */
void v2xmapconv_StackInterfaceExit(void);

/* Module internals, visible for the tests. */
int32 v2xmapconv_GetMapDataResp(v2xpub_UdpSocketDataHead_t* mp_data);
int32 MapRefresh_fill(uint8_t* pData, v2xipc_mapRefresh_t* pmap_refdata, uint32_t* plen);
int32 GetMapData_fill(uint8_t* pData, uint32_t* plen);

#ifdef __cplusplus
}
#endif

#endif
