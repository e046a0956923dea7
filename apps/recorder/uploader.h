#pragma once

#include "dog.h"
#include "journal.h"
#include "outbox.h"

#include <devcomm/ftp_client.h>
#include <devcomm/lock.h>
#include <devcomm/thread.h>

#include <atomic>
#include <cstdint>
#include <string>

/// The thread that sends the files of the outbox to an FTP server, oldest first, and puts the journal's events there.
///
/// A file is removed only when the server has acknowledged it. While the server does not answer (ICMP, where the
/// recorder may ask that way) or an upload fails, the thread waits, from half a second to half a minute, and then tries
/// the next file, so that one which is refused holds up no other. Any thread may look at it; one starts and stops it.
class Uploader : public CommonCthread
{
public:
  /// Both must outlive the thread.
  Uploader(Outbox& outbox, Journal& journal);

  /// @return false when there is no thread to be had
  bool start(const UserDefServerSet_t& server);

  /// Waits up to two seconds. @return false when the server keeps the thread waiting: what it uses must stay
  bool stop();

  /// Tells what it is about, for the status line: "upload NAME 42%" or "outbox N waiting"; empty without an outbox.
  std::string describe() const;

  void* PthreadProc() override;

private:
  bool reachable() const;
  bool send(const std::string& file, const Dog& dog);

  Outbox& outbox_;
  Journal& journal_;
  UserDefServerSet_t server_ = {};
  std::atomic<bool> running_{false};

  mutable CLock lock_; // around what describe() looks at
  std::string sending_;
  int percent_ = 0;
};
