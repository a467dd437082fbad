// Service status records and the two periodic tasks.
#include "map_conv_interface.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include "map_conv_deamon.h"
#include "map_conv_stack_interface.h"
#include "map_conv_v2xcloud_dds.h"
#include "v2xlog.h"
#include "v2xpub.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "INTF"};

// The run statuses are written and read on different threads (start-up, the
// DDS callback, the status task, other modules): single bytes, accessed atomically.
service_status_t g_mapconv_st;
service_status_t g_cloud_st;

void storeStatus(service_status_t& st, uint8 type, e_run_status_value run_st) {
  std::atomic_ref<uint8>(st.service_type).store(type, std::memory_order_relaxed);
  std::atomic_ref<uint8>(st.run_status).store(static_cast<uint8>(run_st), std::memory_order_relaxed);
}

uint8 loadRunStatus(service_status_t& st) {
  return std::atomic_ref<uint8>(st.run_status).load(std::memory_order_relaxed);
}

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
  storeStatus(g_mapconv_st, V2X_CLOUD_SERVICE_TYPE_MAP, run_st);
}

void v2xmapconv_GetMapConvStatus(service_status_t* st) {
  if (st == nullptr) return;
  st->service_type = V2X_CLOUD_SERVICE_TYPE_MAP;
  st->run_status = loadRunStatus(g_mapconv_st);
}

void v2xmapconv_SetCloudStatus(e_run_status_value run_st) {
  storeStatus(g_cloud_st, V2X_CLOUD_SERVICE_TYPE_CLOUD, run_st);
}

void v2xmapconv_GetCloudStatus(service_status_t* st) {
  if (st == nullptr) return;
  st->service_type = V2X_CLOUD_SERVICE_TYPE_CLOUD;
  st->run_status = loadRunStatus(g_cloud_st);
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

void v2xmapconv_TaskExit(void) {
  for (V2XPUB_TASKHANDLE* handle : {&handle_rsi_conv, &handle_get_map}) {
    v2xpub_TaskStop(*handle);
    *handle = nullptr;
  }
}

void SendMapConvStatusToCommSoft(void* arg) {
  (void)arg;
  v2xcloud_comm_ddsinfo_t* ddsinfo = v2xmapconv_GetddsInfo();
  if (ddsinfo == nullptr) {
    V2XLOG(&g_curTag, 2, "Get ddsinfo failed!");
    return;
  }
  service_status_t status;
  std::memset(&status, 0, sizeof(status));
  v2xmapconv_GetMapConvStatus(&status);
  v2xcloud_ddsSend(ddsinfo->dds_object, ddsinfo->mp_map_conv_send_topic, &status, sizeof(status));

  map_to_rsucloud_t map_to_rsu_data;
  if (v2xcloud_GetLastMapRecord(&map_to_rsu_data) == 0)
    v2xcloud_ddsSend(ddsinfo->dds_object, ddsinfo->mp_map_to_rsucloud_topic, &map_to_rsu_data, sizeof(map_to_rsu_data));
}

}  // extern "C"
