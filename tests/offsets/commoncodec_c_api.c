/* The offset codec's public header must compile as C. */
#include "v2xapp_commoncodec.h"

int commoncodec_c_compiles(const c_pos3D_t* ref, c_pos3D_t* out) {
  const v2xapp_gbMsg_PosStr_t msg = {.m_codeType = COMMON_POSCODETYPE_position_LatLon, .m_isContainV = true};
  return v2xcodec_GBpraseMsgPos(&msg, ref, out);
}
