// Configuration trees over libconfig++, with dotted keys and atomic write-back.
#include "v2xcfg.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <libconfig.h++>
#include <memory>
#include <string>

#include "v2xlog.h"
#include "v2xpub.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "VCFG"};

struct Context {
  libconfig::Config cfg;
  std::string path;
};

Context* ctx(V2XCFGNODE_HANDLE h) { return static_cast<Context*>(h); }

libconfig::Setting::Type settingType(v2xcfg_member_type type) {
  switch (type) {
    case V2XCFG_MEM_TYPE_INT32: return libconfig::Setting::TypeInt;
    case V2XCFG_MEM_TYPE_INT64: return libconfig::Setting::TypeInt64;
    case V2XCFG_MEM_TYPE_BOOL: return libconfig::Setting::TypeBoolean;
    case V2XCFG_MEM_TYPE_DOUBLE: return libconfig::Setting::TypeFloat;
    case V2XCFG_MEM_TYPE_STRING: return libconfig::Setting::TypeString;
    case V2XCFG_MEM_TYPE_NODE: return libconfig::Setting::TypeGroup;
    default: return libconfig::Setting::TypeNone;
  }
}

// Finds the setting at a dotted key, creating missing groups and the leaf.
libconfig::Setting* findOrCreate(libconfig::Config& cfg, const std::string& key, libconfig::Setting::Type leafType) {
  libconfig::Setting* cur = &cfg.getRoot();
  size_t pos = 0;
  while (true) {
    size_t dot = key.find('.', pos);
    std::string name = key.substr(pos, dot == std::string::npos ? std::string::npos : dot - pos);
    if (name.empty()) return nullptr;
    bool leaf = dot == std::string::npos;
    if (!cur->isGroup()) return nullptr;
    if (cur->exists(name)) {
      cur = &(*cur)[name.c_str()];
    } else {
      cur = &cur->add(name, leaf ? leafType : libconfig::Setting::TypeGroup);
    }
    if (leaf) return cur;
    pos = dot + 1;
  }
}

}  // namespace

