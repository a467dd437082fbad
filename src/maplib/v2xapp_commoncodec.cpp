// Position offsets and bit strings of the MAP message: the conversions every
// other part of the MAP library goes through when it turns absolute positions
// into PositionOffsetLLV choices (and back) or small integers into BIT STRING
// members (and back).
#include "v2xapp_commoncodec.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>

#include "BIT_STRING.h"
#include "Position3D.h"
#include "PositionOffsetLLV.h"
#include "VerticalOffset.h"
#include "gbmap_internal.h"

namespace {

// Never registered on purpose: it follows the logger's default level.
v2xlog_config_t g_curTag = {nullptr, "UPER"};

// Spans of the relative lat/lon alternatives, smallest first. The floating
// variant picks the first row whose bound is strictly above the deviation in
// degrees, the integer variant the first row whose bound (in 1e-7 degree) is
// at or above it.
struct LLRow {
  double m_boundDeg;
  long m_boundUnits;
  PositionOffsetLL_PR m_present;
};
constexpr LLRow kLLRows[] = {
    {0.0002047, 2047L, PositionOffsetLL_PR_position_LL1},    {0.0008191, 8191L, PositionOffsetLL_PR_position_LL2},
    {0.0032767, 32767L, PositionOffsetLL_PR_position_LL3},   {0.0131071, 131071L, PositionOffsetLL_PR_position_LL4},
    {0.2097151, 2097151L, PositionOffsetLL_PR_position_LL5}, {0.8388607, 8388607L, PositionOffsetLL_PR_position_LL6},
};

// Spans of the relative vertical alternatives; both variants compare strictly
// (metres for the floating variant, 0.1 m for the integer one).
struct VRow {
  double m_boundM;
  long m_boundUnits;
  VerticalOffset_PR m_present;
};
constexpr VRow kVRows[] = {
    {6.3, 63L, VerticalOffset_PR_offset1},     {12.7, 127L, VerticalOffset_PR_offset2},
    {25.5, 255L, VerticalOffset_PR_offset3},   {51.1, 511L, VerticalOffset_PR_offset4},
    {102.3, 1023L, VerticalOffset_PR_offset5}, {204.7, 2047L, VerticalOffset_PR_offset6},
};

// Truncation toward zero that stays defined for any finite input.
long truncToLong(double v) {
  // Just inside the range of long: 64 bits, or 32 on 32-bit ARM.
  constexpr double kLimit = sizeof(long) >= 8 ? 9.2e18 : 2147483647.0;
  if (v >= kLimit) return LONG_MAX;
  if (v <= -kLimit) return LONG_MIN;
  return static_cast<long>(v);
}

// Integer sums of caller-supplied values must not be undefined behaviour even
// when the values are nonsense; wrap like the hardware does.
long wrapAdd(long a, long b) {
  return static_cast<long>(static_cast<unsigned long>(a) + static_cast<unsigned long>(b));
}
long wrapSub(long a, long b) {
  return static_cast<long>(static_cast<unsigned long>(a) - static_cast<unsigned long>(b));
}

void putOffsetLL(PositionOffsetLL_t& ll, PositionOffsetLL_PR present, long lon, long lat) {
  ll.present = present;
  switch (present) {
    case PositionOffsetLL_PR_position_LL1:
      ll.choice.position_LL1.lon = lon;
      ll.choice.position_LL1.lat = lat;
      break;
    case PositionOffsetLL_PR_position_LL2:
      ll.choice.position_LL2.lon = lon;
      ll.choice.position_LL2.lat = lat;
      break;
    case PositionOffsetLL_PR_position_LL3:
      ll.choice.position_LL3.lon = lon;
      ll.choice.position_LL3.lat = lat;
      break;
    case PositionOffsetLL_PR_position_LL4:
      ll.choice.position_LL4.lon = lon;
      ll.choice.position_LL4.lat = lat;
      break;
    case PositionOffsetLL_PR_position_LL5:
      ll.choice.position_LL5.lon = lon;
      ll.choice.position_LL5.lat = lat;
      break;
    case PositionOffsetLL_PR_position_LL6:
      ll.choice.position_LL6.lon = lon;
      ll.choice.position_LL6.lat = lat;
      break;
    case PositionOffsetLL_PR_position_LatLon:
      ll.choice.position_LatLon.lon = lon;
      ll.choice.position_LatLon.lat = lat;
      break;
    default: break;
  }
}

// Reads the pair of the chosen alternative; false for an empty or unknown choice.
bool getOffsetLL(const PositionOffsetLL_t& ll, long& lon, long& lat) {
  switch (ll.present) {
    case PositionOffsetLL_PR_position_LL1: lon = ll.choice.position_LL1.lon, lat = ll.choice.position_LL1.lat; break;
    case PositionOffsetLL_PR_position_LL2: lon = ll.choice.position_LL2.lon, lat = ll.choice.position_LL2.lat; break;
    case PositionOffsetLL_PR_position_LL3: lon = ll.choice.position_LL3.lon, lat = ll.choice.position_LL3.lat; break;
    case PositionOffsetLL_PR_position_LL4: lon = ll.choice.position_LL4.lon, lat = ll.choice.position_LL4.lat; break;
    case PositionOffsetLL_PR_position_LL5: lon = ll.choice.position_LL5.lon, lat = ll.choice.position_LL5.lat; break;
    case PositionOffsetLL_PR_position_LL6: lon = ll.choice.position_LL6.lon, lat = ll.choice.position_LL6.lat; break;
    case PositionOffsetLL_PR_position_LatLon:
      lon = ll.choice.position_LatLon.lon;
      lat = ll.choice.position_LatLon.lat;
      break;
    default: return false;
  }
  return true;
}

void putVertical(VerticalOffset_t& v, VerticalOffset_PR present, long value) {
  v.present = present;
  switch (present) {
    case VerticalOffset_PR_offset1: v.choice.offset1 = value; break;
    case VerticalOffset_PR_offset2: v.choice.offset2 = value; break;
    case VerticalOffset_PR_offset3: v.choice.offset3 = value; break;
    case VerticalOffset_PR_offset4: v.choice.offset4 = value; break;
    case VerticalOffset_PR_offset5: v.choice.offset5 = value; break;
    case VerticalOffset_PR_offset6: v.choice.offset6 = value; break;
    case VerticalOffset_PR_elevation: v.choice.elevation = value; break;
    default: break;
  }
}

bool getVertical(const VerticalOffset_t& v, long& value) {
  switch (v.present) {
    case VerticalOffset_PR_offset1: value = v.choice.offset1; break;
    case VerticalOffset_PR_offset2: value = v.choice.offset2; break;
    case VerticalOffset_PR_offset3: value = v.choice.offset3; break;
    case VerticalOffset_PR_offset4: value = v.choice.offset4; break;
    case VerticalOffset_PR_offset5: value = v.choice.offset5; break;
    case VerticalOffset_PR_offset6: value = v.choice.offset6; break;
    case VerticalOffset_PR_elevation: value = v.choice.elevation; break;
    default: return false;
  }
  return true;
}

VerticalOffset_t* newVertical() { return static_cast<VerticalOffset_t*>(calloc(1, sizeof(VerticalOffset_t))); }

}  // namespace

