#pragma once

#include "ring_record.h"

#include <devcomm/shm_ring.h>

#include <cstdint>
#include <memory>

/// Takes frames out of a recorder's shared-memory ring, from a key frame on: whoever reads them in order can decode
/// them. Where frames were missed it goes on at the next key frame. One thread at a time.
class RingFollower
{
public:
  /// @param key     of the ring, which is made when there is none yet
  /// @param reader  its entry in the ring, 1 to 10; no two processes may use the same at a time
  RingFollower(int key, int reader);
  ~RingFollower();
  RingFollower(const RingFollower&) = delete;
  RingFollower& operator=(const RingFollower&) = delete;

  /// Begins with the frames written from now on. @return false when the ring cannot be had
  bool start();

  /// @return the next frame, valid until the next call; null when there is none yet
  const RingRecord* next();

  /// Times that frames were missed.
  uint32_t gaps() const
  {
    return gaps_;
  }

private:
  bool wanted();

  CCommShmBuffer ring_;
  int reader_;
  std::unique_ptr<RingRecord> record_;
  uint32_t expected_ = 0; // number of the frame that comes next; 0: none does before a key frame
  uint32_t gaps_ = 0;
};
