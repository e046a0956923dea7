#include <devcomm/nmea.h>

#include "support/measure.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>

namespace
{

std::mt19937 random_numbers(183);

int below(int limit)
{
  return static_cast<int>(random_numbers() % static_cast<unsigned>(limit));
}

// Parses and folds whatever the text is said to be; -1 when it is of no kind that is parsed.
int take(const std::string& text, _nmeaINFO* info)
{
  const std::unique_ptr<char[]> line(new char[text.size()]); // so that a sanitizer sees its end
  memcpy(line.get(), text.data(), text.size());
  const int len = static_cast<int>(text.size());
  const auto fold = [&](auto record, auto parse, auto to_info)
  {
    return parse(line.get(), len, &record) == 1 && to_info(&record, info) == 1 ? 1 : 0;
  };
  const int type = nmea_pack_type(line.get(), len);
  return type == NMEA_RMC   ? fold(_nmeaGPRMC(), nmea_parse_GPRMC, nmea_GPRMC2info)
         : type == NMEA_GSA ? fold(_nmeaGPGSA(), nmea_parse_GPGSA, nmea_GPGSA2info)
         : type == NMEA_GSV ? fold(_nmeaGPGSV(), nmea_parse_GPGSV, nmea_GPGSV2info)
         : type == NMEA_GGA ? fold(_nmeaGPGGA(), nmea_parse_GPGGA, nmea_GPGGA2info)
         : type == NMEA_VTG ? fold(_nmeaGPVTG(), nmea_parse_GPVTG, nmea_GPVTG2info)
                            : -1;
}

int take_with_line(const std::string& text, const char* expected)
{
  _nmeaINFO info = {};
  CaptureStdout();
  const int taken = take(text, &info);
  EXPECT_EQ(GetCapturedStdout(), expected) << text;
  return taken;
}

// A sentence of one of the five kinds, with any digits.
std::string sentence(int kind)
{
  const char* const forms[] = {"$GNRMC,1#4#5#.###,A,####.####,N,####.#####,W,##.#,3##.#,1#0###,,,A",
                               "$GPGSA,A,#,##,##,,,,,,,,,,,2.1,1.2,1.7",
                               "$BDGSV,3,#,12,1,2,3,4,5,6,7,,9,10,11,12,13,14,15,16",
                               "$GPGGA,121252,####.####,S,####.####,E,1,05,2.0,-45.9,M,-5.7,M,,0000",
                               "$GPVTG,3##.7,T,,M,022.4,N,1##.5,K"};
  std::string form = forms[kind];
  for (char& c : form)
    c = c == '#' ? static_cast<char>('0' + below(10)) : c;
  char text[256];
  nmea_printf(text, sizeof text, "%s", form.c_str());
  return text;
}

} // namespace