extern "C" {

int32 v2xcfg_InitContext(V2XCFGNODE_HANDLE* handle, const char* filePath) {
  if (handle == nullptr || filePath == nullptr) return V2XCFG_FAIL;
  auto c = std::make_unique<Context>();
  c->path = filePath;
  try {
    c->cfg.readFile(filePath);
  } catch (const libconfig::FileIOException&) {
    V2XLOG(&g_curTag, 2, "cannot read %s", filePath);
    return V2XCFG_FAIL;
  } catch (const libconfig::ParseException& e) {
    V2XLOG(&g_curTag, 2, "%s:%d: %s", e.getFile() != nullptr ? e.getFile() : filePath, e.getLine(), e.getError());
    return V2XCFG_FAIL;
  }
  *handle = c.release();
  return V2XCFG_SUCCESS;
}

int32 v2xcfg_GetNodeValue(V2XCFGNODE_HANDLE handle, v2xcfg_member_type type, const char* key, void* value,
                          uint16* valueLength) {
  if (handle == nullptr || key == nullptr || value == nullptr) return V2XCFG_FAIL;
  if (type == V2XCFG_MEM_TYPE_STRING && valueLength == nullptr) return V2XCFG_FAIL;
  libconfig::Config& cfg = ctx(handle)->cfg;
  if (!cfg.exists(key)) return V2XCFG_NODE_NOTEXIST;
  const libconfig::Setting& s = cfg.lookup(key);
  try {
    switch (type) {
      case V2XCFG_MEM_TYPE_STRING: {
        if (s.getType() != libconfig::Setting::TypeString) return V2XCFG_NODE_TYPE_ERROR;
        const char* text = s.c_str();
        size_t n = std::strlen(text);
        if (n > *valueLength) n = *valueLength;
        std::memcpy(value, text, n);
        static_cast<char*>(value)[n] = '\0';
        *valueLength = static_cast<uint16>(n);
        return V2XCFG_SUCCESS;
      }
      case V2XCFG_MEM_TYPE_INT32:
        if (s.getType() != libconfig::Setting::TypeInt) return V2XCFG_NODE_TYPE_ERROR;
        *static_cast<int32*>(value) = static_cast<int>(s);
        return V2XCFG_SUCCESS;
      case V2XCFG_MEM_TYPE_INT64:
        if (!s.isNumber() || s.getType() == libconfig::Setting::TypeFloat) return V2XCFG_NODE_TYPE_ERROR;
        *static_cast<int64*>(value) = static_cast<long long>(s);
        return V2XCFG_SUCCESS;
      case V2XCFG_MEM_TYPE_BOOL:
        if (s.getType() != libconfig::Setting::TypeBoolean) return V2XCFG_NODE_TYPE_ERROR;
        *static_cast<bool*>(value) = static_cast<bool>(s);
        return V2XCFG_SUCCESS;
      case V2XCFG_MEM_TYPE_DOUBLE:
        if (!s.isNumber()) return V2XCFG_NODE_TYPE_ERROR;
        *static_cast<double*>(value) = s.getType() == libconfig::Setting::TypeFloat
                                           ? static_cast<double>(s)
                                           : static_cast<double>(static_cast<long long>(s));
        return V2XCFG_SUCCESS;
      default: return V2XCFG_NODE_TYPE_ERROR;
    }
  } catch (const libconfig::SettingTypeException&) {
    return V2XCFG_NODE_TYPE_ERROR;
  }
}

int32 v2xcfg_SetNodeValue(V2XCFGNODE_HANDLE handle, v2xcfg_member_type type, const char* key, const void* value) {
  if (handle == nullptr || key == nullptr || value == nullptr) return V2XCFG_FAIL;
  libconfig::Setting::Type st = settingType(type);
  if (st == libconfig::Setting::TypeNone || st == libconfig::Setting::TypeGroup) return V2XCFG_FAIL;
  try {
    libconfig::Setting* s = findOrCreate(ctx(handle)->cfg, key, st);
    if (s == nullptr) return V2XCFG_FAIL;
    if (s->getType() != st) return V2XCFG_NODE_TYPE_ERROR;
    switch (type) {
      case V2XCFG_MEM_TYPE_STRING: *s = static_cast<const char*>(value); break;
      case V2XCFG_MEM_TYPE_INT32: *s = *static_cast<const int32*>(value); break;
      case V2XCFG_MEM_TYPE_INT64: *s = static_cast<long long>(*static_cast<const int64*>(value)); break;
      case V2XCFG_MEM_TYPE_BOOL: *s = *static_cast<const bool*>(value); break;
      case V2XCFG_MEM_TYPE_DOUBLE: *s = *static_cast<const double*>(value); break;
      default: return V2XCFG_FAIL;
    }
  } catch (const libconfig::ConfigException& e) {
    V2XLOG(&g_curTag, 2, "set %s error: %s", key, e.what());
    return V2XCFG_FAIL;
  }
  return V2XCFG_SUCCESS;
}

int32 v2xcfg_UpdateFile(V2XCFGNODE_HANDLE handle, int32 flags) {
  if (handle == nullptr || flags != 0) return V2XCFG_FAIL;
  Context* c = ctx(handle);
  char* buf = nullptr;
  size_t len = 0;
  FILE* mem = open_memstream(&buf, &len);
  if (mem == nullptr) return V2XCFG_FAIL;
  c->cfg.write(mem);
  std::fclose(mem);
  int32 ret = v2xpub_WriteFileData(c->path.c_str(), buf, static_cast<uint32>(len));
  std::free(buf);
  if (ret != 0) {
    V2XLOG(&g_curTag, 2, "write back %s error ret=%d", c->path.c_str(), ret);
    return V2XCFG_FAIL;
  }
  return V2XCFG_SUCCESS;
}

int32 v2xcfg_ExitContext(V2XCFGNODE_HANDLE handle) {
  delete ctx(handle);
  return V2XCFG_SUCCESS;
}

}  // extern "C"
