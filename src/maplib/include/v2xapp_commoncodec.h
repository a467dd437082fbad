/**
 * \file v2xapp_commoncodec.h
 * \brief Bit strings and position offsets of MAP messages.
 *
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
 *
 * The calls that take the codec's own records (BITSTRING_HANDLE,
 * POSLLV_HANDLE, POS3D_HANDLE and the struct pointers) work on records of a
 * map message inside the library's sources and its codec; the installed
 * package does not carry those record types. Programs use the compact
 * record v2xapp_gbMsg_PosStr_t and c_pos3D_t instead: v2xcodec_GBsetMsgPos and
 * v2xcodec_GBsetMsgPosOriginal make offsets, v2xcodec_GBpraseMsgPos resolves
 * them, the point queries of v2xapp_gbmap_query.h read a map's points.
 *
 * Threads: no state; safe from any thread on records no other thread uses.
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

/** A BIT STRING of a map message (the codec's BIT_STRING_t), untyped. */
typedef void* BITSTRING_HANDLE;
/** A position offset of a map point (the codec's PositionOffsetLLV_t), untyped. */
typedef void* POSLLV_HANDLE;
/** An integer position (the codec's Position3D_t: 1e-7 degree, 0.1 m), untyped. */
typedef void* POS3D_HANDLE;

/** Plane-coordinate cache of a position (lane matching, point conversion). */
typedef struct c_posRefXY {
  double m_origLat;       /**< origin latitude, degrees */
  double m_origLon;       /**< origin longitude, degrees */
  double m_origElev;      /**< origin elevation, metres */
  double m_origAzimuth;   /**< azimuth of the plane's y axis, degrees */
  uint64_t m_posToXYTime; /**< when the cache was filled, ms (caller's clock) */
  double m_x;             /**< east of the origin, metres */
  double m_y;             /**< north of the origin, metres */
  bool m_zIsValid;        /**< m_z holds a height */
  double m_z;             /**< height above the origin, metres */
} c_posRefXY_t;

/** Floating-point position: lat/lon in degrees, elevation in metres. An
 * elevation of exactly 0.0 counts as "no elevation" for the offset setters. */
typedef struct c_pos3D {
  bool posIsValid;        /**< lat and lon hold a position */
  int8_t m_pos3DSrc;      /**< source tag of the caller's own; not read */
  double lat;             /**< latitude, degrees (-90..90) */
  double lon;             /**< longitude, degrees (-180..180) */
  bool elevIsValid;       /**< elevation holds a height */
  double elevation;       /**< elevation, metres */
  c_posRefXY_t m_posToXY; /**< plane-coordinate cache; not read by this library */
} c_pos3D_t;

/** Same values as the lat/lon offset choice (PositionOffsetLL). */
typedef enum COMMONPOSCODETYPE_ {
  COMMON_POSCODETYPE_NOTHING = 0,        /**< no position */
  COMMON_POSCODETYPE_position_LL1 = 1,   /**< offsets of 12 bits (+-2047) */
  COMMON_POSCODETYPE_position_LL2 = 2,   /**< offsets of 14 bits */
  COMMON_POSCODETYPE_position_LL3 = 3,   /**< offsets of 16 bits */
  COMMON_POSCODETYPE_position_LL4 = 4,   /**< offsets of 18 bits */
  COMMON_POSCODETYPE_position_LL5 = 5,   /**< offsets of 22 bits */
  COMMON_POSCODETYPE_position_LL6 = 6,   /**< offsets of 24 bits (+-8388607) */
  COMMON_POSCODETYPE_position_LatLon = 7 /**< absolute latitude and longitude */
} COMMONPOSCODETYPE_;

/** Same values as the vertical offset choice (VerticalOffset). */
typedef enum COMMONPOSELETYPE {
  COMMON_POSELETYPE_PR_NOTHING = 0,  /**< no vertical value */
  COMMON_POSELETYPE_PR_offset1 = 1,  /**< offset of 7 bits (+-6.3 m) */
  COMMON_POSELETYPE_PR_offset2 = 2,  /**< offset of 8 bits */
  COMMON_POSELETYPE_PR_offset3 = 3,  /**< offset of 9 bits */
  COMMON_POSELETYPE_PR_offset4 = 4,  /**< offset of 10 bits */
  COMMON_POSELETYPE_PR_offset5 = 5,  /**< offset of 11 bits */
  COMMON_POSELETYPE_PR_offset6 = 6,  /**< offset of 12 bits (+-204.7 m) */
  COMMON_POSELETYPE_PR_elevation = 7 /**< absolute elevation */
} COMMONPOSELETYPE;

/** Compact position as applications hold it: lat/lon in 1e-7 degree, offsets
 * unless m_codeType is position_LatLon; elevation in 0.1 m, an offset unless
 * m_elevType is elevation. */
typedef struct v2xapp_gbMsg_PosStr {
  uint8_t m_codeType; /**< a COMMONPOSCODETYPE_ value */
  int64_t m_lat;      /**< latitude or its offset, 1e-7 degree */
  int64_t m_lon;      /**< longitude or its offset, 1e-7 degree */
  bool m_isContainV;  /**< a vertical value is present */
  uint8_t m_elevType; /**< a COMMONPOSELETYPE value */
  int64_t m_elev;     /**< elevation or its offset, 0.1 m */
} v2xapp_gbMsg_PosStr_t;