TEST(Nmea, ReadsSentencesIntoOneSummary)
{
  _nmeaINFO info = {};
  info.reserved = 77;
  EXPECT_EQ(take("$GPGSV,3,1,10,14,02,213,,15,03,000,,05,11,000,40,22,42,067,42*73\r\n", &info), 1);
  EXPECT_EQ(take("$GPGSV,3,3,10,29,07,074,,30,07,163,28*7D", &info), 1);
  EXPECT_EQ(take("$GPGSA,A,3,14,15,05,99,30,,,,,,,,2.1,1.2,1.7*3D\r\n", &info), 1);
  EXPECT_EQ(take("$GNGGA,123519.50,3937.3032,S,11611.6046,E,1,05,2.0,45.9,M,-5.7,M,,0000*77\r\n", &info), 1);
  EXPECT_TRUE(info.satinfo.inview == 10 && info.satinfo.inuse == 4 && info.smask == 14);
  EXPECT_TRUE(info.satinfo.sat[1].in_use == 1 && info.satinfo.sat[3].in_use == 0);
  EXPECT_TRUE(info.satinfo.sat[9].id == 30 && info.satinfo.sat[9].sig == 28 && info.satinfo.sat[8].sig == 0);
  EXPECT_TRUE(info.fix == 3 && info.PDOP == 2.1 && info.HDOP == 2.0 && info.VDOP == 1.7);
  EXPECT_TRUE(info.lat == -3937.3032 && info.lon == 11611.6046 && info.elv == 45.9 && info.sig == 1);
  EXPECT_TRUE(info.utc.hour == 12 && info.utc.sec == 19 && info.utc.hsec == 50 && info.utc.year == 0);

  EXPECT_EQ(take("$GPRMC,010101.130,A,3606.6834,N,12021.7778,W,25.0,238.3,010807,,,", &info), 1);
  EXPECT_TRUE(info.utc.year == 107 && info.utc.mon == 7 && info.utc.day == 1 && info.utc.hsec == 130);
  EXPECT_TRUE(info.lat == 3606.6834 && info.lon == -12021.7778 && info.speed == 25.0 * 1.852);
  EXPECT_EQ(take("$GPRMC,,V,,,,,,,010195", &info), 1) << "void, bad time, the date last";
  EXPECT_TRUE(info.utc.year == 95 && info.sig == 0 && info.fix == 1 && info.lat == 0);
  EXPECT_EQ(take("$GPRMC,010101,A,3606.6834,N,12021.7778,E,25.0,238.3,010807", &info), 1);
  EXPECT_TRUE(info.sig == 2 && info.fix == 2);
  EXPECT_EQ(take("$GPVTG,054.7,T,034.4,M,005.5,N,010.2,K*48\r\n", &info), 1);
  EXPECT_TRUE(info.speed == 10.2 && info.direction == 54.7 && info.declination == 34.4);
  EXPECT_TRUE(info.smask == 31 && info.reserved == 77);

  EXPECT_EQ(take_with_line("$GPVTG,054.7,,034.4,M,005.5,N,010.2,K*48", ""), 0);
  EXPECT_EQ(take_with_line("$GPVTG,054.7,T,034.4,M", "GPVTG parse error!\n"), 0);
  EXPECT_EQ(take_with_line("$GPRMC,,V,,,,,,", "GPRMC parse error len=7!\n"), 0);
  EXPECT_EQ(take_with_line("$GPRMC,0101,A,1,N,1,E,1,2,010807", "GPRMC time parse error!\n"), 0);
  EXPECT_EQ(take_with_line("$GPGSV,3,3,10,29,07,074,,30,07", "GPGSV parse error!\n"), 0);
  EXPECT_EQ(take_with_line("$GPGGA,1212521,1,N,1,E,1,05,2.0,45.9,M,-5.7,M,,0000*", ""), 0) << "7 digits";
  EXPECT_TRUE(nmea_pack_id("$BDGGA", 6) == NMEA_BD && nmea_pack_id("$XXGGA", 6) == NMEA_TALKER_UNKNOWN);
  EXPECT_TRUE(nmea_pack_type("$GNXYZ", 6) == 7 && nmea_pack_type("$GPZDA", 6) == 6 &&
              nmea_pack_type("$GPZDA", 5) == 7);
}

TEST(Nmea, KeepsSatellitesInsideTheirPlaces)
{
  _nmeaINFO info = {};
  _nmeaGPGSV gsv = {
      INT_MAX, 0, INT_MAX, {{7, 0, 1, 2, 3}, {7, 1, 0, 0, 0}, {8, 0, 0, 0, 0}, {9, 0, 0, 0, 0}}};
  nmea_GPGSV2info(&gsv, &info);
  EXPECT_EQ(gsv.pack_index, 1);
  gsv.pack_index = 4;
  gsv.sat_count = 1;
  nmea_GPGSV2info(&gsv, &info);
  EXPECT_EQ(info.satinfo.inview, INT_MAX) << "a fourth sentence changes nothing";
  _nmeaGPGSA gsa = {};
  gsa.sat_prn[11] = 7;
  nmea_GPGSA2info(&gsa, &info);
  EXPECT_EQ(info.satinfo.inuse, 2) << "both places of satellite 7";
  gsv = {3, 2, -5, {}};
  nmea_GPGSV2info(&gsv, &info);
  nmea_GPGSA2info(&gsa, &info);
  EXPECT_TRUE(info.satinfo.inview == -5 && info.satinfo.inuse == 0);

  CaptureStderr();
  EXPECT_EQ(nmea_parse_GPGSA(nullptr, 3, &gsa) + nmea_GPVTG2info(nullptr, &info), 0);
  const std::string report = GetCapturedStderr();
  EXPECT_NE(report.find("  >ERROR, assert failed (source/comm_gps/nmea_parse.cpp:408)"), std::string::npos);
  EXPECT_NE(report.find("source/comm_gps/nmea_fold.cpp:693)"), std::string::npos);
}

