#pragma once

#include <devcomm/frame_buffer.h>
#include <devcomm/shm_ring.h>
#include <devcomm/thread.h>

#include <memory>

/// The thread that copies every frame into the shared-memory ring, as a record of ring_record.h, for other processes.
///
/// Writers and readers of a ring wait for each other. A process that holds the ring for long delays this thread
/// alone, and its Stop(): frames that leave the frame buffer meanwhile are missing in the ring.
class RingWriter : public CommonCthread
{
public:
  /// @param frames  must outlive the thread
  explicit RingWriter(CCommBuffer& frames);

  /// @return false when the ring cannot be had: a line on standard error then says so
  bool open(int key);

  void* PthreadProc() override;

private:
  CCommBuffer& frames_;
  std::unique_ptr<CCommShmBuffer> ring_;
};
