// Local IPC with the V2X protocol process ("RSU_RCV") and the log tool.
#include "map_conv_stack_interface.h"

#include <cstring>

#include "map_conv_mapdown.h"
#include "map_conv_mapup.h"
#include "map_conv_profile.h"
#include "v2xapp_gbmap.h"
#include "v2xlog.h"
#include "v2xpub.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "SINF"};

V2X_UDPSOCKHANDLE g_mapconv_sendhandle = nullptr;
V2X_UDPSOCKHANDLE g_logToolHandle = nullptr;
v2x_ipc_config_t* g_ipc_conf = nullptr;

constexpr uint32 kHeadLen = sizeof(v2xipc_dataHead);
constexpr uint32 kRsuDataLen = sizeof(v2xipc_rsuData);
constexpr uint32 kLogCmdLen = sizeof(v2xipc_logCmd);
constexpr int32 kReqTimeoutMs = 5000;
constexpr const char* kStackPeer = "RSU_RCV";
// Both sockets stay on this host unless the port file's "bind" says otherwise:
// whoever can reach the log tool socket can change the log levels.
constexpr const char* kLocalAddr = "127.0.0.1";

v2x_ipc_config_t* ipcConf() {
  if (g_ipc_conf == nullptr) v2xipc_GetIpcConfValue(&g_ipc_conf);
  return g_ipc_conf;
}

// Sends the packet built in ipcBuff (head and a body of bodyLen bytes) to the
// V2X protocol process and waits for its answer in recvData (null: sends at
// once and waits for nothing).
int32 exchangeWithStack(uint8* ipcBuff, uint32 bodyLen, v2xpub_UdpSocketDataHead_t* recvData) {
  v2x_ipc_config_t* conf = ipcConf();
  v2xpub_UdpSocketDataHead_t sendData{static_cast<int16>(kHeadLen + bodyLen), ipcBuff};
  v2xipc_SocketSetSendAddr(g_mapconv_sendhandle, conf, kStackPeer, conf->m_app_rs_rcvport);
  if (recvData == nullptr) return v2xipc_SocketSend(g_mapconv_sendhandle, &sendData);
  return v2xipc_SocketReqSend(g_mapconv_sendhandle, conf, kReqTimeoutMs, &sendData, recvData);
}

