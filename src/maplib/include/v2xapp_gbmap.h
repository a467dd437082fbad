/**
 * \file v2xapp_gbmap.h
 * \brief MAP messages: life cycle, counter and time stamp, UPER and XER, logging.
 *
 * MAP message library over the CSAE MessageFrame / MapData structure, plain C
 * interface for RSU programs. This header: creating and releasing a message,
 * its transfer syntaxes and where the library's log lines go. Building one:
 * v2xapp_gbmap_build.h; reading one: v2xapp_gbmap_query.h; lane matching:
 * v2xapp_gbmap_match.h; positions and bit strings: v2xapp_commoncodec.h.
 *
 * Every call returns a signed 32-bit status: 0 for success, -2 for a null or
 * unusable argument, other negative values as listed with each call.
 *
 * Threads: a message (and every element of it) must not be used by two
 * threads at once; different messages may be used in parallel. The codec
 * underneath keeps no per-message state but is not re-entrant for the same
 * message.
 */
#ifndef V2XAPP_GBMAP_H
#define V2XAPP_GBMAP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Untyped handle of a map message or of one of its elements (node, link,
 *  lane, movement, connection). For the calls of this header: a map message. */
typedef void* V2XAPP_GBMHANDLE;

/**
 * \brief Creates an empty map message (count 0, no time stamp, no nodes).
 * \param p_handle receives the message; the caller owns it and releases it
 *        with v2xapp_GBMapStrDel.
 * \return 0; -2 when p_handle is NULL or no memory (*p_handle untouched).
 */
int32_t v2xapp_GBMapStrInit(V2XAPP_GBMHANDLE* p_handle);
/**
 * \brief Releases a whole message, every element and string under it, and sets
 *        *p_handle to NULL (a second call then returns -2, never frees twice).
 * \return 0; -2 when p_handle or *p_handle is NULL.
 */
int32_t v2xapp_GBMapStrDel(V2XAPP_GBMHANDLE* p_handle);
/**
 * \brief Sets the message counter (0..127 encodes; no range check here).
 * \return 0; -2 for a NULL handle.
 */
int32_t v2xapp_GBMapSetMsgCnt(V2XAPP_GBMHANDLE mapHandle, uint32_t msgCnt);
/**
 * \brief Reads the message counter.
 * \return 0; -2 for a NULL argument. Its trace lines carry the setter's name.
 */
int32_t v2xapp_GBMapGetMsgCnt(V2XAPP_GBMHANDLE mapHandle, uint32_t* pmsgCnt);
/**
 * \brief Attaches a new time stamp (minute of the year, UTC, 0..527040;
 *        527040 means unknown).
 *
 * A stamp that was set before is NOT freed, only unreferenced: setting it
 * twice leaks the first value. Use v2xapp_GBMapReplaceTimStamp to set it again.
 * \return 0; -2 for a NULL handle; -3 when no memory.
 */
int32_t v2xapp_GBMapSetTimStamp(V2XAPP_GBMHANDLE mapHandle, uint32_t timeStamp);
/**
 * \brief Sets the time stamp (minute of the year), releasing an earlier one.
 * \return 0; -2 for a NULL handle or a frame that is not a map; -3 when no
 *         memory (the earlier stamp is kept then).
 */
int32_t v2xapp_GBMapReplaceTimStamp(V2XAPP_GBMHANDLE mapHandle, uint32_t timeStamp);
/**
 * \brief Reads the time stamp (minute of the year).
 * \return 0; -2 for a NULL argument; -3 when the message has none.
 */
int32_t v2xapp_GBMapGetTimStamp(V2XAPP_GBMHANDLE mapHandle, uint32_t* ptimeStamp);
/**
 * \brief Encodes the message with unaligned PER.
 * \param handle the message.
 * \param pdata where the encoding goes.
 * \param p_data_len capacity of pdata in bytes on entry; encoded length in
 *        bytes on return. When the encoding does not fit, 0 is returned with
 *        the full length: compare it with the capacity you gave.
 * \return 0; -2 for a NULL argument; -3 when the message cannot be encoded (a
 *         value out of the message set's range, an empty choice, a list that
 *         is too long or empty; *p_data_len unchanged).
 */
