#include <devcomm/audio_level.h>

#include <gtest/gtest.h>

TEST(AudioLevel, IsTheMeanAbsoluteSampleInDecibels)
{
  const short tone[] = {1000, -1000, 500, -1500};
  EXPECT_DOUBLE_EQ(pcm_level_db(tone, 4), 60.0);
  const short full[] = {-32768, -32768};
  EXPECT_NEAR(pcm_level_db(full, 2), 90.309, 0.001);
  const short faint[] = {0, 1};
  EXPECT_NEAR(pcm_level_db(faint, 2), -6.0206, 0.0001);
  EXPECT_EQ(pcm_level_db(faint, 1), PcmSilenceDb);
  EXPECT_EQ(pcm_level_db(faint, 0), PcmSilenceDb);
  EXPECT_EQ(pcm_level_db(nullptr, 5), PcmSilenceDb);
}
