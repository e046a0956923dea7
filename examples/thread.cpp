// An object with a thread of its own, and a lock between it and the main thread.
#include <devcomm/lock.h>
#include <devcomm/thread.h>

#include <cstdio>

#include <unistd.h>

class Sampler : public CommonCthread
{
public:
  void* PthreadProc() override
  {
    while (GetStatus() != 0)
    {
      {
        CAutoLock guard(&m_lock);
        m_sum += 2;
        m_samples += 1;
      }
      usleep(1000);
    }
    return nullptr;
  }

  bool Print()
  {
    CAutoLock guard(&m_lock);
    printf("%d samples, sum %d\n", m_samples, m_sum);
    return m_sum == 2 * m_samples;
  }

private:
  CLock m_lock;
  int m_samples = 0;
  int m_sum = 0;
};

int main()
{
  Sampler sampler;
  if (sampler.Start("sampler") != 0)
  {
    return 1;
  }
  usleep(20000);
  const bool whole = sampler.Print();
  sampler.Stop();
  return whole && sampler.Print() ? 0 : 1;
}