extern "C" {

int32_t v2xcodec_long2BitString(const int64_t* longData, int8_t avail_bit, BITSTRING_HANDLE p_bitstring) {
  auto* bs = static_cast<BIT_STRING_t*>(p_bitstring);
  if (longData == nullptr || bs == nullptr) {
    GBLOG(&g_curTag, 2, "input para error");
    return 0;
  }
  const int bits = avail_bit > 0 ? avail_bit : 0;
  const int rest = bits % 8;
  const int size = bits / 8 + (rest != 0 ? 1 : 0);
  auto* buf = size > 0 ? static_cast<uint8_t*>(calloc(static_cast<size_t>(size), 1)) : nullptr;
  if (size > 0 && buf == nullptr) {
    GBLOG(&g_curTag, 2, "calloc bit string of %d bytes failed", size);
    bs->buf = nullptr;
    bs->size = 0;
    bs->bits_unused = 0;
    return 0;
  }
  const int64_t value = *longData;
  for (int k = 0; k < size; ++k) {
    const int shift = 8 * k;
    // Beyond the value's own 64 bits only its sign remains.
    const int64_t part = shift < 64 ? (value >> shift) : (value < 0 ? -1 : 0);
    buf[size - 1 - k] = static_cast<uint8_t>(part & 0xFF);
  }
  bs->buf = buf;
  bs->size = size;
  bs->bits_unused = rest != 0 ? 8 - rest : 0;
  return 0;
}

int32_t v2xcodec_bitString2Long(BITSTRING_HANDLE p_bitstring, int64_t* longData) {
  const auto* bs = static_cast<const BIT_STRING_t*>(p_bitstring);
  if (bs == nullptr || longData == nullptr) {
    GBLOG(&g_curTag, 2, "input param error");
    return 0;
  }
  int64_t result = 0;
  if (bs->buf != nullptr) {
    for (int k = 0; k < bs->size; ++k) {
      // Each byte is placed as a 32-bit quantity, so a fifth byte from the end
      // wraps round to the lowest position; MAP bit strings have two bytes.
      const uint32_t byte = bs->buf[bs->size - 1 - k];
      result += static_cast<int32_t>(byte << ((8 * k) % 32));
    }
  }
  *longData = result;
  return 0;
}

int32_t setPosOffsetLLV(const c_pos3D_t* currPos3D, const c_pos3D_t* hpathPos3D, POSLLV_HANDLE p_outPosOftllv) {
  auto* out = static_cast<PositionOffsetLLV_t*>(p_outPosOftllv);
  if (currPos3D == nullptr || hpathPos3D == nullptr || out == nullptr) {
    GBLOG(&g_curTag, 2, "input para error");
    return -2;
  }
  if (!std::isfinite(currPos3D->lat) || !std::isfinite(currPos3D->lon) || !std::isfinite(hpathPos3D->lat) ||
      !std::isfinite(hpathPos3D->lon)) {
    GBLOG(&g_curTag, 2, "input para error");
    return -2;
  }
  const double difflon = currPos3D->lon - hpathPos3D->lon;
  const double difflat = currPos3D->lat - hpathPos3D->lat;
  const double deviationValue = std::fmax(std::fabs(difflat), std::fabs(difflon));

  bool relative = false;
  for (const LLRow& row : kLLRows) {
    if (deviationValue < row.m_boundDeg) {
      putOffsetLL(out->offsetLL, row.m_present, truncToLong(10000000.0 * difflon), truncToLong(10000000.0 * difflat));
      relative = true;
      break;
    }
  }
  if (!relative) {
    putOffsetLL(out->offsetLL, PositionOffsetLL_PR_position_LatLon, truncToLong(10000000.0 * currPos3D->lon),
                truncToLong(10000000.0 * currPos3D->lat));
  }
  (void)setPosOffsetV(currPos3D, hpathPos3D, out);
  return 0;
}

int32_t setPosOffsetV(const c_pos3D_t* currPos3D, const c_pos3D_t* hpathPos3D, PositionOffsetLLV_t* outPosOftllv) {
  if (currPos3D == nullptr || hpathPos3D == nullptr || outPosOftllv == nullptr) {
    GBLOG(&g_curTag, 2, "input para error");
    return -2;
  }
  // A zero elevation means the position has none.
  if (currPos3D->elevation == 0.0 || hpathPos3D->elevation == 0.0) {
    outPosOftllv->offsetV = nullptr;
    return 0;
  }
  if (!std::isfinite(currPos3D->elevation) || !std::isfinite(hpathPos3D->elevation)) {
    GBLOG(&g_curTag, 2, "input para error");
    return -2;
  }
  VerticalOffset_t* v = newVertical();
  if (v == nullptr) {
    GBLOG(&g_curTag, 2, "calloc VerticalOffset failed");
    outPosOftllv->offsetV = nullptr;
    return -3;
  }
  const double diffele = currPos3D->elevation - hpathPos3D->elevation;
  bool relative = false;
  for (const VRow& row : kVRows) {
    if (std::fabs(diffele) < row.m_boundM) {
      putVertical(*v, row.m_present, truncToLong(10.0 * diffele));
      relative = true;
      break;
    }
  }
  if (!relative) putVertical(*v, VerticalOffset_PR_elevation, truncToLong(10.0 * currPos3D->elevation));
  outPosOftllv->offsetV = v;
  return 0;
}

int32_t setPosOffsetLLVOriginal(POS3D_HANDLE currPos3D, POS3D_HANDLE refPos3D, POSLLV_HANDLE p_outPosOftllv) {
  const auto* cur = static_cast<const Position3D_t*>(currPos3D);
  const auto* ref = static_cast<const Position3D_t*>(refPos3D);
  auto* out = static_cast<PositionOffsetLLV_t*>(p_outPosOftllv);
  if (cur == nullptr || ref == nullptr || out == nullptr) {
    GBLOG(&g_curTag, 2, "input para error");
    return -2;
  }
  // Differences are taken on the low 32 bits, wrapping like 32-bit hardware;
  // valid latitudes and longitudes fit there.
  const int32_t difflon = static_cast<int32_t>(static_cast<uint32_t>(cur->Long) - static_cast<uint32_t>(ref->Long));
  const int32_t difflat = static_cast<int32_t>(static_cast<uint32_t>(cur->lat) - static_cast<uint32_t>(ref->lat));
  const int64_t deviationValue = std::max(std::llabs(difflon), std::llabs(difflat));

  bool relative = false;
  for (const LLRow& row : kLLRows) {
    if (deviationValue <= row.m_boundUnits) {
      putOffsetLL(out->offsetLL, row.m_present, difflon, difflat);
      relative = true;
      break;
    }
  }
  if (!relative) putOffsetLL(out->offsetLL, PositionOffsetLL_PR_position_LatLon, cur->Long, cur->lat);
  (void)setPosOffsetVOriginal(cur, ref, out);
  return 0;
}

int32_t setPosOffsetVOriginal(const Position3D_t* currPos3D, const Position3D_t* refPos3D,
                              PositionOffsetLLV_t* outPosOftllv) {
  if (currPos3D == nullptr || refPos3D == nullptr || outPosOftllv == nullptr) {
    GBLOG(&g_curTag, 2, "input para error");
    return -2;
  }
  if (currPos3D->elevation == nullptr || refPos3D->elevation == nullptr) {
    outPosOftllv->offsetV = nullptr;
    return 0;
  }
  VerticalOffset_t* v = newVertical();
  if (v == nullptr) {
    GBLOG(&g_curTag, 2, "calloc VerticalOffset failed");
    outPosOftllv->offsetV = nullptr;
    return -3;
  }
  const long curElev = *currPos3D->elevation;
  const long diffele = wrapSub(curElev, *refPos3D->elevation);
  bool relative = false;
  for (const VRow& row : kVRows) {
    if (diffele > -row.m_boundUnits && diffele < row.m_boundUnits) {
      putVertical(*v, row.m_present, diffele);
      relative = true;
      break;
    }
  }
  if (!relative) putVertical(*v, VerticalOffset_PR_elevation, curElev);
  outPosOftllv->offsetV = v;
  return 0;
}

int32_t prasePosOffsetLLV(POSLLV_HANDLE p_posOftllv, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D) {
  const auto* offset = static_cast<const PositionOffsetLLV_t*>(p_posOftllv);
  if (offset == nullptr || initPos3D == nullptr || outPos3D == nullptr) {
    GBLOG(&g_curTag, 2, "input param error");
    return -1;
  }
  // Read the reference first: the output may be the reference itself.
  const double initLat = initPos3D->lat;
  const double initLon = initPos3D->lon;
  outPos3D->posIsValid = true;
  long lon = 0;
  long lat = 0;
  if (getOffsetLL(offset->offsetLL, lon, lat)) {
    if (offset->offsetLL.present == PositionOffsetLL_PR_position_LatLon) {
      outPos3D->lon = lon * 1e-7;
      outPos3D->lat = lat * 1e-7;
    } else {
      outPos3D->lon = initLon + lon * 1e-7;
      outPos3D->lat = initLat + lat * 1e-7;
    }
  }
  (void)prasePosOffsetV(offset->offsetV, initPos3D, outPos3D);
  return 0;
}

int32_t prasePosOffsetV(const VerticalOffset_t* vertoft, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D) {
  if (initPos3D == nullptr || outPos3D == nullptr) {
    GBLOG(&g_curTag, 2, "input param error");
    return -1;
  }
  // Even an absolute elevation is taken only against a reference that has one.
  if (vertoft == nullptr || !initPos3D->elevIsValid) {
    outPos3D->elevIsValid = false;
    return 0;
  }
  const double initElev = initPos3D->elevation;
  outPos3D->elevIsValid = true;
  long value = 0;
  if (getVertical(*vertoft, value)) {
    outPos3D->elevation = vertoft->present == VerticalOffset_PR_elevation ? value * 0.1 : initElev + value * 0.1;
  }
  return 0;
}

int32_t prasePosOffsetLLVOriginal(POSLLV_HANDLE p_posOftllv, POS3D_HANDLE initPos3D, POS3D_HANDLE outPos3D) {
  const auto* offset = static_cast<const PositionOffsetLLV_t*>(p_posOftllv);
  const auto* init = static_cast<const Position3D_t*>(initPos3D);
  auto* out = static_cast<Position3D_t*>(outPos3D);
  if (offset == nullptr || init == nullptr || out == nullptr) {
    GBLOG(&g_curTag, 2, "input param error");
    return -1;
  }
  long lon = 0;
  long lat = 0;
  if (getOffsetLL(offset->offsetLL, lon, lat)) {
    if (offset->offsetLL.present == PositionOffsetLL_PR_position_LatLon) {
      out->Long = lon;
      out->lat = lat;
    } else {
      const long initLon = init->Long;
      const long initLat = init->lat;
      out->Long = wrapAdd(lon, initLon);
      out->lat = wrapAdd(lat, initLat);
    }
  }
  (void)prasePosOffsetVOriginal(offset->offsetV, initPos3D, outPos3D);
  return 0;
}

int32_t prasePosOffsetVOriginal(const VerticalOffset_t* vertoft, POS3D_HANDLE initPos3D, POS3D_HANDLE outPos3D) {
  const auto* init = static_cast<const Position3D_t*>(initPos3D);
  auto* out = static_cast<Position3D_t*>(outPos3D);
  if (init == nullptr || out == nullptr) {
    GBLOG(&g_curTag, 2, "input param error");
    return -1;
  }
  if (vertoft == nullptr || init->elevation == nullptr) {
    out->elevation = nullptr;
    return 0;
  }
  long value = 0;
  long elevation = 0;
  if (getVertical(*vertoft, value)) {
    elevation = vertoft->present == VerticalOffset_PR_elevation ? value : wrapAdd(*init->elevation, value);
  }
  auto* elev = static_cast<Elevation_t*>(calloc(1, sizeof(Elevation_t)));
  if (elev == nullptr) {
    GBLOG(&g_curTag, 2, "calloc Elevation failed");
    out->elevation = nullptr;
    return -3;
  }
  *elev = elevation;
  out->elevation = elev;
  return 0;
}

int32_t v2xcodec_GBpraseMsgPos(const v2xapp_gbMsg_PosStr_t* p_msgPos, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D) {
  if (p_msgPos == nullptr || initPos3D == nullptr || outPos3D == nullptr) {
    GBLOG(&g_curTag, 2, "input param error");
    return -1;
  }
  const c_pos3D_t init = *initPos3D;
  outPos3D->posIsValid = true;
  if (p_msgPos->m_codeType == COMMON_POSCODETYPE_position_LatLon) {
    outPos3D->lon = p_msgPos->m_lon * 1e-7;
    outPos3D->lat = p_msgPos->m_lat * 1e-7;
  } else {
    outPos3D->lon = init.lon + p_msgPos->m_lon * 1e-7;
    outPos3D->lat = init.lat + p_msgPos->m_lat * 1e-7;
  }
  if (p_msgPos->m_isContainV) {
    outPos3D->elevIsValid = true;
    outPos3D->elevation = p_msgPos->m_elevType == COMMON_POSELETYPE_PR_elevation
                              ? p_msgPos->m_elev * 0.1
                              : init.elevation + p_msgPos->m_elev * 0.1;
  } else {
    outPos3D->elevIsValid = false;
  }
  return 0;
}

int32_t v2xcodec_GBsetMsgPos(const c_pos3D_t* currPos3D, const c_pos3D_t* refPos3D, v2xapp_gbMsg_PosStr_t* p_msgPos) {
  if (p_msgPos == nullptr) {
    GBLOG(&g_curTag, 2, "input para error");
    return -2;
  }
  PositionOffsetLLV_t offset{};
  const int32_t ret = setPosOffsetLLV(currPos3D, refPos3D, &offset);
  if (ret == 0) {
    *p_msgPos = v2xapp_gbMsg_PosStr_t{};
    gbmap::pointRecord(offset, *p_msgPos);
  }
  ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_PositionOffsetLLV, &offset);
  return ret;
}

