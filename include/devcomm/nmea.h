#pragma once

#include <devcomm/export.h>

#include <cstdint>

/// @file
/// NMEA 0183 sentences of a satellite receiver: classify, parse into records, fold the records into one
/// summary, and write sentences. Any two-letter talker is taken (GP, GN, BD, ...).
///
///     _nmeaINFO info = {};
///     _nmeaGPRMC rmc;
///     if (nmea_pack_type(line, len) == NMEA_RMC && nmea_parse_GPRMC(line, len, &rmc) == 1)
///       nmea_GPRMC2info(&rmc, &info);
///
/// Plain functions without state: any thread may call any of them on records of its own. Texts are given
/// with their length, need no terminating zero and may hold anything. Nothing is allocated. Latitude and
/// longitude stay as sent, degrees x 100 + minutes; dm2Degree of coordinates.h converts them.

/// Date and time in the calendar convention of the C library's struct tm.
struct _nmeaTIME
{
  int year; ///< years since 1900
  int mon;  ///< 0 to 11
  int day;  ///< 1 to 31
  int hour;
  int min;
  int sec;
  int hsec; ///< the digits after the seconds' point as a number: .5 gives 5, .50 gives 50
};

/// GGA: fix data.
struct _nmeaGPGGA
{
  _nmeaTIME utc; ///< hour, min, sec and hsec only
  double lat;    ///< ddmm.mmmm
  char ns;
  double lon; ///< dddmm.mmmm
  char ew;
  int sig; ///< fix quality
  int satinuse;
  double HDOP;
  double elv; ///< antenna altitude
  char elv_units;
  double diff; ///< geoid separation
  char diff_units;
  double dgps_age; ///< seconds
  int dgps_sid;
};

/// GSA: active satellites.
struct _nmeaGPGSA
{
  char fix_mode; ///< 'A' automatic, 'M' manual
  int fix_type;  ///< 1 none, 2 two-dimensional, 3 three-dimensional
  int sat_prn[12];
  double PDOP;
  double HDOP;
  double VDOP;
};

/// One satellite.
struct _nmeaSATELLITE
{
  int id;      ///< PRN
  int in_use;  ///< 0 or 1
  int elv;     ///< elevation, degrees
  int azimuth; ///< degrees
  int sig;     ///< signal-to-noise, dB
};

/// GSV: satellites in view, up to four a sentence.
struct _nmeaGPGSV
{
  int pack_count;
  int pack_index; ///< from 1
  int sat_count;  ///< in all sentences of the group
  _nmeaSATELLITE sat_data[4];
};

/// RMC: recommended minimum.
struct _nmeaGPRMC
{
  _nmeaTIME utc;
  char status; ///< 'A' valid, 'V' void
  double lat;  ///< ddmm.mmmm
  char ns;
  double lon; ///< dddmm.mmmm
  char ew;
  double speed;       ///< knots
  double direction;   ///< degrees true
  double declination; ///< magnetic variation, degrees
  char declin_ew;
  char mode;
};

/// VTG: course and speed.
struct _nmeaGPVTG
{
  double dir; ///< degrees true
  char dir_t;
  double dec; ///< degrees magnetic
  char dec_m;
  double spn; ///< knots
  char spn_n;
  double spk; ///< km/h
  char spk_k;
};

/// Satellites of the summary. `inview` is what the sentences said and may exceed the 12 places.
struct _nmeaSATINFO
{
  int inuse;
  int inview;
  _nmeaSATELLITE sat[12];
};

/// The summary of all sentences folded so far. The caller zeroes it before the first.
struct _nmeaINFO
{
  int32_t reserved; ///< left alone
  int smask;        ///< 1 << kind of each sentence folded in
  _nmeaTIME utc;
  int sig; ///< 0 bad, 2 medium, else as GGA sends it
  int fix; ///< 1 none, 2 two-dimensional, 3 three-dimensional
  double PDOP;
  double HDOP;
  double VDOP;
  double lat;         ///< ddmm.mmmm, negative for south
  double lon;         ///< dddmm.mmmm, negative for west
  double elv;         ///< metres
  double speed;       ///< km/h
  double direction;   ///< degrees true
  double declination; ///< degrees
  _nmeaSATINFO satinfo;
};

/// Sentence kinds; the first five are parsed, and their number is their bit in `smask`.
enum NmeaKind
{
  NMEA_RMC,
  NMEA_GSA,
  NMEA_GSV,
  NMEA_GGA,
  NMEA_VTG,
  NMEA_GLL,
  NMEA_ZDA,
  NMEA_KIND_UNKNOWN
};

/// Talkers.
enum NmeaTalker
{
  NMEA_GP,
  NMEA_GN,
  NMEA_BD,
  NMEA_TALKER_UNKNOWN
};

/// @return the NmeaTalker of a sentence; unknown without a '$' in front or below 6 bytes
DEVCOMM_API int nmea_pack_id(const char* s, int len);

/// @return the NmeaKind of a sentence of any talker; unknown without a '$' in front or below 6 bytes
DEVCOMM_API int nmea_pack_type(const char* s, int len);

