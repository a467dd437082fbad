/*
 * Local UDP IPC between RSU processes: port configuration and sockets.
 *
 * Port configuration: "conf/v2x_ipc_port.cfg" under a working directory, in
 * libconfig syntax:
 *
 *   ports :     { m_map_conv_sndport = 20110; m_mapconv_logtool_rcvport = 20111; m_app_rs_rcvport = 20100; };
 *   endpoints : { RSU_RCV = "127.0.0.1"; MAP_C_LOGTOOL = "127.0.0.1"; };
 *   bind :      { MAP_C_LOGTOOL = "127.0.0.1"; };
 *
 * "endpoints" maps a peer's name to the IPv4 address that requests to it go
 * to; "bind" overrides the local address a socket of that name binds to
 * (without it a socket binds to the address its owner asks for, and to
 * 127.0.0.1 when none is given). A port of 0 lets the kernel choose one (the
 * socket's log line names it). Keys left out keep their defaults; a missing or
 * unreadable file gives the defaults for everything.
 *
 * Sockets: a handle holds a client socket (requests out, responses in), a
 * server socket (datagrams in, served by a receive thread), or both. Packets
 * are at most V2XIPC_MSG_MAX bytes.
 */
#ifndef V2XIPC_H
#define V2XIPC_H

#include "v2x_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define V2XIPC_CFG_FILE "conf/v2x_ipc_port.cfg"

/* Largest packet, head included: the most a 16-bit signed length can hold. */
#define V2XIPC_MSG_MAX 32767

#define V2XIPC_NAME_LEN 32
#define V2XIPC_ADDR_LEN 32
#define V2XIPC_MAX_ENDPOINTS 16

#define V2XIPC_DEFAULT_APP_RS_RCVPORT 20100
#define V2XIPC_DEFAULT_MAP_CONV_SNDPORT 20110
#define V2XIPC_DEFAULT_MAPCONV_LOGTOOL_RCVPORT 20111
#define V2XIPC_DEFAULT_ADDR "127.0.0.1"

/* Results of the socket operations. */
#define V2XIPC_OK 0
#define V2XIPC_ERR_SYS (-1)     /* socket call failed */
#define V2XIPC_ERR_PARAM (-2)   /* null or invalid argument, unknown endpoint */
#define V2XIPC_ERR_TIMEOUT (-3) /* no response within the time-out */
#define V2XIPC_ERR_REFUSED (-4) /* nobody listens at the destination */
#define V2XIPC_ERR_NODEST (-5)  /* no destination set on the handle */
#define V2XIPC_ERR_TOOBIG (-6)  /* response larger than the receive buffer */
#define V2XIPC_ERR_CLOSED (-7)  /* the handle was shut down */

/* One name with an IPv4 address: a peer to send to, or a bind override. */
typedef struct v2xipc_endpoint {
  char m_name[V2XIPC_NAME_LEN];
  char m_addr[V2XIPC_ADDR_LEN];
} v2xipc_endpoint_t;

typedef struct v2x_ipc_config {
  uint16 m_map_conv_sndport;        /* local port of the map service's client socket */
  uint16 m_mapconv_logtool_rcvport; /* map service's log tool socket */
  uint16 m_app_rs_rcvport;          /* V2X protocol process ("RSU_RCV") */
  uint16 m_endpointNum;
  v2xipc_endpoint_t m_endpoints[V2XIPC_MAX_ENDPOINTS];
  uint16 m_bindNum;
  v2xipc_endpoint_t m_binds[V2XIPC_MAX_ENDPOINTS];
  bool m_fromFile; /* false: built-in defaults */
  char m_cfgPath[256];
} v2x_ipc_config_t;

typedef void* V2X_UDPSOCKHANDLE;

/* A packet in memory: its length (head included) and its bytes. */
typedef struct v2xpub_UdpSocketDataHead {
  int16 m_curMsgLen;
  uint8* mp_data;
} v2xpub_UdpSocketDataHead_t;

/*
 * Receive routine of a server socket, run on the socket's receive thread once
 * per datagram. p_data is a v2xpub_UdpSocketDataHead_t whose buffer holds
 * V2XIPC_MSG_MAX bytes, so a reply may be built in place; addr/addrLen name
 * the sender (for v2xipc_SocketRespSend). Both stay valid only during the call.
 */
typedef void (*v2xipc_MsgFunc_t)(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen);

