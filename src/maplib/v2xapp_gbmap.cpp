// MAP message life cycle and transfer syntaxes: create, free, message count
// and time stamp, UPER and XER encoding and decoding, text print.
#include "v2xapp_gbmap.h"

#include <cstdio>
#include <cstdlib>

#include "MessageFrame.h"
#include "v2x_asn_codec.h"
#include "v2xlog.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "GMAP"};

// XML nests deeply only for hostile input; bound the decoder's stack use.
constexpr size_t kXerMaxStackSize = 100000000;

MapData_t* mapOf(V2XAPP_GBMHANDLE handle) { return &static_cast<MessageFrame_t*>(handle)->choice.mapFrame; }

// Shared by both transfer syntaxes; logs only when asked to.
int32_t encodeFrame(V2XAPP_GBMHANDLE handle, uint8_t* pdata, uint32_t* p_data_len, asn_transfer_syntax syntax,
                    bool logFailure) {
  if (handle == nullptr || pdata == nullptr || p_data_len == nullptr) return -2;
  asn_enc_rval_t ret_val =
      asn_encode_to_buffer(nullptr, syntax, &asn_DEF_MessageFrame, handle, pdata, static_cast<size_t>(*p_data_len));
  if (ret_val.encoded < 0) {
    if (logFailure) {
      V2XLOG(&g_curTag, 4, "ret_val.failed_type->name = %s",
             ret_val.failed_type != nullptr ? ret_val.failed_type->name : asn_DEF_MessageFrame.name);
      V2XLOG(&g_curTag, 5, "encode detail: %s", v2x_asn_last_error());
    }
    return -3;
  }
  // The full length, also when it exceeds the capacity: the caller compares.
  *p_data_len = static_cast<uint32_t>(ret_val.encoded);
  return 0;
}

int32_t decodeFrame(V2XAPP_GBMHANDLE* p_handle, const uint8_t* pdata, uint32_t dataLen, asn_transfer_syntax syntax,
                    size_t maxStackSize) {
  asn_codec_ctx_t ctx = {};
  ctx.max_stack_size = maxStackSize;
  asn_dec_rval_t retVal =
      asn_decode(&ctx, syntax, &asn_DEF_MessageFrame, reinterpret_cast<void**>(p_handle), pdata, dataLen);
  if (retVal.code != RC_OK) {
    V2XLOG(&g_curTag, 2, "asn_decode error retVal.code= %d retVal.consumed=%d", static_cast<int>(retVal.code),
           static_cast<int>(retVal.consumed));
    V2XLOG(&g_curTag, 3, "decode detail: %s", v2x_asn_last_error());
    return -2;
  }
  return 0;
}

}  // namespace

