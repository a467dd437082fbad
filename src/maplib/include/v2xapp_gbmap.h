/** \file v2xapp_gbmap.h \brief MAP messages: life cycle, counter and time stamp, UPER and XER. */
/*
 * MAP message library over the CSAE MessageFrame / MapData structure, plain C
 * interface for RSU programs. This header: creating and releasing a message
 * and its transfer syntaxes. Building one: v2xapp_gbmap_build.h; reading one:
 * v2xapp_gbmap_query.h; lane matching: v2xapp_gbmap_match.h.
 */
#ifndef V2XAPP_GBMAP_H
#define V2XAPP_GBMAP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Untyped handle; for the operations below a pointer to a MessageFrame whose
 * choice is the map message. */
typedef void* V2XAPP_GBMHANDLE;

int32_t v2xapp_GBMapStrInit(V2XAPP_GBMHANDLE* p_handle);
int32_t v2xapp_GBMapStrDel(V2XAPP_GBMHANDLE* p_handle);
int32_t v2xapp_GBMapSetMsgCnt(V2XAPP_GBMHANDLE mapHandle, uint32_t msgCnt);
int32_t v2xapp_GBMapGetMsgCnt(V2XAPP_GBMHANDLE mapHandle, uint32_t* pmsgCnt);
int32_t v2xapp_GBMapSetTimStamp(V2XAPP_GBMHANDLE mapHandle, uint32_t timeStamp);
int32_t v2xapp_GBMapGetTimStamp(V2XAPP_GBMHANDLE mapHandle, uint32_t* ptimeStamp);
/* *p_data_len: capacity in, encoded length out. When the encoding does not
 * fit, 0 is returned with the full length: compare it with the capacity.
 * Decoding needs the whole buffer to be one MessageFrame whose values lie in
 * the message set's ranges; on failure (-2) the handle may still hold a
 * partial frame, which v2xapp_GBMapStrDel releases. Any frame kind the codec
 * knows is accepted: look at the frame's choice where it matters. */
int32_t v2xapp_GBMapUperEncode(V2XAPP_GBMHANDLE handle, uint8_t* pdata, uint32_t* p_data_len);
int32_t v2xapp_GBMapUperDecode(V2XAPP_GBMHANDLE* p_handle, uint8_t* pdata, uint32_t dataLen);
int32_t v2xapp_GBMapXerEncode(V2XAPP_GBMHANDLE handle, uint8_t* pdata, uint32_t* pdataLen);
int32_t v2xapp_GBMapXerDecode(V2XAPP_GBMHANDLE* p_handle, uint8_t* p_data, uint32_t data_len);
int32_t v2xapp_GBMapPrint(V2XAPP_GBMHANDLE handle);

#ifdef __cplusplus
}
#endif

#endif
