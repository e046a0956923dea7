#pragma once

/// @file
/// One worker thread behind a plain handle: a name, a stop flag that the worker polls, and an end that
/// is safe whether the owner stops the worker or the worker ends by itself.
///
///     static void Work(CommonThread_st* thread, void* arg)
///     {
///       while (ThreadGetStatus(thread) != 0)
///       {
///         // one short step
///       }
///     }
///
///     CommonThread_st* thread = ThreadInit();
///     ThreadStart(thread, Work, nullptr, "worker");
///     ...
///     ThreadStop(thread);
///     ThreadUninit(thread);
///
/// A handle is idle (tid 0), running (tid set) or stopping (status 0, the worker still in its function).
/// An idle handle may be started again. Messages go to standard output.

#include <devcomm/export.h>

#include <cstdint>

#include <pthread.h>

/// A handle from ThreadInit. Applications read its fields; only the functions below write them.
struct CommonThread_st
{
  char name[64];             ///< terminated, at most 63 characters; only for messages; empty when idle
  pthread_t tid;             ///< 0: no thread; 0x1234 while the thread is being created
  int32_t pid;               ///< printed in messages; the library only ever writes 0
  int32_t status;            ///< run flag, polled without a lock; 0: asked to stop, or not running
  pthread_mutex_t stateLock; ///< guards name, tid, pid and status during start, stop and exit
  pthread_mutex_t stopLock;  ///< its holder does the tear-down; taken before stateLock
  void (*entry)(CommonThread_st*, void*); ///< unset until ThreadStart
  void* arg;                              ///< given to entry; unset until ThreadStart
};

/// The worker function: loops while ThreadGetStatus(thread) is non-zero, then returns.
typedef void (*ThreadEntry_t)(CommonThread_st* thread, void* arg);

/// Makes an idle handle.
///
/// @return the handle, owned by the caller until ThreadUninit; null when memory ran out
DEVCOMM_API CommonThread_st* ThreadInit();

/// Frees a handle. Does not stop a running thread: stop it first.
///
/// @return 0, or -1 for a null handle
///
/// Waits for a ThreadStop or ThreadExit of another thread that still holds the handle's locks. A worker
/// may free its own handle after ThreadExit, if nobody else stops or frees it.
DEVCOMM_API int ThreadUninit(CommonThread_st* thread);

/// Sets the status to 1, names the handle and, if no thread runs, starts one that calls entry(thread, arg).
///
/// @param thread  from ThreadInit
/// @param entry   the worker function; null fails as a thread that could not be made, with EINVAL
/// @param arg     passed on; must live as long as the worker uses it
/// @param name    cut to 63 characters; null counts as empty
/// @return 0, also when a thread was already running: then the handle is renamed and its status is 1, but
///         entry and arg are not taken, and "thread is running, pid=..., tid=..., name=..." is printed.
///         -1 for a null handle ("lt is null, name=..."). A positive error number of pthread_create when
///         the thread could not be made ("start thread fail, name=..."); the handle is idle again.
///
/// A failed start is positive: testing for a result below 0 sees a null handle only.
/// Not for a worker on its own handle while it may be being stopped.
DEVCOMM_API int ThreadStart(CommonThread_st* thread, void (*entry)(CommonThread_st*, void*), void* arg,
                            const char* name);

/// The run flag: 0 when the worker was asked to stop or none runs. Any thread, without a lock.
DEVCOMM_API int ThreadGetStatus(CommonThread_st* thread);

/// Writes the run flag; 0 asks the worker to end and does not wait. Any thread, without a lock.
///
/// @return 0
DEVCOMM_API int ThreadSetStatus(CommonThread_st* thread, int status);

/// Asks the worker to end, waits until it has, and leaves the handle idle.
///
/// @return 0, always
///
/// An idle handle is left as it is. When another ThreadStop, or the worker's ThreadExit, is already ending
/// the thread, this call leaves that to it and returns, possibly before it is done; only with a pid that
/// the application filled in does it wait, up to 9.9 seconds. A worker may stop its own handle: its thread
/// is then detached, not waited for.
DEVCOMM_API int ThreadStop(CommonThread_st* thread);

/// Called by a worker on its own handle as its last step before it returns: detaches the thread, prints
/// "(...)thread '...' stop ok: exit" and leaves the handle idle, to be started again or freed.
///
/// @return 0, always; nothing was done when a ThreadStop is already waiting for this worker
DEVCOMM_API int ThreadExit(CommonThread_st* thread);
