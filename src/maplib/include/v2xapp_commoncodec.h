/** \file v2xapp_commoncodec.h \brief Bit strings and position offsets of MAP messages. */
/*
 * Common codec helpers of the MAP library: small integers to and from the
 * message set's BIT STRING members, and absolute positions to and from the
 * PositionOffsetLLV choice relative to a reference position.
 *
 * Two families of position conversions:
 * - floating-point positions (c_pos3D_t: degrees, metres);
 * - integer positions (Position3D_t: 1e-7 degree, 0.1 m), the "Original"
 *   variants.
 *
 * The setters attach freshly allocated values (BIT STRING buffers, vertical
 * offsets, elevations) to the output record and never release what it held
 * before: hand them zero-filled records. Everything they attach is released
 * by the codec's structure free of the enclosing tree.
 *
 * Plain C interface; the codec's generated types are only named here.
 */
#ifndef V2XAPP_COMMONCODEC_H
#define V2XAPP_COMMONCODEC_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct PositionOffsetLLV;
struct VerticalOffset;
struct Position3D;

/* Untyped handles: a BIT_STRING_t, a PositionOffsetLLV_t, a Position3D_t. */
typedef void* BITSTRING_HANDLE;
typedef void* POSLLV_HANDLE;
typedef void* POS3D_HANDLE;

/* Plane-coordinate cache of a position (lane matching, point conversion). */
typedef struct c_posRefXY {
  double m_origLat;
  double m_origLon;
  double m_origElev;
  double m_origAzimuth;
  uint64_t m_posToXYTime;
  double m_x;
  double m_y;
  bool m_zIsValid;
  double m_z;
} c_posRefXY_t;

/* Floating-point position: lat/lon in degrees, elevation in metres. An
 * elevation of exactly 0.0 counts as "no elevation" for the offset setters. */
typedef struct c_pos3D {
  bool posIsValid;
  int8_t m_pos3DSrc;
  double lat;
  double lon;
  bool elevIsValid;
  double elevation;
  c_posRefXY_t m_posToXY;
} c_pos3D_t;

/* Same values as the lat/lon offset choice (PositionOffsetLL). */
typedef enum COMMONPOSCODETYPE_ {
  COMMON_POSCODETYPE_NOTHING = 0,
  COMMON_POSCODETYPE_position_LL1 = 1,
  COMMON_POSCODETYPE_position_LL2 = 2,
  COMMON_POSCODETYPE_position_LL3 = 3,
  COMMON_POSCODETYPE_position_LL4 = 4,
  COMMON_POSCODETYPE_position_LL5 = 5,
  COMMON_POSCODETYPE_position_LL6 = 6,
  COMMON_POSCODETYPE_position_LatLon = 7
} COMMONPOSCODETYPE_;

/* Same values as the vertical offset choice (VerticalOffset). */
typedef enum COMMONPOSELETYPE {
  COMMON_POSELETYPE_PR_NOTHING = 0,
  COMMON_POSELETYPE_PR_offset1 = 1,
  COMMON_POSELETYPE_PR_offset2 = 2,
  COMMON_POSELETYPE_PR_offset3 = 3,
  COMMON_POSELETYPE_PR_offset4 = 4,
  COMMON_POSELETYPE_PR_offset5 = 5,
  COMMON_POSELETYPE_PR_offset6 = 6,
  COMMON_POSELETYPE_PR_elevation = 7
} COMMONPOSELETYPE;

/* Compact position as applications hold it: lat/lon in 1e-7 degree, offsets
 * unless m_codeType is position_LatLon; elevation in 0.1 m, an offset unless
 * m_elevType is elevation. */
typedef struct v2xapp_gbMsg_PosStr {
  uint8_t m_codeType;
  int64_t m_lat;
  int64_t m_lon;
  bool m_isContainV;
  uint8_t m_elevType;
  int64_t m_elev;
} v2xapp_gbMsg_PosStr_t;

/*
 * Stores the low avail_bit bits of *longData in a new buffer of the bit string
 * (big-endian, right-aligned: the value's least significant bit is the last
 * byte's least significant bit; the value is not shifted towards the first
 * bit). A previous buffer is not released. Returns 0.
 */
int32_t v2xcodec_long2BitString(const int64_t* longData, int8_t avail_bit, BITSTRING_HANDLE p_bitstring);
/* Inverse of the above for strings of up to three bytes (four when the first
 * byte is below 128); bits_unused is ignored. Returns 0. */
int32_t v2xcodec_bitString2Long(BITSTRING_HANDLE p_bitstring, int64_t* longData);

/*
 * Offset of currPos3D from the reference hpathPos3D in the smallest
 * alternative whose span holds it (absolute position beyond 0.8388607 degree),
 * then its vertical offset (setPosOffsetV). 0, or -2 for a null or non-finite
 * input.
 */
int32_t setPosOffsetLLV(const c_pos3D_t* currPos3D, const c_pos3D_t* hpathPos3D, POSLLV_HANDLE p_outPosOftllv);
/* Sets offsetV: null when either elevation is 0.0, else the height difference
 * in 0.1 m (absolute elevation from 204.7 m on). 0, -2 for a null or
 * non-finite input, -3 when no memory. */
int32_t setPosOffsetV(const c_pos3D_t* currPos3D, const c_pos3D_t* hpathPos3D, struct PositionOffsetLLV* outPosOftllv);
/* Integer variant of setPosOffsetLLV (1e-7 degree, bounds inclusive). */
int32_t setPosOffsetLLVOriginal(POS3D_HANDLE currPos3D, POS3D_HANDLE refPos3D, POSLLV_HANDLE p_outPosOftllv);
/* Integer variant of setPosOffsetV: null offsetV when either elevation is
 * absent, else the plain elevation difference (absolute from 204.7 m on).
 * Consumers must not rely on this variant for a meaningful relative height. */
int32_t setPosOffsetVOriginal(const struct Position3D* currPos3D, const struct Position3D* refPos3D,
                              struct PositionOffsetLLV* outPosOftllv);

/*
 * Absolute position of an offset record against initPos3D; marks outPos3D
 * valid, leaves its lat/lon when the choice is empty, then resolves offsetV
 * (prasePosOffsetV). 0, or -1 for a null argument.
 */
int32_t prasePosOffsetLLV(POSLLV_HANDLE p_posOftllv, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D);
/* Elevation of outPos3D from vertoft (may be null) against initPos3D; without
 * vertoft or a valid reference elevation the output has no elevation. 0, or
 * -1 for a null initPos3D or outPos3D. */
int32_t prasePosOffsetV(const struct VerticalOffset* vertoft, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D);
/* Integer variants; outPos3D's elevation gets a newly allocated value (the
 * previous pointer is dropped, not released). -3 when no memory. */
int32_t prasePosOffsetLLVOriginal(POSLLV_HANDLE p_posOftllv, POS3D_HANDLE initPos3D, POS3D_HANDLE outPos3D);
int32_t prasePosOffsetVOriginal(const struct VerticalOffset* vertoft, POS3D_HANDLE initPos3D, POS3D_HANDLE outPos3D);

/* Absolute position of a compact record against initPos3D. 0, or -1. */
int32_t v2xcodec_GBpraseMsgPos(const v2xapp_gbMsg_PosStr_t* p_msgPos, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D);

#ifdef __cplusplus
}
#endif

#endif
