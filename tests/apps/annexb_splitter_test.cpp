#include "annexb_splitter.h"
#include "parameter_sets.h"
#include "stream_rate.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace
{

using Unit = std::pair<std::string, bool>; // its bytes, and whether it is a key frame

struct Result
{
  std::vector<Unit> units;
  uint64_t dropped;
};

// Splits stream, pushed in pieces of the sizes that piece() yields.
template <typename PieceSize>
Result split(const std::string& stream, size_t limit, PieceSize piece)
{
  AnnexBSplitter splitter(limit);
  Result result = {};
  AccessUnit unit = {};
  auto keep = [&]
  {
    result.units.push_back({std::string(unit.data, unit.data + unit.size), unit.keyFrame});
  };
  for (size_t at = 0; at < stream.size();)
  {
    const size_t size = std::min(piece(), stream.size() - at);
    splitter.push(reinterpret_cast<const uint8_t*>(stream.data()) + at, size);
    at += size;
    while (splitter.next(unit))
      keep();
  }
  if (splitter.finish(unit))
    keep();
  result.dropped = splitter.dropped();
  return result;
}

Result split_whole(const std::string& stream, size_t limit = 1 << 20)
{
  return split(stream, limit, [&] { return stream.size(); });
}

std::string nal(const char* startCode, int header, const std::string& payload)
{
  return std::string(startCode, startCode[2] == 1 ? 3 : 4) + static_cast<char>(header) + payload;
}

const char kShort[] = {0, 0, 1};
const char kLong[] = {0, 0, 0, 1};
const std::string kFirst = "\x88 first slice";
const std::string kLater = "\x40 later slice";

} // namespace

TEST(AnnexBSplitter, UnitsEndWhereTheNextPictureBegins)
{
  const std::string key = nal(kLong, 0x67, "sps") + nal(kShort, 0x68, "pps") + nal(kShort, 0x65, kFirst) +
                          nal(kShort, 0x65, kLater);
  const std::string plain =
      nal(kShort, 0x41, kFirst) + nal(kLong, 0x41, kLater) + nal(kShort, 0x0C, "filler");
  const std::string withSei = nal(kLong, 0x06, "sei") + nal(kShort, 0x41, kFirst);
  const std::string delimited = nal(kLong, 0x09, "\xF0") + nal(kLong, 0x41, kFirst);
  const std::string halfKey = nal(kLong, 0x09, "\xF0") + nal(kLong, 0x65, kLater);

  const Result got = split_whole("garbage \x01" + key + plain + withSei + delimited + halfKey +
                                 nal(kLong, 0x67, "sps without a picture"));
  const std::vector<Unit> expected = {{key, true},
                                      {plain, false},
                                      {withSei, false},
                                      {delimited, false},
                                      {halfKey, false}}; // its first slice is lost
  EXPECT_TRUE(got.units == expected);
  EXPECT_EQ(got.dropped, 0U);
}

TEST(AnnexBSplitter, AnOversizedUnitIsDroppedWithAllThatRefersToIt)
{
  const std::string key = nal(kLong, 0x65, kFirst);
  const std::string plain = nal(kLong, 0x41, kFirst);
  const std::string exact = nal(kLong, 0x41, kFirst + std::string(100 - 5 - kFirst.size(), 'x'));
  const std::string large = nal(kLong, 0x41, kFirst + std::string(5000, 'x'));
  const std::string stream = key + exact + large + plain + plain + key + plain + (exact + 'x') + plain;
  for (size_t piece : {size_t{1}, size_t{7}, stream.size()})
  {
    const Result got = split(stream, 100, [&] { return piece; });
    const std::vector<Unit> expected = {{key, true}, {exact, false}, {key, true}, {plain, false}};
    EXPECT_TRUE(got.units == expected) << piece;
    EXPECT_EQ(got.dropped, 5U);
  }
}

TEST(AnnexBSplitter, PieceSizesMakeNoDifference)
{
  std::mt19937 random(20260101);
  for (int round = 0; round < 200; ++round)
  {
    // Bytes that make start codes and every NAL type likely, at random.
    const std::string alphabet("\0\0\0\0\1\1\x65\x41\x67\x09\x06\x88\x40\xFF", 14);
    std::string stream(200 + random() % 3000, '\0');
    for (char& byte : stream)
      byte = alphabet[random() % alphabet.size()];
    const size_t limit = 10 + random() % 200;
    const Result whole = split_whole(stream, limit);
    const Result pieces = split(stream, limit, [&] { return size_t{1} + random() % 40; });
    ASSERT_TRUE(whole.units == pieces.units) << round;
    ASSERT_EQ(whole.dropped, pieces.dropped) << round;
    for (const Unit& unit : whole.units)
      ASSERT_LE(unit.first.size(), limit);
  }
}

TEST(AnnexBSplitter, TheClipIsWholeAndStatesItsRate)
{
  const std::string clip = contents(DEVCOMM_SOURCE_DIR "/apps/recorder/media/clip.h264");
  const Result got = split_whole(clip);
  ASSERT_EQ(got.units.size(), 200U);
  std::string joined;
  for (size_t i = 0; i < got.units.size(); ++i)
  {
    EXPECT_EQ(got.units[i].second, i % 25 == 0) << i;
    joined += got.units[i].first;
  }
  EXPECT_TRUE(joined == clip);

  const auto* data = reinterpret_cast<const uint8_t*>(clip.data());
  NalUnit sps = {};
  ASSERT_TRUE(find_nal(data, clip.size(), kNalSps, sps));
  const size_t size = sps.end - sps.header;
  EXPECT_EQ(frame_interval_us(data + sps.header, size), 40000);
  for (size_t cut = 0; cut < size / 2; ++cut) // the rate stands in the second half
    EXPECT_EQ(frame_interval_us(data + sps.header, cut), 0) << cut;
}

TEST(ParameterSets, StandInEveryKeyFrame)
{
  const std::string delimiter = nal(kLong, 0x09, "\xF0");
  const std::string sets = nal(kLong, 0x67, "sps") + nal(kShort, 0x68, "pps");
  const std::string key = nal(kLong, 0x65, kFirst);
  ParameterSets last;
  auto complete = [&last](const std::string& bytes, bool isKey, size_t limit)
  {
    const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
    const AccessUnit unit = last.complete({data, bytes.size(), isKey}, limit);
    return std::string(unit.data, unit.data + unit.size);
  };
  EXPECT_EQ(complete(key, true, 1000), key); // none seen yet
  const std::string first = delimiter + sets + nal(kShort, 0x06, "sei") + key;
  EXPECT_EQ(complete(first, true, 1000), first);
  EXPECT_EQ(complete(key, false, 1000), key);
  EXPECT_EQ(complete(key, true, 1000), sets + key);
  EXPECT_EQ(complete(delimiter + key, true, 1000), delimiter + sets + key);
  EXPECT_EQ(complete(key, true, (sets + key).size() - 1), key); // would be too large
}
