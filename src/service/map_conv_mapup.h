/* Map upload: the V2X stack's maps published to the cloud as JSON documents,
 * and the reception of the cloud's acknowledgements. */
#ifndef MAP_CONV_MAPUP_H
#define MAP_CONV_MAPUP_H

#include "map_conv_mapup_render.h"
#include "map_conv_types.h"
#include "v2xapp_gbmap.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Renders the map behind *p_handle in its upload envelope (slice = index) and
 * publishes it on the map-up topic. 0 when handed to DDS, -2 when the handle
 * holds no map, -3 without a DDS link, -4 when rendering failed. The map is
 * released and the handle cleared on every path. */
int32 v2xmapconv_MapDataUp(V2XAPP_GBMHANDLE* p_handle, int32_t index);

/* Fills the upload envelope: slice index (8 bits), the frame, eTag
 * "MapUpEtag" + local date (yyyymmdd), ack true and the next upload sequence
 * number (from 1, per process). 0, or -2 for a null argument. */
int32 v2xmapconv_SetMapDataValue(v2xcloud_map_data_t* map_updata, void* handle, int32_t index);

/* Receive callback for the map-up-ack topic: joins the samples of an
 * acknowledgement and notes its length; the content is not used. */
void v2xmapconv_ddsRecvMapUpAck(void* data, unsigned int len);

/*
 * Joining of DDS samples into one message: samples of
 * V2XMAPCONV_JOIN_SAMPLE_LEN bytes continue a message, a shorter one ends it.
 * A message may hold up to V2XMAPCONV_JOIN_BUF_LEN - 1 bytes and is always
 * followed by a zero byte in m_data.
 */
#define V2XMAPCONV_JOIN_SAMPLE_LEN 1024
#define V2XMAPCONV_JOIN_BUF_LEN 10000
/* Result bits of v2xmapconv_JoinSample. */
#define V2XMAPCONV_JOIN_DONE 1     /* the sample ended a message: m_data, m_len */
#define V2XMAPCONV_JOIN_OVERFLOW 2 /* it did not fit: it and the message so far were dropped */

typedef struct v2xmapconv_sampleJoin {
  char m_data[V2XMAPCONV_JOIN_BUF_LEN];
  uint32 m_len;
} v2xmapconv_sampleJoin_t;

/* Adds one sample of len bytes (data may be null only when len is 0).
 * Returns 0 (more samples follow) or a combination of the bits above; after
 * V2XMAPCONV_JOIN_DONE the caller reads the message and calls
 * v2xmapconv_JoinReset. -2 for a null join or null data. */
int32 v2xmapconv_JoinSample(v2xmapconv_sampleJoin_t* join, const void* data, unsigned int len);
void v2xmapconv_JoinReset(v2xmapconv_sampleJoin_t* join);

#ifdef __cplusplus
}
#endif

#endif
