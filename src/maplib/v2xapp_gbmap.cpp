// MAP message life cycle and transfer syntaxes: create, free, message count
// and time stamp, UPER and XER encoding and decoding, text print.
#include "v2xapp_gbmap.h"

#include <cstdio>
#include <cstdlib>

#include "gbmap_internal.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "GMAP"};

// XML nests deeply only for hostile input; bound the decoder's stack use.
constexpr size_t kXerMaxStackSize = 100000000;

// The frame's MapData whatever its choice: the defined calls do not look.
MapData_t* mapOf(V2XAPP_GBMHANDLE handle) { return &static_cast<MessageFrame_t*>(handle)->choice.mapFrame; }

// Shared by both transfer syntaxes. The callers log, so that log lines name
// the operation.
asn_enc_rval_t encodeFrame(V2XAPP_GBMHANDLE handle, uint8_t* pdata, uint32_t* p_data_len, asn_transfer_syntax syntax) {
  return asn_encode_to_buffer(nullptr, syntax, &asn_DEF_MessageFrame, handle, pdata, static_cast<size_t>(*p_data_len));
}

asn_dec_rval_t decodeFrame(V2XAPP_GBMHANDLE* p_handle, const uint8_t* pdata, uint32_t dataLen,
                           asn_transfer_syntax syntax, size_t maxStackSize) {
  asn_codec_ctx_t ctx = {};
  ctx.max_stack_size = maxStackSize;
  return asn_decode(&ctx, syntax, &asn_DEF_MessageFrame, reinterpret_cast<void**>(p_handle), pdata, dataLen);
}

// Decodes into a new frame that replaces *p_handle only on success; the
// lines are written at the place of the public call.
int32_t decodeReplacing(const gbmap::Site& site, V2XAPP_GBMHANDLE* p_handle, const uint8_t* pdata, uint32_t dataLen,
                        asn_transfer_syntax syntax, size_t maxStackSize) {
  gbmap::logAt(&g_curTag, 7, site, "%s start", site.func);
  int32_t ret = -2;
  V2XAPP_GBMHANDLE fresh = nullptr;
  if (p_handle == nullptr || pdata == nullptr) {
    gbmap::logAt(&g_curTag, 2, site, "null handle place or data");
  } else if (asn_dec_rval_t rv = decodeFrame(&fresh, pdata, dataLen, syntax, maxStackSize); rv.code != RC_OK) {
    gbmap::logAt(&g_curTag, 2, site, "asn_decode error retVal.code= %d retVal.consumed=%d", static_cast<int>(rv.code),
                 static_cast<int>(rv.consumed));
    ASN_STRUCT_FREE(asn_DEF_MessageFrame, fresh);
  } else {
    ASN_STRUCT_FREE(asn_DEF_MessageFrame, *p_handle);
    *p_handle = fresh;
    ret = 0;
  }
  gbmap::logAt(&g_curTag, 7, site, "%s end ret=%d", site.func, static_cast<int>(ret));
  return ret;
}

const char* failedTypeName(const asn_enc_rval_t& ret_val) {
  return ret_val.failed_type != nullptr ? ret_val.failed_type->name : asn_DEF_MessageFrame.name;
}

}  // namespace

