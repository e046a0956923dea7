#include "ring_writer.h"

#include "clock.h"
#include "dog.h"
#include "ring_record.h"

#include <cstdio>

namespace
{

constexpr int64_t kPauseUs = 5000; // when there is no new frame

} // namespace

RingWriter::RingWriter(CCommBuffer& frames) : frames_(frames) {}

bool RingWriter::open(int key)
{
  if (GetShm(key, kRingBytes) < 0)
  {
    fprintf(stderr, "recorder: cannot make the shared-memory ring %d\n", key);
    return false;
  }
  ring_ = std::make_unique<CCommShmBuffer>(key, kRingBytes);
  return true;
}

void* RingWriter::PthreadProc()
{
  const Dog dog("ring writer");
  const auto record = std::make_unique<RingRecord>();
  const int reader = frames_.Register(0, 0);
  while (GetStatus() != 0)
  {
    dog.feed();
    if (frames_.Read(reader, record->data, &record->info) != 0)
      ring_->ShmWrite(reinterpret_cast<char*>(record.get()), sizeof record->info + record->info.length,
                      nullptr);
    else
      nap_us(kPauseUs);
  }
  frames_.Unregister(reader);
  return nullptr;
}
