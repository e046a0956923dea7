#pragma once

#include "event_bus.h"
#include "position.h"

#include <devcomm/cache_file.h>
#include <devcomm/lock.h>
#include <devcomm/sqlite_access.h>

#include <deque>
#include <string>

/// Keeps what happened: events and track in a database, and each event in a cache file as well until it is on its
/// way to a server.
///
/// In the data directory: recorder.db with the tables event and track, and mnt/sd/events (the cache must lie under
/// a path with "/mnt/sd"; a data directory on the card has it already). An event is in the cache before on_event
/// returns, so it outlives the process, however that ends, though maybe not a loss of power; who announces events
/// subscribes after the journal. A database that another process holds gets its rows later, in order. Any thread.
class Journal : public EventSink, public PositionSink
{
public:
  ~Journal() override;

  /// @param dir  is there, and no other recorder uses it
  /// @return false when something cannot be opened: one line on standard error has said what
  bool open(const char* dir);

  void on_event(const Event& event) override;
  void on_position(const Position& position) override;

  /// Moves the waiting events to the end of a file, a line each: time in microseconds since 1970, kind, latitude,
  /// longitude, text, with tabs between them. They wait on unless the file is safe; after a kill some may both
  /// wait and be in the file, the last of them there cut short.
  ///
  /// @return events moved; -1 when the file cannot be written
  int move_waiting(const char* file);

  /// Writes what is still owed to the database, for which it waits a second when that is in use, and closes
  /// everything.
  void close();

private:
  bool fail(const char* what, const char* name) const;
  bool open_cache(const std::string& dir);
  bool reopen_cache();
  bool open_database(const std::string& file);
  void keep_waiting(const char* line, int length);
  void insert_owed();
  void release();

  struct Row
  {
    double timeUs; // whole microseconds fit a double until the year 2255
    std::string kind;
    std::string text;
    Position position;
  };

  CLock lock_;
  bool open_ = false;
  std::string card_; // where the cache lies
  CCacheData waiting_;
  SQLite database_;
  SQLiteCommand insertEvent_{&database_};
  SQLiteCommand insertTrack_{&database_};
  std::deque<Row> owed_; // events that the database has not taken yet
  int64_t trackTime_ = 0;
};