typedef struct v2xpub_SocketInitPara {
  char m_sockName[32];
  char m_localIP[32]; /* bind address ("" : 127.0.0.1), unless the configuration's "bind" names this socket */
  uint16 m_svrPort;
  uint16 m_cliPort; /* 0: any free port */
  int8 m_svrEnable;
  int8 m_cliEnable;
  v2xipc_MsgFunc_t f_msgFunc; /* required with m_svrEnable */
} v2xpub_SocketInitPara_t;

/* Loads workDir/conf/v2x_ipc_port.cfg. 0 when read from the file; -1 when the
 * defaults are used instead (the reason is logged); -2 for a null argument. */
int32 v2xipc_CfgInit(const char* workDir);
/* As v2xipc_CfgInit, from a file path. */
int32 v2xipc_CfgInitFile(const char* path);
/* The configuration loaded last (the defaults before any load). 0, or -2. */
int32 v2xipc_GetIpcConfValue(v2x_ipc_config_t** conf);
/* Address of a named endpoint into addr (V2XIPC_ADDR_LEN bytes). 0, or -2 when unknown. */
int32 v2xipc_GetEndpointAddr(const v2x_ipc_config_t* conf, const char* name, char* addr);

/*
 * Opens the sockets the parameters enable and, for a server socket, starts its
 * receive thread. conf (null: the loaded configuration) supplies bind
 * overrides. 0 and *handle set; V2XIPC_ERR_PARAM or V2XIPC_ERR_SYS (logged).
 */
int32 v2xipc_SocketInit(V2X_UDPSOCKHANDLE* handle, v2x_ipc_config_t* conf, v2xpub_SocketInitPara_t* para);
/* Sets where v2xipc_SocketReqSend sends: the address of the endpoint name (or
 * name itself when it is an IPv4 address) and port. 0, or V2XIPC_ERR_PARAM. */
int32 v2xipc_SocketSetSendAddr(V2X_UDPSOCKHANDLE handle, v2x_ipc_config_t* conf, const char* name, uint16 port);
/*
 * Sends one request from the client socket and waits up to timeoutMs for the
 * response from the destination; 0 sends without waiting. recv: mp_data is the
 * caller's buffer and m_curMsgLen its capacity on entry, the response length on
 * return. Datagrams from other senders, and any that were queued before the
 * request went out, are discarded. One exchange runs at a time per handle;
 * another thread waits its turn within its own time-out.
 */
int32 v2xipc_SocketReqSend(V2X_UDPSOCKHANDLE handle, v2x_ipc_config_t* conf, int32 timeoutMs,
                           v2xpub_UdpSocketDataHead_t* send, v2xpub_UdpSocketDataHead_t* recv);
/*
 * Sends one datagram from the client socket to the destination at once and
 * returns: it neither waits for the turn of an exchange in progress nor for an
 * answer, so a notice never waits behind a request to a peer that does not
 * answer. An answer that comes back is discarded with the stale datagrams of
 * the next exchange. send: the packet (m_curMsgLen bytes at mp_data), not kept.
 * 0 when the datagram was handed to the kernel; V2XIPC_ERR_PARAM (bad argument,
 * no client side), V2XIPC_ERR_NODEST (no destination set), V2XIPC_ERR_CLOSED
 * (shut down), V2XIPC_ERR_REFUSED or V2XIPC_ERR_SYS (logged).
 */
int32 v2xipc_SocketSend(V2X_UDPSOCKHANDLE handle, v2xpub_UdpSocketDataHead_t* send);
/* Sends a packet to addr (as given to a receive routine), from the server
 * socket if the handle has one. 0 or an error. */
int32 v2xipc_SocketRespSend(V2X_UDPSOCKHANDLE handle, v2x_ipc_config_t* conf, v2xpub_UdpSocketDataHead_t* data,
                            void* addr, int16_t addrLen);
/* Port the handle's server (server != 0) or client socket is bound to; 0 when
 * it has none. */
uint16 v2xipc_SocketLocalPort(V2X_UDPSOCKHANDLE handle, int8 server);
/*
 * First step of closing, safe while other threads use the handle: an exchange
 * waiting for its answer or its turn ends at once with V2XIPC_ERR_CLOSED, as
 * does every later one, and the receive thread stops after the routine in
 * progress. The handle stays valid until v2xipc_SocketClose. 0, or -2.
 */
int32 v2xipc_SocketShutdown(V2X_UDPSOCKHANDLE handle);
/* Shuts the handle down, waits for its receive thread and closes the sockets;
 * the handle is invalid afterwards, so no other thread may still use it.
 * Never from the handle's own receive routine. 0, or -2 for a null handle. */
int32 v2xipc_SocketClose(V2X_UDPSOCKHANDLE handle);

#ifdef __cplusplus
}
#endif

#endif