// Carries out one log tool command in place; false when no reply is due.
bool serveLogCmd(v2xpub_UdpSocketDataHead_t* packet) {
  if (packet->m_curMsgLen < static_cast<int16>(kHeadLen + kLogCmdLen)) {
    V2XLOG(&g_curTag, 1, "log tool packet of %d bytes is too short", packet->m_curMsgLen);
    return false;
  }
  auto* pStr = reinterpret_cast<v2xipc_dataHead*>(packet->mp_data);
  if (pStr->m_cmdType != V2XIPC_CMD_LOG_REQ) {
    V2XLOG(&g_curTag, 3, "get error data,type pStr->m_cmdType=%d", pStr->m_cmdType);
    return false;
  }
  auto* cmd = reinterpret_cast<v2xipc_logCmd*>(pStr->m_pack);
  if (cmd->m_logCmd == V2XIPC_LOG_READ) {
    // The receive buffer holds V2XIPC_MSG_MAX bytes; the reply never grows past it.
    constexpr uint32 kMaxTags = (V2XIPC_MSG_MAX - kHeadLen - kLogCmdLen) / sizeof(v2xipc_logData);
    uint16 tagNum = v2xlog_GetTagNum();
    if (tagNum > kMaxTags) tagNum = kMaxTags;
    cmd->m_dataLen = static_cast<int16>(sizeof(v2xipc_logData) * tagNum);
    for (uint16 index = 0; index < tagNum; ++index) {
      char name[8] = {};
      int16 level = 0;
      if (v2xlog_GetTagLevelByIndex(index, name, &level) != 0) std::memset(name, 0, sizeof(name));
      std::memcpy(cmd->m_logData[index].m_tagName, name, sizeof(name));
      cmd->m_logData[index].m_level = level;
    }
    pStr->m_packLen = static_cast<uint16>(cmd->m_dataLen + kLogCmdLen);
    packet->m_curMsgLen = static_cast<int16>(pStr->m_packLen + kHeadLen);
  } else if (cmd->m_logCmd == V2XIPC_LOG_SET) {
    if (packet->m_curMsgLen < static_cast<int16>(kHeadLen + kLogCmdLen + sizeof(v2xipc_logData))) {
      V2XLOG(&g_curTag, 1, "log tool set command of %d bytes names no tag", packet->m_curMsgLen);
      return false;
    }
    static const uint8 tempAll[8] = {'A', 'L', 'L', 0, 0, 0, 0, 0};
    v2xipc_logData entry;
    std::memcpy(&entry, &cmd->m_logData[0], sizeof(entry));
    int32 ret = 0;
    if (std::memcmp(entry.m_tagName, tempAll, sizeof(tempAll)) == 0) {
      ret = v2xlog_SetAllTagLevel(entry.m_level);
      if (ret != 0) {
        V2XLOG(&g_curTag, 3, "exec v2xlog_SetAllTagLevel error ret=%d", ret);
        return false;
      }
    } else {
      char name[sizeof(entry.m_tagName) + 1] = {};
      std::memcpy(name, entry.m_tagName, sizeof(entry.m_tagName));
      V2XLOG_HANDLE tag = nullptr;
      ret = v2xlog_GetTagHandle(name, &tag);
      if (ret != 0) {
        V2XLOG(&g_curTag, 2, "exec v2xlog_GetTagHandle error ret=%d", ret);
        return false;
      }
      ret = v2xlog_SetTagLevel(tag, entry.m_level);
      if (ret != 0) {
        V2XLOG(&g_curTag, 2, "exec v2xlog_SetTagLevel error ret=%d", ret);
        return false;
      }
    }
  }
  pStr->m_cmdType = V2XIPC_CMD_LOG_RESP;
  pStr->m_sendTime64 = v2xpub_CommGetCurrentTime64();
  cmd->m_result = 0;
  return true;
}

}  // namespace