extern "C" {

int32_t v2xapp_GBMapStrInit(V2XAPP_GBMHANDLE* p_handle) {
  GBLOG(&g_curTag, 7, "%s start ", __func__);
  int32_t ret = -1;
  auto* frame = p_handle != nullptr ? static_cast<MessageFrame_t*>(std::calloc(1, sizeof(MessageFrame_t))) : nullptr;
  if (frame == nullptr) {
    GBLOG(&g_curTag, 2, "null handle place or calloc MessageFrame failed");
    ret = -2;
  } else {
    frame->present = MessageFrame_PR_mapFrame;
    *p_handle = frame;
    ret = 0;
  }
  GBLOG(&g_curTag, 7, "%s end,ret=%d", __func__, ret);
  return ret;
}

int32_t v2xapp_GBMapStrDel(V2XAPP_GBMHANDLE* p_handle) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  if (p_handle != nullptr && *p_handle != nullptr) {
    ASN_STRUCT_FREE(asn_DEF_MessageFrame, *p_handle);
    GBLOG(&g_curTag, 5, "ASN_STRUCT_FREE");
    *p_handle = nullptr;
    ret = 0;
  }
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapSetMsgCnt(V2XAPP_GBMHANDLE mapHandle, uint32_t msgCnt) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  if (mapHandle != nullptr) {
    // No range check here: the encoder refuses counts outside MsgCount.
    mapOf(mapHandle)->msgCnt = static_cast<MsgCount_t>(msgCnt);
    ret = 0;
  }
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetMsgCnt(V2XAPP_GBMHANDLE mapHandle, uint32_t* pmsgCnt) {
  // The trace lines carry the setter's name; log readers rely on it.
  GBLOG(&g_curTag, 7, "v2xapp_GBMapSetMsgCnt start");
  int32_t ret = -2;
  if (mapHandle != nullptr && pmsgCnt != nullptr) {
    *pmsgCnt = static_cast<uint32_t>(mapOf(mapHandle)->msgCnt);
    ret = 0;
  }
  GBLOG(&g_curTag, 7, "v2xapp_GBMapSetMsgCnt end ret=%d", ret);
  return ret;
}

int32_t v2xapp_GBMapSetTimStamp(V2XAPP_GBMHANDLE mapHandle, uint32_t timeStamp) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  if (mapHandle != nullptr) {
    auto* minute = static_cast<MinuteOfTheYear_t*>(std::calloc(1, sizeof(MinuteOfTheYear_t)));
    if (minute == nullptr) {
      GBLOG(&g_curTag, 2, "calloc MinuteOfTheYear failed");
      ret = -3;
    } else {
      *minute = static_cast<MinuteOfTheYear_t>(timeStamp);
      // A previous value is replaced, not freed: callers that set the stamp
      // twice keep the old value alive on purpose.
      mapOf(mapHandle)->timeStamp = minute;
      ret = 0;
    }
  }
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapReplaceTimStamp(V2XAPP_GBMHANDLE mapHandle, uint32_t timeStamp) {
  GBLOG_START(&g_curTag);
  int32_t ret = -2;
  MapData_t* map = gbmap::mapOf(mapHandle);
  auto* minute = map != nullptr ? gbmap::newRecord<MinuteOfTheYear_t>() : nullptr;
  if (map == nullptr) {
    GBLOG(&g_curTag, 2, "null map or not a map frame");
  } else if (minute == nullptr) {
    GBLOG(&g_curTag, 2, "calloc MinuteOfTheYear failed");
    ret = -3;
  } else {
    *minute = static_cast<MinuteOfTheYear_t>(timeStamp);
    std::free(map->timeStamp);
    map->timeStamp = minute;
    ret = 0;
  }
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapGetTimStamp(V2XAPP_GBMHANDLE mapHandle, uint32_t* ptimeStamp) {
  GBLOG_START(&g_curTag);
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
  GBLOG_END(&g_curTag, ret);
  return ret;
}

int32_t v2xapp_GBMapUperEncode(V2XAPP_GBMHANDLE handle, uint8_t* pdata, uint32_t* p_data_len) {
  GBLOG_START(&g_curTag);
  int32_t ret = -1;
  if (handle == nullptr || pdata == nullptr || p_data_len == nullptr) {
    ret = -2;
  } else {
    asn_enc_rval_t ret_val = encodeFrame(handle, pdata, p_data_len, ATS_UNALIGNED_BASIC_PER);
    if (ret_val.encoded < 0) {
      GBLOG(&g_curTag, 4, "ret_val.failed_type->name = %s", failedTypeName(ret_val));
      GBLOG(&g_curTag, 5, "encode detail: %s", v2x_asn_last_error());
      ret = -3;
    } else {
      // The full length, also when it exceeds the capacity: the caller compares.
      *p_data_len = static_cast<uint32_t>(ret_val.encoded);
      ret = 0;
    }
  }
  GBLOG(&g_curTag, 7, "%s end,ret=%d", __func__, ret);
  return ret;
}

int32_t v2xapp_GBMapUperDecode(V2XAPP_GBMHANDLE* p_handle, uint8_t* pdata, uint32_t dataLen) {
  GBLOG_START(&g_curTag);
  int32_t ret = -1;
  // No stack limit for PER: its nesting is bounded by the message set.
  asn_dec_rval_t retVal = decodeFrame(p_handle, pdata, dataLen, ATS_UNALIGNED_BASIC_PER, 0);
  if (retVal.code != RC_OK) {
    GBLOG(&g_curTag, 2, "asn_decode error retVal.code= %d retVal.consumed=%d", static_cast<int>(retVal.code),
          static_cast<int>(retVal.consumed));
    GBLOG(&g_curTag, 3, "decode detail: %s", v2x_asn_last_error());
    ret = -2;
  } else {
    ret = 0;
  }
  GBLOG(&g_curTag, 7, "%s end,ret=%d", __func__, ret);
  return ret;
}

int32_t v2xapp_GBMapUperDecodeFresh(V2XAPP_GBMHANDLE* p_handle, const uint8_t* pdata, uint32_t dataLen) {
  return decodeReplacing(GBLOG_SITE, p_handle, pdata, dataLen, ATS_UNALIGNED_BASIC_PER, 0);
}

int32_t v2xapp_GBMapXerDecodeFresh(V2XAPP_GBMHANDLE* p_handle, const uint8_t* p_data, uint32_t data_len) {
  return decodeReplacing(GBLOG_SITE, p_handle, p_data, data_len, ATS_BASIC_XER, kXerMaxStackSize);
}

int32_t v2xapp_GBMapXerEncode(V2XAPP_GBMHANDLE handle, uint8_t* pdata, uint32_t* pdataLen) {
  if (handle == nullptr || pdata == nullptr || pdataLen == nullptr) return -2;
  asn_enc_rval_t ret_val = encodeFrame(handle, pdata, pdataLen, ATS_BASIC_XER);
  if (ret_val.encoded < 0) return -3;
  *pdataLen = static_cast<uint32_t>(ret_val.encoded);
  return 0;
}

int32_t v2xapp_GBMapXerDecode(V2XAPP_GBMHANDLE* p_handle, uint8_t* p_data, uint32_t data_len) {
  GBLOG_START(&g_curTag);
  int32_t ret = -1;
  asn_dec_rval_t retVal = decodeFrame(p_handle, p_data, data_len, ATS_BASIC_XER, kXerMaxStackSize);
  if (retVal.code != RC_OK) {
    GBLOG(&g_curTag, 2, "asn_decode error retVal.code= %d retVal.consumed=%d", static_cast<int>(retVal.code),
          static_cast<int>(retVal.consumed));
    GBLOG(&g_curTag, 3, "decode detail: %s", v2x_asn_last_error());
    ret = -2;
  } else {
    ret = 0;
  }
  GBLOG(&g_curTag, 7, "%s end,ret=%d", __func__, ret);
  return ret;
}

int32_t v2xapp_GBMapPrint(V2XAPP_GBMHANDLE handle) {
  if (handle != nullptr) asn_fprint(stderr, &asn_DEF_MessageFrame, handle);
  return 0;
}

}  // extern "C"