/// @return the exclusive or of len bytes, 0 to 255; 0 when len is below 1
DEVCOMM_API int nmea_calc_crc(const char* s, int len);

/// strtol of a text without terminator.
/// @return the number, cut to 32 bits on every machine; 0 when len is below 1 or above 255
DEVCOMM_API int nmea_atoi(const char* s, int len, int radix);

/// strtod of a text without terminator; the point is '.'.
/// @return the number; 0.0 when len is below 1 or above 255
DEVCOMM_API double nmea_atof(const char* s, int len);

/// Writes a sentence and appends "*hh\r\n", the checksum of all but its first character in lower case.
///
/// @param size  bytes of buf; below 1 writes nothing and returns 0
/// @return the length written; size when the sentence needs more, and then buf is filled with spaces,
///         without a terminator. A sentence of exactly size bytes loses its last one to the terminator.
DEVCOMM_API int nmea_printf(char* buf, int size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/// Takes a text apart.
///
/// In the format '?' matches any character, '%' starts a directive, and all else must be there. A directive
/// is an optional width and a letter: c C (char*), s S (char*, unbounded: the buffer must hold len + 1),
/// e E f g G (double*), d i (int*), u (unsigned*), x X (unsigned*, hexadecimal), o (unsigned*, octal). With
/// a width it takes exactly so many characters; without, all up to the character that follows the letter in
/// the format, or to the end when that is missing; c without a width takes one character unless it is
/// that follower. Nothing is stored for an empty field or through a null pointer.
///
/// @return directives matched, empty ones included; 0 for a null text or format, or a len below 1
DEVCOMM_API int nmea_scanf(const char* buf, int len, const char* format, ...);

/// The time now in UTC, hsec 0. @return 0
DEVCOMM_API int nmea_time_now(_nmeaTIME* t);

/// A time in UTC, hsec 0. @param when  seconds since 1970; a year that does not fit an int zeroes *t
/// @return 0
DEVCOMM_API int nmea_time_from(_nmeaTIME* t, long when);

/// Seconds since 1970 of *t taken as local time (unlike the two functions above; callers rely on it), the
/// daylight saving of the zone applied. @return -1 when it cannot be told or t is null
DEVCOMM_API long nmea_time_to(_nmeaTIME* t);

/// Time of day: "hhmmss", or with a point and one to three digits.
/// @return 0; -1 for another length or form, with the fields before the fault already set
DEVCOMM_API int _nmea_parse_time(const char* s, int len, _nmeaTIME* t);

/// Parses a sentence into a record, which is zeroed first. Fields beyond the record's are not looked at,
/// nor is the checksum.
///
/// @return 1 when the sentence was taken. 0 when not, after a line on standard output such as
///         "GPGGA parse error!" (without one when only the time of day is at fault); a null pointer is
///         reported on standard error
DEVCOMM_API int nmea_parse_GPGGA(const char* s, int len, _nmeaGPGGA* p);

/// As nmea_parse_GPGGA. Satellites that are not there stay 0.
DEVCOMM_API int nmea_parse_GPGSA(const char* s, int len, _nmeaGPGSA* p);

/// As nmea_parse_GPGGA. The last sentence of a group may hold less than four satellites.
DEVCOMM_API int nmea_parse_GPGSV(const char* s, int len, _nmeaGPGSV* p);

/// As nmea_parse_GPGGA. The date may be the last field; a bad time of day is taken when the status is not
/// 'A'. Years 90 to 99 are of the last century.
DEVCOMM_API int nmea_parse_GPRMC(const char* s, int len, _nmeaGPRMC* p);

/// As nmea_parse_GPGGA; unit letters other than T, M, N, K give 0 without a line.
DEVCOMM_API int nmea_parse_GPVTG(const char* s, int len, _nmeaGPVTG* p);

/// Folds a record into the summary: time of day, sig, HDOP, altitude and signed position.
/// @return 1; 0 for a null pointer, after a report on standard error
DEVCOMM_API int nmea_GPGGA2info(_nmeaGPGGA* p, _nmeaINFO* info);

/// Folds fix type, dilutions and satellites in use; the use flags of earlier sentences are not cleared.
/// @return as nmea_GPGGA2info
DEVCOMM_API int nmea_GPGSA2info(_nmeaGPGSA* p, _nmeaINFO* info);

/// Folds the satellites of the first three sentences of a group; a fourth changes nothing. A pack_index
/// below 1 becomes 1 in the record. @return as nmea_GPGGA2info
DEVCOMM_API int nmea_GPGSV2info(_nmeaGPGSV* p, _nmeaINFO* info);

/// Folds date and time, signed position, speed in km/h and direction; status 'V' takes back signal and fix.
/// @return as nmea_GPGGA2info
DEVCOMM_API int nmea_GPRMC2info(_nmeaGPRMC* p, _nmeaINFO* info);

/// Folds speed, direction and declination. @return as nmea_GPGGA2info
DEVCOMM_API int nmea_GPVTG2info(_nmeaGPVTG* p, _nmeaINFO* info);
