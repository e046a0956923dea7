#include <devcomm/audio_level.h>

#include <cmath>

double pcm_level_db(const short* samples, int count)
{
  long long sum = 0;
  for (int i = 0; samples != nullptr && i < count; ++i)
  {
    const int sample = samples[i];
    sum += sample < 0 ? -sample : sample;
  }
  return sum == 0 ? PcmSilenceDb : 20.0 * std::log10(static_cast<double>(sum) / count);
}