int32_t v2xapp_GBMapUperEncode(V2XAPP_GBMHANDLE handle, uint8_t* pdata, uint32_t* p_data_len);
/**
 * \brief Decodes dataLen bytes of unaligned PER into *p_handle.
 *
 * With *p_handle NULL a new message is made. With *p_handle holding a
 * message the data are decoded INTO it: its lists grow by the decoded
 * elements (a map of 4 nodes decoded into one of 4 gives 8). Use
 * v2xapp_GBMapUperDecodeFresh to replace the content instead. On failure the
 * handle may hold a partial frame, which v2xapp_GBMapStrDel releases. Any
 * frame kind the codec knows is accepted: look at the frame's choice where it
 * matters.
 * \return 0; -2 when the data are not one complete, valid MessageFrame.
 */
int32_t v2xapp_GBMapUperDecode(V2XAPP_GBMHANDLE* p_handle, uint8_t* pdata, uint32_t dataLen);
/**
 * \brief Decodes unaligned PER into a new message that replaces *p_handle.
 *
 * On success the message *p_handle held before (if any) is released and
 * *p_handle is the decoded one. On failure nothing is kept of the decoding and
 * *p_handle is unchanged.
 * \return 0; -2 for a NULL p_handle or pdata, or data that are not one
 *         complete, valid MessageFrame.
 */
int32_t v2xapp_GBMapUperDecodeFresh(V2XAPP_GBMHANDLE* p_handle, const uint8_t* pdata, uint32_t dataLen);
/**
 * \brief As v2xapp_GBMapUperEncode, with the basic XML encoding rules; logs
 *        nothing.
 * \return as v2xapp_GBMapUperEncode.
 */
int32_t v2xapp_GBMapXerEncode(V2XAPP_GBMHANDLE handle, uint8_t* pdata, uint32_t* pdataLen);
/**
 * \brief As v2xapp_GBMapUperDecode, with the basic XML encoding rules (the
 *        decoder's stack use is bounded); decodes into a held message as well
 *        (v2xapp_GBMapXerDecodeFresh replaces it).
 * \return as v2xapp_GBMapUperDecode.
 */
int32_t v2xapp_GBMapXerDecode(V2XAPP_GBMHANDLE* p_handle, uint8_t* p_data, uint32_t data_len);
/**
 * \brief As v2xapp_GBMapUperDecodeFresh, with the basic XML encoding rules:
 *        the decoded message replaces *p_handle only when decoding succeeds.
 * \return 0; -2 for a NULL p_handle or p_data, or data that are not one
 *         complete, valid MessageFrame.
 */
int32_t v2xapp_GBMapXerDecodeFresh(V2XAPP_GBMHANDLE* p_handle, const uint8_t* p_data, uint32_t data_len);
/**
 * \brief Prints the message in the codec's text form to standard error.
 * \return 0, also for a NULL handle (which prints nothing).
 */
int32_t v2xapp_GBMapPrint(V2XAPP_GBMHANDLE handle);

/**
 * \brief Receives the library's log lines instead of standard error.
 * \param ctx the pointer given to v2xapp_GBMapSetLogSink.
 * \param level 1..7: 2 error, 3 warning, 4 notice, 5/6 detail, 7 trace.
 * \param line "file:function:line:message", no newline; valid during the call
 *        only.
 *
 * Called from whatever thread uses the library, possibly from several at once.
 */
typedef void (*v2xapp_GBMapLogSink)(void* ctx, int level, const char* line);

/**
 * \brief Sets the level of the library's log tags ("GMAP", "UPER").
 *
 * Without this call, a program that never set up the RSU platform logger
 * sees warnings and errors only (level 3), on standard error or its sink; a
 * program that did gets the levels of its own logger. Thread-safe.
 * \param level 0 (nothing) .. 7 (every trace line).
 * \return 0; -2 for a level out of range.
 */
int32_t v2xapp_GBMapSetLogLevel(int level);
/**
 * \brief Sends the library's log lines that pass its level to sink (with ctx)
 *        instead of standard error or the program's logger; NULL restores
 *        that default. Thread-safe; the sink must stay callable until it is
 *        replaced.
 * \return 0.
 */
int32_t v2xapp_GBMapSetLogSink(v2xapp_GBMapLogSink sink, void* ctx);

#ifdef __cplusplus
}
#endif

#endif
