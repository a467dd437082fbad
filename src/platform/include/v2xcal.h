/** \file v2xcal.h \brief Geographic conversions of the RSU: local plane coordinates, perpendicular feet, distances. */
/*
 * Angles are in degrees (latitude north, longitude east, WGS84), plane
 * coordinates and distances in metres.
 *
 * The local plane of an origin is its tangent plane: X points east, Y north,
 * and a position is placed on the plane by dropping it along the origin's
 * vertical (an orthographic view from above the origin). Positions are taken
 * at the origin's height. Within a few kilometres of the origin plane
 * distances are true to better than a millimetre per kilometre; far from it
 * (beyond a quarter of the Earth) the plane folds and has no use.
 *
 * Every operation returns 0 on success and -2 for a null result place or a
 * value that is not a number (or a latitude outside -90..90); the results are
 * then left untouched. The operations keep no state and may be called from
 * several threads at once.
 */
#ifndef V2XCAL_H
#define V2XCAL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A point of a local plane, in metres from the origin (X east, Y north). */
typedef struct v2xcal_xy {
  double m_x;
  double m_y;
} v2xcal_xy_t;

/* A geographic position in degrees. */
typedef struct v2xcal_lonlat {
  double m_lon;
  double m_lat;
} v2xcal_lonlat_t;

/*
 * Plane coordinates of (lon, lat) in the local plane of the origin
 * (origLon, origLat) at height origElev (metres; 0.0 for the ellipsoid).
 * The origin itself is (0, 0) exactly.
 */
int32_t v2xcal_GeoConvertLatLon2XY(double origLon, double origLat, double origElev, double lon, double lat,
                                   v2xcal_xy_t* xy);

/*
 * Inverse of v2xcal_GeoConvertLatLon2XY: the position whose plane
 * coordinates in the same plane are (x, y). (0, 0) gives the origin exactly.
 */
int32_t v2xcal_GeoConvertXY2LatLon(double origLon, double origLat, double origElev, double x, double y,
                                   v2xcal_lonlat_t* pos);

/*
 * Foot of the perpendicular from p onto the line through a and b, and
 * *inRange = 1 when the foot lies on the segment from a to b (both ends
 * included), else 0. A segment of zero length has no perpendicular: foot = a,
 * *inRange = 0.
 */
int32_t v2xcal_GeoIsLineFootPInRange(const v2xcal_xy_t* a, const v2xcal_xy_t* b, const v2xcal_xy_t* p,
                                     v2xcal_xy_t* foot, uint8_t* inRange);

/*
 * Geodesic between two positions on the WGS84 ellipsoid: *distance in metres;
 * *azi1 and *azi2, when not null, the forward azimuths (degrees clockwise from
 * north) at the first and at the second position.
 */
int32_t v2xcal_GeoInvertConv(double lon1, double lat1, double lon2, double lat2, double* distance, double* azi1,
                             double* azi2);

#ifdef __cplusplus
}
#endif

#endif