int32_t v2xcodec_GBsetMsgPosOriginal(const v2xapp_gbMsg_PosStr_t* currPos, const v2xapp_gbMsg_PosStr_t* refPos,
                                     v2xapp_gbMsg_PosStr_t* p_msgPos) {
  if (currPos == nullptr || refPos == nullptr || p_msgPos == nullptr ||
      currPos->m_codeType != COMMON_POSCODETYPE_position_LatLon ||
      refPos->m_codeType != COMMON_POSCODETYPE_position_LatLon) {
    GBLOG(&g_curTag, 2, "input para error");
    return -2;
  }
  // The codec's positions, their elevations borrowed from the records.
  Elevation_t elev[2] = {static_cast<Elevation_t>(currPos->m_elev), static_cast<Elevation_t>(refPos->m_elev)};
  Position3D_t pos[2] = {};
  const v2xapp_gbMsg_PosStr_t* from[2] = {currPos, refPos};
  for (int i = 0; i < 2; ++i) {
    pos[i].lat = static_cast<Latitude_t>(from[i]->m_lat);
    pos[i].Long = static_cast<Longitude_t>(from[i]->m_lon);
    const bool hasElev = from[i]->m_isContainV && from[i]->m_elevType == COMMON_POSELETYPE_PR_elevation;
    pos[i].elevation = hasElev ? &elev[i] : nullptr;
  }
  PositionOffsetLLV_t offset{};
  const int32_t ret = setPosOffsetLLVOriginal(&pos[0], &pos[1], &offset);
  if (ret == 0) {
    *p_msgPos = v2xapp_gbMsg_PosStr_t{};
    gbmap::pointRecord(offset, *p_msgPos);
  }
  ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_PositionOffsetLLV, &offset);
  return ret;
}

}  // extern "C"
