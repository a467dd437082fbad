// Map download: the shared reading steps that are not templates (log lines on
// a reader's behalf, texts, bit strings, node references and names).
#include <NodeReferenceID.h>

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "map_conv_mapdown_detail.h"
#include "map_conv_profile.h"
#include "v2xapp_commoncodec.h"

namespace v2xmapconv::mapdown::detail {

const char* textItem(const cJSON* json, const char* key) {
  const cJSON* item = member(json, key);
  if (item == nullptr || !cJSON_IsString(item) || item->valuestring == nullptr) return nullptr;
  return item->valuestring;
}

void copyText(char* dst, size_t size, const char* src) {
  size_t len = strnlen(src, size - 1);
  std::memcpy(dst, src, len);
  std::memset(dst + len, 0, size - len);
}

uint8 leadingNumberMod256(const char* text) {
  const char* p = text;
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = (*p++ == '-');
  uint32 value = 0;
  for (; *p >= '0' && *p <= '9'; ++p) value = (value * 10u + static_cast<uint32>(*p - '0')) & 0xFFu;
  if (negative) value = (256u - value) & 0xFFu;
  return static_cast<uint8>(value);
}

int32 newBitString(long value, int8 bits, BIT_STRING_t** target) {
  BIT_STRING_t* bs = newRecord<BIT_STRING_t>();
  if (bs == nullptr) return -2;
  int64 v = value;
  v2xcodec_long2BitString(&v, bits, bs);
  *target = bs;
  return 0;
}

void say(const Caller& caller, int32 level, const char* fmt, ...) {
  if (!v2xlog_IsEnabled(&g_curTag, level)) return;
  char text[V2XLOG_LINE_MAX];
  va_list args;
  va_start(args, fmt);
  std::vsnprintf(text, sizeof(text), fmt, args);
  va_end(args);
  v2xlog_Print(&g_curTag, level, "%s:%s:%d:%s", caller.file, caller.name, caller.line, text);
}

int32 report(const Caller& caller, const Fault& fault, const Where& where) {
  if (fault.code != kNoCode) v2xmapconv_SetErrorCode(fault.code);
  say(caller, 2, "%s", fault.text);
  if (t_observer != nullptr) {
    t_observer->onFault({caller.name, fault.text, fault.code, fault.ret, where.item, where.key, where.type});
  }
  return fault.ret;
}

int32 passOn(const Caller& caller, const Fault& fault) {
  if (fault.code != kNoCode) v2xmapconv_SetErrorCode(fault.code);
  say(caller, 2, "%s", fault.text);
  if (t_observer != nullptr) t_observer->onPassedOn(caller.name, fault.text, fault.code);
  return fault.ret;
}

int32 readReference(const Caller& caller, cJSON* json, const char* key, NodeReferenceID* id, const Fault& missing,
                    int32 holderCode) {
  cJSON* item = member(json, key);
  if (item == nullptr) return report(caller, missing, {json, key});
  const int32 outer = t_holderCode;
  t_holderCode = holderCode;
  GetNodeReferenceIDFromJson(item, id);
  t_holderCode = outer;
  return 0;
}

const char* misfitNumber(const cJSON* item, bool integer) {
  if (cJSON_IsNumber(item)) {
    return integer && item->valuedouble != std::trunc(item->valuedouble) ? "a fraction where an integer belongs"
                                                                         : nullptr;
  }
  if (cJSON_IsString(item)) return "a text where a number belongs";
  if (cJSON_IsBool(item)) return "true or false where a number belongs";
  return "not a number";
}

int32 reportMisfit(const Caller& caller, const cJSON* item, const char* what, const char* readAs, Fault fault,
                   const asn_TYPE_descriptor_t* type) {
  const bool field = v2xmapconv_IsFieldProfile() != 0;
  if (!field && t_observer == nullptr) return 0;
  char text[160];
  std::snprintf(text, sizeof(text), "error: %s is %s, read as %s", item->string != nullptr ? item->string : "value",
                what, readAs);
  if (!field) {
    // The reference reading goes on as if nothing was wrong; only the observer hears of it.
    t_observer->onFault({caller.name, text, kNoCode, 0, item, nullptr, type, true});
    return 0;
  }
  fault.text = text;
  if (fault.code == kNoCode) fault.code = t_holderCode;
  return report(caller, fault, {item, nullptr, type});
}

int32 readName(const char* reader, cJSON* json, DescriptiveName_t** name, const char* what) {
  const cJSON* item = member(json, "name");
  if (item == nullptr) return 0;
  if (!cJSON_IsString(item) || item->valuestring == nullptr) {
    say(reader, 3, "%s name is not a text, ignored", what);
    reportMisfit(reader, item, "not a text", "absent", kMisfitGoesOn);
    return 0;
  }
  size_t len = std::strlen(item->valuestring);
  DescriptiveName_t* record = newRecord<DescriptiveName_t>();
  if (record != nullptr) {
    record->buf = static_cast<uint8_t*>(std::malloc(len > 0 ? len : 1));
    if (record->buf == nullptr) {
      std::free(record);
      record = nullptr;
    }
  }
  if (record == nullptr) {
    say(reader, 2, "%s->name calloc failed!", what);
    return -2;
  }
  std::memcpy(record->buf, item->valuestring, len);
  record->size = static_cast<int>(len);
  *name = record;
  return 0;
}

}  // namespace v2xmapconv::mapdown::detail
