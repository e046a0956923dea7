#include <devcomm/coordinates.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace
{

CCoordsCalculate coords;

} // namespace

// The expected numbers come from an independent calculation: the formulas in Python, with sine, cosine,
// tangent and arc sine evaluated to 200 bits (mpmath) and rounded to double, all else in IEEE doubles,
// and single precision taken at the promised places. They hold to the last bit on every machine.
TEST(CoordsConversion, EqualsTheIndependentCalculationToTheLastBit)
{
  struct Row
  {
    float lat, lon, x, y, lat_back, lon_back, grid_lon, grid_lat, wgs_lon, wgs_lat;
  };
  const Row rows[] = {
      {30.5F, 110.25F, 0x1.9c52d8p+21F, 0x1.5d9f6p+19F, 0x1.e7fffep+4F, 0x1.b8fffep+6F, 0x1.b90506p+6F,
       0x1.e7f58cp+4F, 0x1.b8fafcp+6F, 0x1.e80a7ap+4F},
      {36.111F, 120.3629F, 0x1.f0c48p+21F, 0x1.8a794p+20F, 0x1.20e35p+5F, 0x1.e173b2p+6F, 0x1.e178dap+6F,
       0x1.20e3dep+5F, 0x1.e16e6p+6F, 0x1.20e2ccp+5F},
      {0.0F, 108.0F, 0.0F, 500000.0F, 0.0F, 108.0F, 108.0F, 0.0F, 0x1.b00002p+6F, 0.000005F},
      {52.25F, 99.75F, 0x1.636eb8p+22F, -0x1.ebccp+15F, 0x1.a1fffep+5F, 0x1.8efffcp+6F, 0x1.8f023cp+6F,
       0x1.a2013ap+5F, 0x1.8efdc6p+6F, 0x1.a1fec8p+5F},
  };
  for (const Row& row : rows)
  {
    float x = 0, y = 0, lat = 0, lon = 0;
    EXPECT_EQ(coords.BL2xy(row.lat, row.lon, x, y), 0);
    EXPECT_EQ(coords.xy2BL(x, y, lat, lon), 0);
    EXPECT_TRUE(x == row.x && y == row.y && lat == row.lat_back && lon == row.lon_back) << row.lat;
    EXPECT_EQ(coords.gps84_2_gcj02(row.lon, row.lat, lon, lat), row.lat == 0 ? -1 : 0);
    EXPECT_TRUE(lon == row.grid_lon && lat == row.grid_lat) << row.lat;
    EXPECT_EQ(coords.gcj02_2_gps84(row.lon, row.lat, lon, lat), 0);
    EXPECT_TRUE(lon == row.wgs_lon && lat == row.wgs_lat) << row.lat;
  }
  EXPECT_EQ(coords.calculateDistance(36.1, 120.3, 36.2, 120.5), 0x1.4a641ep+14F);
  EXPECT_EQ(coords.calculateDistance(0, 0, 0, 180), 0x1.31bf84p+24F) << "antipodes";
  EXPECT_EQ(coords.dm2Degree(12021.7778F), 0x1.e173aap+6F);
  EXPECT_EQ(coords.degree2Dm(120.36296F), 0x1.77ae38p+13F);
  EXPECT_DOUBLE_EQ(coords.degree2Dm(-120.5), -12030.0);

  uint64_t sum = 1469598103934665603U; // FNV-1a over the 32-bit patterns
  const auto hash = [&sum](float value)
  {
    uint32_t bits = 0;
    memcpy(&bits, &value, sizeof bits);
    sum = (sum ^ bits) * 1099511628211U;
  };
  uint32_t state = 12345;
  const auto next_number = [&state]
  {
    return state = (state * 1103515245U + 12345U) & 0x7fffffffU;
  };
  for (int i = 0; i < 1000; i++)
  {
    const float lat = static_cast<float>(next_number() % 1000000) / 16384;
    const float lon = 70 + static_cast<float>(next_number() % 1200000) / 16384;
    const float lat2 = lat + static_cast<float>(next_number() % 1000) / 4096;
    float one = 0, two = 0, three = 0, four = 0;
    coords.BL2xy(lat, lon, one, two);
    coords.xy2BL(one, two, three, four);
    for (float value : {one, two, three, four})
      hash(value);
    coords.gps84_2_gcj02(lon, lat, one, two);
    coords.gcj02_2_gps84(lon, lat, three, four);
    for (float value : {one, two, three, four})
      hash(value);
    pos_t a = {lon, lat};
    pos_t b = {lon - 0.125, lat2};
    hash(coords.calculateDistance(lat, lon, lat2, lon - 0.125));
    hash(coords.calculateDistance(&a, &b));
    hash(coords.dm2Degree(coords.degree2Dm(lon)));
    hash(coords.degree2Dm(lat));
  }
  EXPECT_EQ(sum, 0xe6780ffa70e15295U);
}

TEST(CoordsConversion, AnswersOutsideTheAreaAndForNumbersThatAreNone)
{
  float lon = -1, lat = -1;
  EXPECT_EQ(coords.gps84_2_gcj02(0, 0, lon, lat), -1);
  EXPECT_TRUE(lon == 0 && lat == 0);
  EXPECT_EQ(coords.gcj02_2_gps84(0, 0, lon, lat), 0);
  EXPECT_TRUE(lon == 0.000005F && lat == 0.000005F);
  EXPECT_EQ(coords.outOfChina(30, 110), 0) << "latitude first";
  EXPECT_EQ(coords.outOfChina(110, 30), 1);

  const float inf = std::numeric_limits<float>::infinity();
  for (float bad : {std::nanf(""), inf, -inf, 3e38F, -3e38F})
    EXPECT_EQ(coords.xy2BL(bad, 500000, lat, lon), 0);
}
