// The behaviour profile, one process-wide value.
#include "map_conv_profile.h"

#include <atomic>
#include <cstring>

namespace {
std::atomic<int> g_profile{MAP_CONV_PROFILE_REFERENCE};
}

void v2xmapconv_SetProfile(map_conv_profile_e profile) { g_profile.store(profile, std::memory_order_release); }

map_conv_profile_e v2xmapconv_GetProfile(void) {
  return static_cast<map_conv_profile_e>(g_profile.load(std::memory_order_acquire));
}

int v2xmapconv_IsFieldProfile(void) { return v2xmapconv_GetProfile() == MAP_CONV_PROFILE_FIELD ? 1 : 0; }

const char* v2xmapconv_ProfileName(map_conv_profile_e profile) {
  return profile == MAP_CONV_PROFILE_FIELD ? "field" : "reference";
}

int32 v2xmapconv_ParseProfile(const char* text, map_conv_profile_e* out) {
  if (text == nullptr || out == nullptr) return -2;
  if (std::strcmp(text, "reference") == 0) {
    *out = MAP_CONV_PROFILE_REFERENCE;
    return 0;
  }
  if (std::strcmp(text, "field") == 0) {
    *out = MAP_CONV_PROFILE_FIELD;
    return 0;
  }
  return -2;
}