/**
 * Stores the low avail_bit bits of *longData in a new buffer of the bit string
 * (big-endian, right-aligned: the value's least significant bit is the last
 * byte's least significant bit; the value is not shifted towards the first
 * bit). A previous buffer is not released. Returns 0.
 */
int32_t v2xcodec_long2BitString(const int64_t* longData, int8_t avail_bit, BITSTRING_HANDLE p_bitstring);
/** Inverse of the above for strings of up to three bytes (four when the first
 * byte is below 128); bits_unused is ignored. Returns 0. */
int32_t v2xcodec_bitString2Long(BITSTRING_HANDLE p_bitstring, int64_t* longData);

/**
 * Offset of currPos3D from the reference hpathPos3D in the smallest
 * alternative whose span holds it (absolute position beyond 0.8388607 degree),
 * then its vertical offset (setPosOffsetV). 0, or -2 for a null or non-finite
 * input.
 */
int32_t setPosOffsetLLV(const c_pos3D_t* currPos3D, const c_pos3D_t* hpathPos3D, POSLLV_HANDLE p_outPosOftllv);
/** Sets offsetV: null when either elevation is 0.0, else the height difference
 * in 0.1 m (absolute elevation from 204.7 m on). 0, -2 for a null or
 * non-finite input, -3 when no memory. */
int32_t setPosOffsetV(const c_pos3D_t* currPos3D, const c_pos3D_t* hpathPos3D, struct PositionOffsetLLV* outPosOftllv);
/** Integer variant of setPosOffsetLLV (1e-7 degree, bounds inclusive). */
int32_t setPosOffsetLLVOriginal(POS3D_HANDLE currPos3D, POS3D_HANDLE refPos3D, POSLLV_HANDLE p_outPosOftllv);
/** Integer variant of setPosOffsetV: null offsetV when either elevation is
 * absent, else the plain elevation difference (absolute from 204.7 m on).
 * Consumers must not rely on this variant for a meaningful relative height. */
int32_t setPosOffsetVOriginal(const struct Position3D* currPos3D, const struct Position3D* refPos3D,
                              struct PositionOffsetLLV* outPosOftllv);

/**
 * Absolute position of an offset record against initPos3D; marks outPos3D
 * valid, leaves its lat/lon when the choice is empty, then resolves offsetV
 * (prasePosOffsetV). 0, or -1 for a null argument.
 */
int32_t prasePosOffsetLLV(POSLLV_HANDLE p_posOftllv, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D);
/** Elevation of outPos3D from vertoft (may be null) against initPos3D; without
 * vertoft or a valid reference elevation the output has no elevation. 0, or
 * -1 for a null initPos3D or outPos3D. */
int32_t prasePosOffsetV(const struct VerticalOffset* vertoft, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D);
/** Integer variants; outPos3D's elevation gets a newly allocated value (the
 * previous pointer is dropped, not released). -3 when no memory. */
int32_t prasePosOffsetLLVOriginal(POSLLV_HANDLE p_posOftllv, POS3D_HANDLE initPos3D, POS3D_HANDLE outPos3D);
/** Integer variant of prasePosOffsetV. 0; -1 for a null initPos3D or
 *  outPos3D; -3 when no memory. */
int32_t prasePosOffsetVOriginal(const struct VerticalOffset* vertoft, POS3D_HANDLE initPos3D, POS3D_HANDLE outPos3D);

/** Absolute position of a compact record against initPos3D. 0, or -1. */
int32_t v2xcodec_GBpraseMsgPos(const v2xapp_gbMsg_PosStr_t* p_msgPos, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D);

/**
 * \brief Offset of currPos3D from the reference refPos3D as a compact record:
 *        the plain form of setPosOffsetLLV (same choice of kind, same vertical
 *        rule: no vertical value when either elevation is 0.0).
 * \param currPos3D the position (degrees, metres).
 * \param refPos3D the reference, usually the node's reference position.
 * \param p_msgPos receives m_codeType 1..6 with the offsets in 1e-7 degree, or
 *        7 with the absolute position beyond 0.8388607 degree; with a vertical
 *        value, m_elevType 1..6 and the offset in 0.1 m, or 7 and the elevation.
 * \return 0; -2 for a null argument or a position that is not a number.
 */
int32_t v2xcodec_GBsetMsgPos(const c_pos3D_t* currPos3D, const c_pos3D_t* refPos3D, v2xapp_gbMsg_PosStr_t* p_msgPos);
/**
 * \brief Integer form: offset of the absolute position currPos (m_codeType 7,
 *        1e-7 degree; elevation when m_isContainV and m_elevType 7, 0.1 m)
 *        from refPos, as setPosOffsetLLVOriginal chooses it (bounds inclusive,
 *        absolute beyond 8388607).
 * \return 0; -2 for a null argument or a record that is not absolute.
 */
int32_t v2xcodec_GBsetMsgPosOriginal(const v2xapp_gbMsg_PosStr_t* currPos, const v2xapp_gbMsg_PosStr_t* refPos,
                                     v2xapp_gbMsg_PosStr_t* p_msgPos);

#ifdef __cplusplus
}
#endif

#endif
