/*
 * DDS wrapper for RSU services: one participant per object, byte messages on
 * named topics.
 *
 * Usage: create_dds(); dds_reg() each topic (with a receive callback to
 * subscribe, without one to publish); optionally set_history_qos() and
 * set_white_list_iface(); dds_start(); then dds_send() / callbacks until
 * destroy_dds().
 *
 * Wire form: every topic carries one sample type, a byte sequence of at most
 * V2XDDS_SAMPLE_MAX bytes. dds_send() cuts a message into consecutive samples
 * of V2XDDS_SAMPLE_MAX bytes followed by the remainder; a receiver that joins
 * samples until one is shorter than V2XDDS_SAMPLE_MAX gets the message back.
 * A message whose length is a multiple of V2XDDS_SAMPLE_MAX has no short tail:
 * the sender ends it with an extra short sample (the services send one zero
 * byte). Samples are reliable and arrive in the order written per writer;
 * history is kept in full (see set_history_qos), so no sample is dropped when
 * a reader falls behind: the writer waits instead.
 *
 * Reception: Cyclone's listener only takes the samples and queues them; a
 * dispatch thread of the object calls the callbacks one at a time, in arrival
 * order over all the object's topics. A callback may therefore call dds_send().
 * It must not call destroy_dds() on its own object.
 *
 * Topic names: DDS accepts only letters, digits, '_' and '/' (not starting
 * with a digit). Callers use plain names (a device id may contain '-' or '.');
 * the wrapper maps them with v2xdds_MapTopicName() so every peer using this
 * wrapper meets on the same DDS topic.
 *
 * Traffic stays on the interface address given to set_white_list_iface()
 * (default 127.0.0.1): discovery is unicast to that address, multicast is off.
 *
 * An object is not destroyed concurrently with other calls on it; apart from
 * that every operation is thread-safe.
 */
#ifndef V2XDDS_H
#define V2XDDS_H

#include "v2x_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Largest payload of one sample. */
#define V2XDDS_SAMPLE_MAX 1024
/* The only data type: a message of bytes. */
#define V2XDDS_DATA_TYPE_BYTES 0
/* History kinds for set_history_qos(). */
#define V2XDDS_HISTORY_KEEP_LAST 1
#define V2XDDS_HISTORY_KEEP_ALL 2
/* Keep-last depths below this are raised to it: a message of 10000 bytes is
 * 10 samples, and a short burst must survive too. */
#define V2XDDS_HISTORY_MIN_DEPTH 64
/* Samples queued to the dispatch thread at most; beyond that they wait in the
 * DDS reader, whose full history in turn makes the remote writer wait. */
#define V2XDDS_DISPATCH_QUEUE_MAX 256
/* Longest topic name accepted (plain form). */
#define V2XDDS_TOPIC_NAME_MAX 255

/* Result codes (0 is success). */
#define V2XDDS_ERR_PARAM (-2)   /* null object, bad name, bad argument */
#define V2XDDS_ERR_STATE (-3)   /* wrong moment: already started, not started */
#define V2XDDS_ERR_NOTOPIC (-4) /* topic not registered in that role */
#define V2XDDS_ERR_DDS (-5)     /* DDS refused the operation */

/* Receive callback: one sample (at most V2XDDS_SAMPLE_MAX bytes). The data is
 * valid only during the call and never null, also for an empty sample. */
typedef void dds_recv_cb(void* data, unsigned int len);

/* A new, unstarted object; NULL when out of memory. */
void* create_dds(void);

/*
 * Registers a topic on the object. With a callback the object subscribes to
 * it, without one it publishes on it; registering the same name once of each
 * kind does both. All topics of an object share one domain id (the first one
 * given). data_type must be V2XDDS_DATA_TYPE_BYTES. A topic registered after
 * dds_start() is created at once. False for a null object or topic, an empty
 * or too long name, another domain id, an unknown data type, a second
 * registration of the same kind, or when DDS refuses the topic.
 */
bool dds_reg(void* obj, unsigned int domain_id, const char* topic, dds_recv_cb* callback, unsigned int data_type);

/*
 * History of a registered topic's reader and writer, before dds_start():
 * kind V2XDDS_HISTORY_KEEP_ALL (depth ignored, the default) or
 * V2XDDS_HISTORY_KEEP_LAST with depth (raised to V2XDDS_HISTORY_MIN_DEPTH).
 * 0, V2XDDS_ERR_PARAM, V2XDDS_ERR_NOTOPIC or V2XDDS_ERR_STATE.
 */
int32 set_history_qos(void* obj, const char* topic, int32 kind, int32 depth);

/*
 * The IPv4 address of the one interface DDS may use (default "127.0.0.1"),
 * before dds_start(). Peers are looked for by unicast on that address.
 * 0, V2XDDS_ERR_PARAM (not an IPv4 address) or V2XDDS_ERR_STATE.
 * All objects of one process share one domain set-up: the first object started
 * in a domain fixes its interface.
 */
int32 set_white_list_iface(void* obj, const char* ipv4_addr);

/* Creates the participant, the registered topics, readers and writers, and
 * the dispatch thread. 0, or V2XDDS_ERR_PARAM / _STATE / _DDS. */
int32 dds_start(void* obj);

/*
 * Publishes len bytes on a topic registered for publishing, as consecutive
 * samples of V2XDDS_SAMPLE_MAX bytes and a shorter remainder (none when len is
 * a multiple of V2XDDS_SAMPLE_MAX; len 0 sends one empty sample). The samples
 * of one message stay consecutive even when several threads send on the topic.
 * Waits while the readers' history is full (10 s at most a sample, or until
 * dds_stop; the error then leaves the message cut short). 0, or
 * V2XDDS_ERR_PARAM / _STATE / _NOTOPIC / _DDS.
 */
int32 dds_send(void* obj, const char* topic, const void* data, unsigned int len);

/* Number of remote readers matched by the topic's writer (readers of other
 * objects, in this process or another), or a negative code. */
int32 get_match_cnt(void* obj, const char* topic);

/*
 * First step of leaving, safe while other threads send on the object: no
 * callback starts any more (the one in progress is waited for, and its sends
 * still go out), and a send that has to wait for room in the readers' history
 * gives up within 100 ms with V2XDDS_ERR_STATE. Sends that need no wait still
 * go out until destroy_dds. Not from a receive callback. NULL is accepted.
 */
void dds_stop(void* obj);

/* dds_stop, then a bounded wait (300 ms at most) for matched readers to
 * acknowledge what was written, then deletes the DDS entities and frees the
 * object. NULL is accepted. */
void destroy_dds(void* obj);

/*
 * The DDS topic name for a plain name, as every peer must use it. Letters,
 * digits, '/' and '_' stay as they are; any other byte, and a leading digit,
 * becomes "_x" and two upper-case hex digits ('-' -> "_x2D", '.' -> "_x2E");
 * a '_' that is followed by 'x' becomes "_x5F" so that the mapping stays
 * one-to-one. Names made of allowed characters without "_x" are unchanged,
 * e.g. "rsu/RSU_01/map/down"; "rsu/RSU-01.a/map/down" becomes
 * "rsu/RSU_x2D01_x2Ea/map/down".
 * Writes the zero-terminated result into out (size bytes). Returns its
 * length, or -2 for a null or empty name or when out is too small.
 */
int32 v2xdds_MapTopicName(const char* name, char* out, size_t size);

#ifdef __cplusplus
}
#endif

#endif
