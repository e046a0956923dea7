#pragma once

/// @file
/// A base class for objects that own one thread.
///
///     class Sampler : public CommonCthread
///     {
///     public:
///       void* PthreadProc() override
///       {
///         while (GetStatus() != 0)
///         {
///           // one short step
///         }
///         return nullptr;
///       }
///     };
///
///     Sampler sampler;
///     sampler.Start("sampler");
///     ...
///     sampler.Stop();
///
/// An object is idle until Start succeeds and again after Stop or ExitSelf. Exactly one of Stop and
/// ExitSelf tears a running thread down. Messages go to standard output.

#include <devcomm/export.h>
#include <devcomm/lock.h>

#include <cstdint>

#include <pthread.h>

class DEVCOMM_API CommonCthread
{
public:
  CommonCthread();

  /// Does not stop the thread: Stop it first, before a derived object's members go.
  virtual ~CommonCthread();

  CommonCthread(const CommonCthread&) = delete;
  CommonCthread& operator=(const CommonCthread&) = delete;

  /// The thread body of Start(name): override it and poll GetStatus. It must not destroy the object unless
  /// ExitSelf was called and nobody else uses it. The default prints a count once a second.
  ///
  /// @return ignored
  virtual void* PthreadProc();

  /// Makes the object idle without looking at a running thread. For constructors; Start, Stop and ExitSelf
  /// call it when it is time.
  void Init();

  /// The run flag: 0 when the thread should end or none runs. Any thread, without a lock.
  int GetStatus();

  /// Writes the run flag; 0 asks the thread to end and does not wait. Any thread, without a lock.
  void SetStatus(int value);

  /// Sets the status to 1, takes the name and, if no thread runs, starts one that calls entry(arg).
  ///
  /// @param entry  the thread body; null fails
  /// @param arg    passed on; must live as long as the body uses it
  /// @param text   the name, cut to 63 characters; null counts as empty
  /// @return 0; also when a thread was already running: then status and name are set all the same and
  ///         "thread alread running, pid=..., tid=..., name=..." is printed. -1 when the thread could not
  ///         be made; the object is idle again.
  ///
  /// Not for the thread itself while it may be being stopped.
  int Start(void* (*entry)(void*), void* arg, const char* text);

  /// As above, with PthreadProc() of this object as the body.
  int Start(const char* text);

  /// Asks the thread to end, waits until it has, makes the object idle and prints
  /// "thread stop ok, mothed=join able". An idle object only has its status set to 0.
  ///
  /// @return 0, always
  ///
  /// When another Stop or ExitSelf is already at it, waits only for the status to become 0, at most 10
  /// seconds, with a line for each 100 ms. Called by the thread itself it detaches the thread and does not wait.
  int Stop();

  /// Called by the thread when it decides to end, before it returns from its body: detaches the thread and
  /// makes the object idle.
  ///
  /// @return 0, always; nothing was done when a Stop is already waiting for this thread
  int ExitSelf();

protected:
  pthread_t tid;  ///< 0: no thread; 0x1234 while the thread is being created
  int32_t pid;    ///< printed in a message; never anything but 0
  int32_t status; ///< run flag: 1 should run, 0 should stop; read and written without a lock
  char name[64];  ///< terminated
  char reserved[16];
  CLock stateLock; ///< guards start, stop and exit; held while joining, so the body never takes it
  CLock stopLock;  ///< its holder, found by try-lock, tears the thread down
};
