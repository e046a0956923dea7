#pragma once

/// @file
/// A process-wide software watchdog: threads register a named "dog" with a time-out and feed it; one
/// supervisor checks them all now and then and decides what to do with the dead.
///
///     int dog = CCommDog::Instance()->RegisterDog(name, 5);
///     ... CCommDog::Instance()->FeedDog(dog);                       // the watched thread, on every pass
///     std::list<CHECK_DOG_INFO_S> dead;
///     ... if (CCommDog::Instance()->CheckDog(dead) > 0) { ... }     // the supervisor, every few seconds
///
/// Any thread may call anything at any time. Times are wall-clock seconds; a clock that is set backwards
/// makes a dog overdue as a late feed does. Messages go to standard output.

#include <devcomm/export.h>

#include <cstdint>
#include <list>

/// One dead dog.
struct CHECK_DOG_INFO_S
{
  int32_t id;
  char name[128]; ///< terminated
};
static_assert(sizeof(CHECK_DOG_INFO_S) == 132, "applications keep these records");

class DEVCOMM_API CCommDog
{
public:
  CCommDog(const CCommDog&) = delete;
  CCommDog& operator=(const CCommDog&) = delete;

  /// The one watchdog of the process, made by the first call and never freed.
  static CCommDog* Instance();

  /// Adds an enabled dog that counts as fed now.
  ///
  /// @param name     cut to 31 characters; null counts as empty
  /// @param timeout  seconds; the dog is overdue when its last feed is more than this away
  /// @return the id: 0, 1, 2, ... in order of registration, never used again; -1 when memory ran out
  int RegisterDog(char* name, int timeout);

  /// Removes a dog. @return 0, or -1 when there is no such dog
  int DeregisterDog(int id);

  /// Notes that the dog's thread is alive. @return 0, or -1 when there is no such dog
  int FeedDog(int id);

  /// Has the checks skip a dog (0) or look at it again (non-zero). Its count of missed checks stays.
  ///
  /// @return 0, or -1 when there is no such dog
  int EnableDog(int id, int enable);

  /// One pass over the enabled dogs, in order of registration. An overdue dog's first three passes in a row
  /// print "dog[ID, NAME] May Be Dead: last time=..., nowtime=..."; from the fourth on it is dead, prints
  /// "dog[ID, NAME] Dead: last time=..., nowtime=..." and is reported on every pass until a feed in time.
  ///
  /// @return the number of dead dogs; -1 when memory ran out at the start of the process
  int CheckDog();

  /// As above, and appends a record for each dead dog; one that memory does not allow is only counted.
  int CheckDog(std::list<CHECK_DOG_INFO_S>& dead);

private:
  struct Block;

  CCommDog();
  int Check(std::list<CHECK_DOG_INFO_S>* dead);

  static CCommDog* m_pInstance;
  Block* m_block;
};
