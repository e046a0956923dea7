// What the recorder promises of its events: one that it has announced is kept, whatever ends the process.

#ifdef DEVCOMM_RECORDER

#include "comm_storage/card.h"
#include "support/fault_runs.h"
#include "support/recorder_tools.h"

#include <devcomm/sqlite_access.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

// A drive in and out of the depot fifty times a second.
std::string restless_log(int run)
{
  std::string log;
  for (int i = 0; i < 400; ++i)
  {
    // Minutes that are whole hundred thousandths of a degree, or a third beside: every print rounds them alike.
    const double minutes = (i % 2 == 0 ? 3.6 : 4.0) + 0.0006 * ((run + i / 2) % 18);
    char body[128];
    snprintf(body, sizeof body, "GPRMC,10%02d%02d.%02d0,A,360%.4f,N,12022.80000,E,1.0,0.0,210326,,,A",
             i / 3000 % 60, i / 50 % 60, i % 50 * 2, minutes);
    log += sentence(body);
  }
  return log;
}

// "kind: text (latitude, longitude)" of each whole event line.
std::vector<std::string> announced(const std::string& output)
{
  std::vector<std::string> events;
  for (size_t at = output.find("event "); at != std::string::npos; at = output.find("event ", at + 1))
  {
    const size_t end = output.find('\n', at);
    if (end == std::string::npos)
      break;
    const size_t kind = output.find(' ', output.find(' ', at + 6) + 1) + 1;
    events.push_back(output.substr(kind, end - kind));
  }
  return events;
}

std::vector<std::string> in_database(const std::string& dir)
{
  SQLite database;
  EXPECT_TRUE(database.Open((dir + "/recorder.db").c_str()));
  bool ok = false;
  SQLiteReader reader = database.SqliteOp(
      "SELECT printf('%s: %s (%.5f, %.5f)', kind, text, lat, lon) FROM event ORDER BY rowid", ok);
  std::vector<std::string> rows;
  while (reader.Read())
    rows.emplace_back(reader.GetStringValue(0));
  return rows;
}

std::vector<std::string> waiting(const std::string& dir)
{
  CCacheData cache;
  cache.setCacheFile("events", 0, 4096);
  EXPECT_GT(cache.openCacheFile((dir + "/mnt/sd").c_str()), 0);
  std::vector<std::string> events;
  for (std::string record; (record = read_from(cache, false)) != "none";)
  {
    char kind[32];
    char text[32];
    double lat = 0;
    double lon = 0;
    EXPECT_EQ(sscanf(record.c_str(), "%*d:%*d\t%31[^\t]\t%lf\t%lf\t%31[^\t]", kind, &lat, &lon, text), 4);
    char event[128];
    snprintf(event, sizeof event, "%s: %s (%.5f, %.5f)", kind, text, lat, lon);
    events.emplace_back(event);
  }
  return events;
}

// Whether all of these stand in the other list, in the same order.
testing::AssertionResult has_in_order(const std::vector<std::string>& kept,
                                      const std::vector<std::string>& events)
{
  size_t at = 0;
  for (const std::string& event : events)
  {
    while (at < kept.size() && kept[at] != event)
      ++at;
    if (at++ == kept.size())
      return testing::AssertionFailure() << "lost: " << event;
  }
  return testing::AssertionSuccess();
}

} // namespace

TEST(RecorderJournalTest, NoEventIsLostWhenTheRecorderIsKilledAtRandom)
{
  const ScratchFolder folder;
  const std::string dir = folder.path + "/data";
  const std::string log = folder.path + "/track.nmea";
  std::vector<std::string> events;
  const int kills = fault_runs() / 4;
  unsigned seed = 7;
  for (int run = 0; run < kills; ++run)
  {
    std::ofstream(log) << restless_log(run);
    RecorderProcess process(free_port(), {"--gps", log, "--data", dir});
    std::string output = process.read_until(1, "event ");
    usleep(static_cast<useconds_t>(rand_r(&seed) % 200000));
    process.signal(SIGKILL);
    output += process.read_until(1);
    const std::vector<std::string> now = announced(output);
    EXPECT_FALSE(now.empty()) << output;
    events.insert(events.end(), now.begin(), now.end());
  }
  EXPECT_TRUE(has_in_order(in_database(dir), events));
  EXPECT_TRUE(has_in_order(waiting(dir), events));
  printf("%zu events announced, %d kills\n", events.size(), kills);
}

#endif