extern "C" {

int32_t v2xapp_GBMapStrInit(V2XAPP_GBMHANDLE* p_handle) {
  V2XLOG(&g_curTag, 7, "%s start ", __func__);
  int32_t ret = -1;
  auto* frame = static_cast<MessageFrame_t*>(std::calloc(1, sizeof(MessageFrame_t)));
  if (frame == nullptr) {
    V2XLOG(&g_curTag, 2, "calloc MessageFrame failed");
    ret = -2;
  } else {
    frame->present = MessageFrame_PR_mapFrame;
    *p_handle = frame;
    ret = 0;
  }
  V2XLOG(&g_curTag, 7, "%s end,ret=%d", __func__, ret);
  return ret;
}

int32_t v2xapp_GBMapStrDel(V2XAPP_GBMHANDLE* p_handle) {
  V2XLOG_START(&g_curTag);
  int32_t ret = -2;
  if (*p_handle != nullptr) {
    ASN_STRUCT_FREE(asn_DEF_MessageFrame, *p_handle);
    V2XLOG(&g_curTag, 5, "ASN_STRUCT_FREE");
    *p_handle = nullptr;
    ret = 0;
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapSetMsgCnt(V2XAPP_GBMHANDLE mapHandle, uint32_t msgCnt) {
  V2XLOG_START(&g_curTag);
  int32_t ret = -2;
  if (mapHandle != nullptr) {
    // No range check here: the encoder refuses counts outside MsgCount.
    mapOf(mapHandle)->msgCnt = static_cast<MsgCount_t>(msgCnt);
    ret = 0;
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetMsgCnt(V2XAPP_GBMHANDLE mapHandle, uint32_t* pmsgCnt) {
  // The trace lines carry the setter's name; log readers rely on it.
  V2XLOG(&g_curTag, 7, "v2xapp_GBMapSetMsgCnt start");
  int32_t ret = -2;
  if (mapHandle != nullptr && pmsgCnt != nullptr) {
    *pmsgCnt = static_cast<uint32_t>(mapOf(mapHandle)->msgCnt);
    ret = 0;
  }
  V2XLOG(&g_curTag, 7, "v2xapp_GBMapSetMsgCnt end ret=%d", ret);
  return ret;
}

int32_t v2xapp_GBMapSetTimStamp(V2XAPP_GBMHANDLE mapHandle, uint32_t timeStamp) {
  V2XLOG_START(&g_curTag);
  int32_t ret = -2;
  if (mapHandle != nullptr) {
    auto* minute = static_cast<MinuteOfTheYear_t*>(std::calloc(1, sizeof(MinuteOfTheYear_t)));
    if (minute == nullptr) {
      V2XLOG(&g_curTag, 2, "calloc MinuteOfTheYear failed");
      ret = -3;
    } else {
      *minute = static_cast<MinuteOfTheYear_t>(timeStamp);
      // A previous value is replaced, not freed: callers that set the stamp
      // twice keep the old value alive on purpose.
      mapOf(mapHandle)->timeStamp = minute;
      ret = 0;
    }
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetTimStamp(V2XAPP_GBMHANDLE mapHandle, uint32_t* ptimeStamp) {
  V2XLOG_START(&g_curTag);
  int32_t ret = -2;
  if (mapHandle != nullptr && ptimeStamp != nullptr) {
    const MinuteOfTheYear_t* minute = mapOf(mapHandle)->timeStamp;
    if (minute == nullptr) {
      ret = -3;
    } else {
      *ptimeStamp = static_cast<uint32_t>(*minute);
      ret = 0;
    }
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapUperEncode(V2XAPP_GBMHANDLE handle, uint8_t* pdata, uint32_t* p_data_len) {
  V2XLOG_START(&g_curTag);
  int32_t ret = encodeFrame(handle, pdata, p_data_len, ATS_UNALIGNED_BASIC_PER, true);
  V2XLOG(&g_curTag, 7, "%s end,ret=%d", __func__, ret);
  return ret;
}

int32_t v2xapp_GBMapUperDecode(V2XAPP_GBMHANDLE* p_handle, uint8_t* pdata, uint32_t dataLen) {
  V2XLOG_START(&g_curTag);
  // No stack limit for PER: its nesting is bounded by the message set.
  int32_t ret = decodeFrame(p_handle, pdata, dataLen, ATS_UNALIGNED_BASIC_PER, 0);
  V2XLOG(&g_curTag, 7, "%s end,ret=%d", __func__, ret);
  return ret;
}

int32_t v2xapp_GBMapXerEncode(V2XAPP_GBMHANDLE handle, uint8_t* pdata, uint32_t* pdataLen) {
  return encodeFrame(handle, pdata, pdataLen, ATS_BASIC_XER, false);
}

int32_t v2xapp_GBMapXerDecode(V2XAPP_GBMHANDLE* p_handle, uint8_t* p_data, uint32_t data_len) {
  V2XLOG_START(&g_curTag);
  int32_t ret = decodeFrame(p_handle, p_data, data_len, ATS_BASIC_XER, kXerMaxStackSize);
  V2XLOG(&g_curTag, 7, "%s end,ret=%d", __func__, ret);
  return ret;
}

int32_t v2xapp_GBMapPrint(V2XAPP_GBMHANDLE handle) {
  if (handle != nullptr) asn_fprint(stderr, &asn_DEF_MessageFrame, handle);
  return 0;
}

}  // extern "C"