extern "C" {

int32 v2xmapconv_StackInterfaceInit(void) {
  v2x_ipc_config_t* conf = ipcConf();
  v2xpub_SocketInitPara_t para;
  std::memset(&para, 0, sizeof(para));
  std::strcpy(para.m_sockName, "MAP_CONV_SEND");
  std::strcpy(para.m_localIP, kLocalAddr);
  para.m_cliPort = conf->m_map_conv_sndport;
  para.m_cliEnable = 1;
  int32 ret = v2xipc_SocketInit(&g_mapconv_sendhandle, conf, &para);
  if (ret != 0) {
    V2XLOG(&g_curTag, 2, "SocketInit end ret=%d", ret);
    return -3;
  }

  std::memset(&para, 0, sizeof(para));
  std::strcpy(para.m_sockName, "MAP_C_LOGTOOL");
  std::strcpy(para.m_localIP, kLocalAddr);
  para.m_svrPort = conf->m_mapconv_logtool_rcvport;
  para.m_svrEnable = 1;
  para.f_msgFunc = GetLogCtl;
  ret = v2xipc_SocketInit(&g_logToolHandle, conf, &para);
  if (ret != 0) {
    V2XLOG(&g_curTag, 2, "SocketInit LogTool error ret=%d", ret);
    return -3;
  }
  return 0;
}

int32 v2xmapconv_GetMapDataResp(v2xpub_UdpSocketDataHead_t* mp_data) {
  if (mp_data == nullptr || mp_data->mp_data == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    return -2;
  }
  const int32 total = mp_data->m_curMsgLen;
  if (total < static_cast<int32>(kHeadLen)) {
    V2XLOG(&g_curTag, 1, "response of %d bytes is shorter than its head", total);
    return -4;
  }
  auto* head = reinterpret_cast<v2xipc_dataHead*>(mp_data->mp_data);
  if (head->m_headFlag[0] != V2XIPC_HEAD_FLAG0 || head->m_headFlag[1] != V2XIPC_HEAD_FLAG1) {
    V2XLOG(&g_curTag, 1, "v2xmapconv_GetMapDataResp headflag error");
    return -3;
  }
  const uint16 len = static_cast<uint16>(total - kHeadLen);
  if (len != head->m_packLen || len > V2XIPC_MAX_PACK_LEN) {
    V2XLOG(&g_curTag, 1, "v2xmapconv_GetMapDataResp too large ; error");
    return -4;
  }
  if (head->m_cmdType != V2XIPC_CMD_RSU_RESP) {
    V2XLOG(&g_curTag, 3, "Recv cmdType error");
    return -6;
  }
  if (len < kRsuDataLen) {
    V2XLOG(&g_curTag, 1, "response body of %u bytes lacks its data head", len);
    return -4;
  }
  auto* body = reinterpret_cast<v2xipc_rsuData*>(head->m_pack);
  const uint8* items = body->m_data;
  const uint64 itemsLen = len - kRsuDataLen;
  const int32 dataNo = body->m_dataNo;
  // Each item is looked for at the previous item's length plus two bytes per
  // item before it: exact for the first two items of a packed list. The field
  // profile walks the list itself, so every map of the answer goes up.
  const bool everyItem = v2xmapconv_IsFieldProfile() != 0;
  uint64 offset_len = 0;
  for (int32 index = 0; index < dataNo; ++index) {
    const uint64 pos = offset_len + 2ULL * static_cast<uint64>(index);
    uint16 uperLen = 0;
    if (pos + sizeof(uperLen) <= itemsLen) std::memcpy(&uperLen, items + pos, sizeof(uperLen));
    if (pos + sizeof(uperLen) > itemsLen || pos + sizeof(uperLen) + uperLen > itemsLen) {
      V2XLOG(&g_curTag, 1, "map %d at offset %llu runs past the %llu bytes received", index,
             static_cast<unsigned long long>(pos), static_cast<unsigned long long>(itemsLen));
      return -4;
    }
    V2XAPP_GBMHANDLE map_handle = nullptr;
    int32 ret = v2xapp_GBMapUperDecode(&map_handle, const_cast<uint8*>(items + pos + sizeof(uperLen)), uperLen);
    if (ret != 0) {
      V2XLOG(&g_curTag, 2, "v2xapp_GBMapUperDecode error");
      if (map_handle != nullptr) v2xapp_GBMapStrDel(&map_handle);
      return -5;
    }
    V2XLOG(&g_curTag, 6, "map %d of %d decoded, %u bytes", index, dataNo, uperLen);
    v2xmapconv_MapDataUp(&map_handle, index);
    offset_len = everyItem ? offset_len + uperLen : uperLen;
  }
  return 0;
}

void GetLogCtl(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen) {
  V2XLOG(&g_curTag, 7, "GetLogCtl enter");
  auto* packet = static_cast<v2xpub_UdpSocketDataHead_t*>(p_data);
  if (packet == nullptr || packet->mp_data == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
  } else if (serveLogCmd(packet)) {
    v2xipc_SocketRespSend(handle, ipcConf(), packet, addr, addrLen);
  }
  V2XLOG(&g_curTag, 7, "GetLogCtl exit");
}

int32 MapRefresh_fill(uint8_t* pData, v2xipc_mapRefresh_t* pmap_refdata, uint32_t* plen) {
  if (pData == nullptr || pmap_refdata == nullptr || plen == nullptr) return -2;
  auto* body = reinterpret_cast<v2xipc_rsuData*>(pData);
  body->m_dataType = V2XIPC_DATA_MAP_REFRESH;
  body->m_dataNo = 1;
  body->m_dataLen = sizeof(v2xipc_mapRefresh_t);
  body->m_checkSum = 0;
  std::memcpy(body->m_data, pmap_refdata, sizeof(v2xipc_mapRefresh_t));
  *plen = kRsuDataLen + sizeof(v2xipc_mapRefresh_t);
  return 0;
}

int32 GetMapData_fill(uint8_t* pData, uint32_t* plen) {
  if (pData == nullptr || plen == nullptr) return -2;
  auto* body = reinterpret_cast<v2xipc_rsuData*>(pData);
  body->m_dataType = V2XIPC_DATA_GET_MAP;
  body->m_dataNo = 1;
  body->m_dataLen = sizeof(v2xipc_getMapData);
  body->m_checkSum = 0;
  v2xipc_getMapData req{0};
  uint64 fileTime = 0;
  if (v2xmapconv_GetMapDownLastTimestamp(&fileTime) == 0) req.m_fileTime = fileTime;
  std::memcpy(body->m_data, &req, sizeof(req));
  *plen = kRsuDataLen + sizeof(v2xipc_getMapData);
  return 0;
}

int32 v2xmapconv_UpdataMapDataNotify(v2xipc_mapRefresh_t* pmap_refresh_data) {
  if (pmap_refresh_data == nullptr) return -2;
  return v2xmapconv_PackMapRefreshAndSendData(V2XIPC_CMD_RSU_REQ, pmap_refresh_data);
}

int32 v2xmapconv_PackMapRefreshAndSendData(int32_t opCode, v2xipc_mapRefresh_t* pmap_refresh_data) {
  if (pmap_refresh_data == nullptr) return -2;
  uint8 ipcBuff[V2XIPC_BUFF_LEN] = {};
  uint32 bodyLen = 0;
  MapRefresh_fill(ipcBuff + kHeadLen, pmap_refresh_data, &bodyLen);
  v2xipc_FillDataHead(ipcBuff, static_cast<uint16>(opCode), bodyLen);
  // The stack's answer to a notice says nothing: the notice goes out at once,
  // also while a map data request waits on a stack that does not answer.
  int32 ret = exchangeWithStack(ipcBuff, bodyLen, nullptr);
  if (ret != 0) {
    V2XLOG(&g_curTag, 3, "UDP send error:%d", ret);
    return ret;
  }
  V2XLOG(&g_curTag, 6, "map refresh notice for file %u sent", pmap_refresh_data->m_mapFileID);
  return 0;
}

void SendGetMapDataToAPP(void* arg) {
  (void)arg;
  uint8 ipcBuff[V2XIPC_BUFF_LEN] = {};
  uint32 bodyLen = 0;
  GetMapData_fill(ipcBuff + kHeadLen, &bodyLen);
  v2xipc_FillDataHead(ipcBuff, V2XIPC_CMD_RSU_REQ, bodyLen);
  uint8 recvBuff[V2XIPC_MSG_MAX];
  v2xpub_UdpSocketDataHead_t recvData{V2XIPC_MSG_MAX, recvBuff};
  int32 ret = exchangeWithStack(ipcBuff, bodyLen, &recvData);
  if (ret != 0) {
    V2XLOG(&g_curTag, 3, "UDP send error:%d", ret);
    return;
  }
  v2xmapconv_GetMapDataResp(&recvData);
}

void v2xmapconv_StackInterfaceStop(void) {
  v2xipc_SocketShutdown(g_mapconv_sendhandle);
  v2xipc_SocketShutdown(g_logToolHandle);
}

void v2xmapconv_StackInterfaceExit(void) {
  v2xipc_SocketClose(g_mapconv_sendhandle);
  v2xipc_SocketClose(g_logToolHandle);
  g_mapconv_sendhandle = nullptr;
  g_logToolHandle = nullptr;
}

}  // extern "C"
