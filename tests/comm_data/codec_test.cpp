#include <devcomm/codec.h>
#include <devcomm/time_process.h>

#include "comm_data/frame_escape.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

namespace
{

using Bytes = std::vector<unsigned char>;

// The output is exactly as large as the result, so that a sanitizer sees one byte more.
Bytes converted(decltype(bb_encode) convert, Bytes in, size_t size)
{
  Bytes out(size);
  EXPECT_EQ(convert(in.data(), static_cast<int>(in.size()), out.data(), 0), static_cast<int>(size));
  return out;
}

std::string bcd_text(const char* digits, int n)
{
  Bytes bcd(static_cast<size_t>(n));
  EXPECT_EQ(string2bcd(digits, bcd.data(), n), 0);
  std::string text(2 * bcd.size() + 1, 'x');
  EXPECT_EQ(bcd2string(bcd.data(), n, text.data()), text.data());
  return text.c_str();
}

} // namespace

TEST(Codec, EscapesKnownFrames)
{
  const Bytes frame = {0x7E, 0x30, 0x7E, 0x08, 0x7D, 0x55, 0x7E};
  const Bytes wire = {0x7E, 0x30, 0x7D, 0x02, 0x08, 0x7D, 0x01, 0x55, 0x7E};
  EXPECT_EQ(converted(bb_encode, frame, wire.size()), wire);
  EXPECT_EQ(converted(bb_decode, wire, frame.size()), frame);
  EXPECT_EQ(converted(bb_decode, {0x7E, 0x7D, 0x03, 0x7E}, 4), (Bytes{0x7E, 0x7D, 0x03, 0x7E}));
  EXPECT_EQ(converted(bb_decode, {0x7E, 0x7D, 0x7D, 0x02, 0x7E}, 4), (Bytes{0x7E, 0x7D, 0x7E, 0x7E}));
  EXPECT_EQ(converted(bb_decode, {0x7E, 0x7D, 0x02}, 2), (Bytes{0x7E, 0x7E})); // a pair for the closing flag

  Bytes two = {1, 2};
  Bytes out = {9, 9, 9};
  EXPECT_EQ(bb_encode(two.data(), 1, out.data(), 0), 2);
  EXPECT_EQ(out, (Bytes{1, 2, 9}));
  EXPECT_EQ(bb_decode(two.data(), -5, out.data(), 3), 0);
  EXPECT_EQ(bb_encode(nullptr, 3, out.data(), 3), 0);
}

TEST(Codec, FastEscapingEqualsThePlainLoopForEveryDensity)
{
  std::mt19937 random(7);
  for (unsigned special : {0U, 1U, 8U, 128U, 256U})
  {
    for (size_t size = 3; size < 200; ++size)
    {
      Bytes body(size);
      for (unsigned char& c : body)
        c = static_cast<unsigned char>(random() % 256 < special ? 0x7D + random() % 2 : random());
      Bytes plain(2 * size);
      EscapeCursor at = escape_plain(body.data(), static_cast<int>(size) - 1, plain.data(), {1, 1});
      plain[0] = body[0];
      plain[static_cast<size_t>(at.out)] = body.back();
      plain.resize(static_cast<size_t>(at.out) + 1);
      ASSERT_EQ(converted(bb_encode, body, plain.size()), plain);
      ASSERT_EQ(converted(bb_decode, plain, size), body);
      ASSERT_EQ(bb_decode(plain.data(), int(plain.size()), plain.data(), 0), int(size));
      plain.resize(size);
      ASSERT_EQ(plain, body) << "in place";
    }
  }
}

TEST(Codec, ChecksumsAreUnsignedAndTakeEveryByte)
{
  Bytes bytes(1001, 0xFF);
  bytes[500] = 0x0F;
  EXPECT_EQ(get_xor_crc_uchar(bytes.data(), 1001), 0x0F);
  EXPECT_EQ(get_xor_crc_char(reinterpret_cast<char*>(bytes.data()), 1000), 0xF0);
  EXPECT_EQ(calc_sum_u32(bytes.data(), 1001), 255015U);
  EXPECT_EQ(calc_sum(bytes.data(), 1001), 255015U % 256);
  EXPECT_EQ(calc_sum_u32(bytes.data(), 0) + calc_sum(bytes.data(), -1) + get_xor_crc_uchar(nullptr, 4), 0U);
}

TEST(Codec, PacksAndUnpacksBcdText)
{
  EXPECT_EQ(bcd_text("123", 2), "0123");
  EXPECT_EQ(bcd_text("123456", 2), "1234");
  EXPECT_EQ(bcd_text("", 2), "0000");
  EXPECT_EQ(bcd_text("J?", 1), ":?") << "letters give their low four bits";
  EXPECT_EQ(bcd_text(std::string(1000, '7').c_str(), 300), std::string(600, '7'));
  unsigned char own[] = "98765";
  EXPECT_EQ(string2bcd(reinterpret_cast<char*>(own), own, 3), 0);
  EXPECT_EQ(Bytes(own, own + 3), (Bytes{0x09, 0x87, 0x65})) << "in the text's own place";
  unsigned char byte = 0x42;
  char text[3] = "ab";
  EXPECT_EQ(string2bcd("1", &byte, 0), -1);
  EXPECT_EQ(string2bcd(nullptr, &byte, 1), -1);
  EXPECT_EQ(bcd2string(&byte, -1, text), text);
  EXPECT_STREQ(text, "ab");
}

TEST(Codec, CarriesTimesAsBcd)
{
  setenv("TZ", "XST-3:30", 1);
  tzset();
  const auto t = static_cast<long>(mktime_ex(2021, 3, 23, 8, 5, 9));
  Bytes bcd(6);
  EXPECT_EQ(time2bcd(t, bcd.data()), 0);
  EXPECT_EQ(bcd, (Bytes{0x21, 0x03, 0x23, 0x08, 0x05, 0x09}));
  EXPECT_EQ(bcd2time(bcd.data()), t);
  time2bcd(915148800, bcd.data()); // in 1999
  EXPECT_EQ(bcd[0], 0x95) << "years before 2000 wrap";

  Bytes can(5);
  EXPECT_EQ(canbustime2bcd(can.data(), static_cast<int>(t)), 0);
  EXPECT_EQ(Bytes(can.begin(), can.begin() + 3), (Bytes{0x08, 0x05, 0x09}));
  EXPECT_TRUE(can[3] <= 9 && (can[4] & 0x0F) <= 9 && can[4] >> 4 <= 9) << int{can[3]} << " " << int{can[4]};
}

TEST(Codec, HexTextBothWays)
{
  Bytes bytes = {0x00, 0x9A, 0xFf};
  Bytes text(7, '.');
  EXPECT_EQ(hex2ascii(text.data(), bytes.data(), 3), 6);
  EXPECT_EQ(std::string(text.begin(), text.end()), "009AFF.");
  Bytes digits = {'a', 'F', 'z', 'z', '@', 'G'};
  Bytes back(3, 1);
  EXPECT_EQ(ascii2hex(back.data(), digits.data(), 5), 0);
  EXPECT_EQ(back, Bytes(3, 1)) << "an odd count writes nothing";
  EXPECT_EQ(ascii2hex(back.data(), digits.data(), 6), 3);
  EXPECT_EQ(back, (Bytes{0xAF, 0x00, 0x00}));
}