TEST(Nmea, ScansByWidthAndSeparator)
{
  char text[16] = "?";
  char c[2] = {'x', 'x'};
  int i[3] = {9, 9, 9};
  unsigned u = 9;
  EXPECT_EQ(nmea_scanf("abc,,7f,", 8, "%s,%C,%x,%d", text, c, &u, i), 3) << "nothing is left for the last";
  EXPECT_TRUE(strcmp(text, "abc") == 0 && c[0] == 'x' && u == 0x7f && i[0] == 9);
  EXPECT_EQ(nmea_scanf("123456", 6, "%2d%3d%2d", i, i + 1, i + 2), 2);
  EXPECT_TRUE(i[0] == 12 && i[1] == 345 && i[2] == 9);
  EXPECT_EQ(nmea_scanf("12", 2, "%99999999999999999999d", i), 0);
  EXPECT_EQ(nmea_scanf("AB1", 3, "%c%C%d", c, c + 1, nullptr), 3);
  EXPECT_TRUE(c[0] == 'A' && c[1] == 'B');
  EXPECT_EQ(nmea_scanf("1,2", 3, "%q,%d", i, i), 1);
  EXPECT_EQ(nmea_scanf("1", 1, "%"), 0);
  EXPECT_EQ(nmea_scanf("1", -1, "%d", i), 0);

  EXPECT_EQ(nmea_atoi("99999999999", 11, 10), INT_MAX);
  EXPECT_EQ(nmea_atoi("-99999999999", 12, 10), INT_MIN);
  EXPECT_EQ(nmea_atoi("FFFFFFFF", 8, 16), INT_MAX);
  EXPECT_EQ(nmea_atoi(" 12x", 4, 10), 12);
  EXPECT_EQ(nmea_atoi("123", 2, 10), 12);
  EXPECT_EQ(nmea_atoi(std::string(256, '1').c_str(), 256, 10), 0);
  for (int round = 0; round < 50000; round++)
  {
    std::string number;
    for (int left = below(24); left > 0; left--)
      number += round % 2 == 0 ? "0123456789"[below(10)] : "0123456789.-+e "[below(15)];
    if (round % 2 == 0)
      number.insert(static_cast<size_t>(below(static_cast<int>(number.size()) + 1)), ".");
    const double got = nmea_atof(number.data(), static_cast<int>(number.size()));
    const double expected = strtod(number.c_str(), nullptr);
    ASSERT_EQ(memcmp(&got, &expected, sizeof got), 0) << number;
  }
}

TEST(Nmea, WritesWithinItsBuffer)
{
  char buf[20];
  EXPECT_EQ(nmea_printf(buf, sizeof buf, "$%s", "GPTXT,\x80"), 13);
  EXPECT_STREQ(buf, "$GPTXT,\x80*e3\r\n");
  EXPECT_EQ(nmea_printf(buf, sizeof buf, "$GPTXT,12345678"), 20);
  EXPECT_STREQ(buf, "$GPTXT,12345678*6b\r") << "just as long as the buffer";
  for (const char* text : {"$GPTXT,123456789", "$GPTXT,1234567890123", "$GPTXT,12345678901234567"})
  {
    EXPECT_EQ(nmea_printf(buf, 19, "%s", text), 19);
    EXPECT_EQ(std::string(buf, 20), std::string(19, ' ') + '\0');
  }
  EXPECT_EQ(nmea_printf(buf, 0, "x"), 0);
  EXPECT_EQ(nmea_printf(buf, 9, "%s", ""), 0);

  _nmeaTIME t = {};
  nmea_time_from(&t, 951782400 + 3661);
  EXPECT_TRUE(t.year == 100 && t.mon == 1 && t.day == 29 && t.hour == 1 && t.min == 1 && t.sec == 1);
  setenv("TZ", "XYZ-8", 1);
  tzset();
  EXPECT_EQ(nmea_time_to(&t), 951782400 + 3661 - 8 * 3600) << "taken as local time";
}

// What the parsers make of these is open; that they stay inside their buffers is not.
TEST(Nmea, SurvivesEveryPrefixEveryFlippedBitAndOverlongFields)
{
  CaptureStdout();
  _nmeaINFO info = {};
  int whole = 0;
  for (int round = 0; round < 1000; round++)
  {
    const std::string text = sentence(round % 5);
    whole += take(text, &info);
    for (size_t cut = 0; cut < text.size(); cut++)
      take(text.substr(0, cut), &info);
    for (size_t bit = 0; bit < text.size() * 8; bit++)
    {
      std::string flipped = text;
      flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
      take(flipped, &info);
    }
  }
  for (const char* kind : {"RMC", "GSA", "GSV", "GGA", "VTG"})
  {
    for (char filler : {'9', 'A', ',', '-', '\0', '.'})
      take(std::string("$GP") + kind + "," + std::string(10000, filler) + ",A,1,N,1,E,1,1,010101,1,W,A",
           &info);
  }
  GetCapturedStdout();
  EXPECT_EQ(whole, 1000);
}
