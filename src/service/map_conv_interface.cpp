// Service status records and the two periodic tasks.
#include "map_conv_interface.h"

#include <cstdio>
#include <cstring>

#include "map_conv_deamon.h"
#include "map_conv_stack_interface.h"
#include "map_conv_v2xcloud_dds.h"
#include "v2xlog.h"
#include "v2xpub.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "INTF"};

service_status_t g_mapconv_st;
service_status_t g_cloud_st;

V2XPUB_TASKHANDLE handle_rsi_conv = nullptr;
V2XPUB_TASKHANDLE handle_get_map = nullptr;

void fillTask(v2xpub_TaskInitPara_t* para, const char* name, uint32 priority, uint32 intervals, v2xpub_TaskFun_t exec) {
  std::memset(para, 0, sizeof(*para));
  std::snprintf(para->m_taskName, sizeof(para->m_taskName), "%s", name);
  para->m_priority = priority;
  para->m_intervals = intervals;
  para->m_tskType = V2XTASK_TYPE_RR;
  para->f_tskFunExec = exec;
}

}  // namespace

extern "C" {

void v2xmapconv_SetMapConvStatus(e_run_status_value run_st) {
  g_mapconv_st.service_type = V2X_CLOUD_SERVICE_TYPE_MAP;
  g_mapconv_st.run_status = static_cast<uint8>(run_st);
}

void v2xmapconv_GetMapConvStatus(service_status_t* st) {
  if (st == nullptr) return;
  st->service_type = V2X_CLOUD_SERVICE_TYPE_MAP;
  st->run_status = g_mapconv_st.run_status;
}

void v2xmapconv_SetCloudStatus(e_run_status_value run_st) {
  g_cloud_st.service_type = V2X_CLOUD_SERVICE_TYPE_CLOUD;
  g_cloud_st.run_status = static_cast<uint8>(run_st);
}

void v2xmapconv_GetCloudStatus(service_status_t* st) {
  if (st == nullptr) return;
  st->service_type = V2X_CLOUD_SERVICE_TYPE_CLOUD;
  st->run_status = g_cloud_st.run_status;
}

int32 v2xmapconv_TaskInit(void) {
  v2xpub_TaskInitPara_t para;
  fillTask(&para, "map_conv_status", 10, 5000000, SendMapConvStatusToCommSoft);
  int32 ret = v2xpub_TaskCreate(&handle_rsi_conv, &para);
  if (ret != 0) {
    V2XLOG(&g_curTag, 4, "v2xpub_TaskCreate error ret=%d ", ret);
    return ret;
  }
  fillTask(&para, "Get_Map_Data", 50, 1000000, SendGetMapDataToAPP);
  ret = v2xpub_TaskCreate(&handle_get_map, &para);
  if (ret != 0) V2XLOG(&g_curTag, 4, "v2xpub_TaskCreate error ret=%d ", ret);
  return ret;
}

void SendMapConvStatusToCommSoft(void* arg) {
  (void)arg;
  v2xcloud_comm_ddsinfo_t* ddsinfo = v2xmapconv_GetddsInfo();
  if (ddsinfo == nullptr) {
    V2XLOG(&g_curTag, 2, "Get ddsinfo failed!");
    return;
  }
  v2xcloud_ddsSend(ddsinfo->dds_object, ddsinfo->mp_map_conv_send_topic, &g_mapconv_st, sizeof(g_mapconv_st));

  v2xcloud_map_data_t* last = nullptr;
  if (v2xcloud_GetMapDownData(&last) == 0 && last != nullptr) {
    map_to_rsucloud_t map_to_rsu_data;
    std::memset(&map_to_rsu_data, 0, sizeof(map_to_rsu_data));
    map_to_rsu_data.mapSlice = last->mapSlice;
    std::snprintf(map_to_rsu_data.eTag, sizeof(map_to_rsu_data.eTag), "%.63s", last->eTag);
    v2xcloud_ddsSend(ddsinfo->dds_object, ddsinfo->mp_map_to_rsucloud_topic, &map_to_rsu_data, sizeof(map_to_rsu_data));
  }
}

}  // extern "C"
