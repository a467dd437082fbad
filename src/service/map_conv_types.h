/* Records shared by the service's modules and exchanged with other processes. */
#ifndef MAP_CONV_TYPES_H
#define MAP_CONV_TYPES_H

#include "v2x_types.h"

#ifdef __cplusplus
extern "C" {
#endif

struct MessageFrame; /* the codec's frame; see the MAP library */

/* One map slice as exchanged with the cloud. */
typedef struct __attribute__((packed)) v2xcloud_map_data {
  uint8 mapSlice;
  struct MessageFrame* map;
  char eTag[64];
  bool ack;
  char seqNum[32];
} v2xcloud_map_data_t;

/* Map refresh notice body, filled by the map storage step. */
typedef struct __attribute__((packed)) v2xipc_mapRefresh {
  uint8 m_mapFileID;
  uint64 m_fileTime;
  uint8 m_CheckSum[64];
} v2xipc_mapRefresh_t;
V2X_STATIC_ASSERT(sizeof(v2xipc_mapRefresh_t) == 73, "v2xipc_mapRefresh_t is 73 bytes on the wire");

typedef enum e_run_status_value {
  V2X_CONV_RUN_STATUS_AVAILABLE = 1,
  V2X_CONV_RUN_STATUS_UNAVAILABLE = 2,
} e_run_status_value;

enum {
  V2X_CLOUD_SERVICE_TYPE_MAP = 1,
  V2X_CLOUD_SERVICE_TYPE_SPAT = 2,
  V2X_CLOUD_SERVICE_TYPE_RSI = 3,
  V2X_CLOUD_SERVICE_TYPE_RSM = 4,
  V2X_CLOUD_SERVICE_TYPE_CLOUD = 5,
};

/* Service status record shared by the RSU's services (host byte order). */
typedef struct __attribute__((packed)) service_status {
  uint8 service_type;
  uint8 run_status;
  uint32 tx_packet_count;
  uint64 tx_last_timestamp;
  uint32 rx_packet_count;
  uint64 rx_last_timestamp;
} service_status_t;
V2X_STATIC_ASSERT(sizeof(service_status_t) == 26, "service_status_t is 26 bytes on the wire");

/* The map this service holds, reported every 5 s. */
typedef struct __attribute__((packed)) map_to_rsucloud {
  uint8 mapSlice;
  char eTag[64];
} map_to_rsucloud_t;
V2X_STATIC_ASSERT(sizeof(map_to_rsucloud_t) == 65, "map_to_rsucloud_t is 65 bytes on the wire");

/* The DDS object and topic names; shared layout with the RSU's other services. */
typedef struct __attribute__((packed)) v2xcloud_comm_ddsinfo {
  int32 m_domain_id;
  void* dds_object;
  bool cloud_available;
  char* mp_map_conv_send_topic;
  char* mp_rsu_cloud_send_topic;
  char* mp_spat_conv_send_topic;
  char* mp_rsm_conv_send_topic;
  char* mp_commsoft_recv_topic;
  char* mp_info_up_topic;
  char* mp_info_up_ack_topic;
  char* mp_config_down_topic;
  char* mp_config_down_ack_topic;
  char* mp_map_down_topic;
  char* mp_map_down_ack_topic;
  char* mp_map_up_topic;
  char* mp_map_up_ack_topic;
  char* mp_bsm_up_topic;
  char* mp_rsm_up_topic;
  char* mp_rsm_down_topic;
  char* mp_rsi_up_topic;
  char* mp_rsi_up_ack_topic;
  char* mp_rsi_down_topic;
  char* mp_rsi_down_ack_topic;
  char* mp_spat_up_topic;
  char* mp_spat_down_topic;
  char* mp_heartbeat_up_topic;
  char* mp_base_info_up_topic;
  char* mp_status_up_topic;
  char* mp_log_config_down_topic;
  char* mp_log_config_down_ack_topic;
  char* mp_maintain_config_down_topic;
  char* mp_maintain_config_down_ack_topic;
  char* mp_query_down_topic;
  char* mp_query_up_topic;
  char* mp_map_to_rsucloud_topic;
} v2xcloud_comm_ddsinfo_t;

#ifdef __cplusplus
}
#endif

#endif
