#include <devcomm/shm_ring.h>

#include "support/fault_runs.h"
#include "support/measure.h"

#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/wait.h>

namespace
{
// A key of this test's own; segment and lock file go when it ends. The ring's lines show when it failed.
struct ShmRing : testing::Test
{
  ShmRing()
  {
    CaptureStdout();
  }
  ~ShmRing() override
  {
    shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
    unlink(("/tmp/ShmBuf_lock_" + std::to_string(key)).c_str());
    const std::string text = GetCapturedStdout();
    printf("%s", HasFailure() ? text.c_str() : "");
  }
  const int key = 0x5A000000 + static_cast<int>(getpid());
};

// Every byte of a record tells its number and its length.
std::string make_record(unsigned int number, unsigned int length)
{
  return std::string(length, static_cast<char>(number * 31 + length));
}

bool whole(const unsigned char* bytes, int length)
{
  return std::all_of(bytes, bytes + std::max(length, 0), [=](unsigned char c) { return c == bytes[0]; });
}

template <typename Work>
pid_t start_process(Work work)
{
  const pid_t process = fork();
  if (process == 0)
  {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;)
      work();
  }
  return process;
}

void kill_process(pid_t process)
{
  kill(process, SIGKILL);
  waitpid(process, nullptr, 0);
}

int write(CCommShmBuffer& ring, std::string record)
{
  return ring.ShmWrite(record.data(), static_cast<unsigned int>(record.size()), nullptr);
}
} // namespace

TEST_F(ShmRing, RecordsOfAnyLengthComeBackThroughAnotherObjectAndLapsAreTold)
{
  CCommShmBuffer writer(key, 152 + 1000);
  CCommShmBuffer reader(key, 99999); // keeps the size it finds
  unsigned char out[2000];
  EXPECT_EQ(reader.UserRegisterEx(0) + reader.UserRegisterEx(11), -2);
  EXPECT_EQ(reader.UserRead(3, out, sizeof out), -1);
  EXPECT_EQ(reader.UserRegisterEx(3), 0);
  std::mt19937 random(33);
  for (unsigned int number = 1; number < 3000; number++)
  {
    const auto length = static_cast<unsigned int>(1 + random() % 480);
    const std::string record = make_record(number, length);
    ASSERT_EQ(write(writer, record), static_cast<int>(length));
    ASSERT_EQ(reader.UserRead(3, out, length - 1), -2);
    ASSERT_EQ(reader.UserRead(3, out, length), static_cast<int>(length));
    ASSERT_EQ(memcmp(out, record.data(), length), 0);
    ASSERT_EQ(reader.UserRead(3, out, length), 0);
  }
  EXPECT_EQ(reader.UserRegisterEx(1), 0);
  write(writer, make_record(1, 480));
  EXPECT_EQ(reader.GetLeftNums(1), 1);
  EXPECT_EQ(reader.GetLeftNums(3), 0);    // two readers: the third entry is not searched
  EXPECT_EQ(reader.UserUnRegister(3), 0); // nor here
  for (unsigned int number = 2; number < 5; number++)
    write(writer, make_record(number, 470));
  EXPECT_EQ(reader.UserRead(1, out, sizeof out), -3);
  EXPECT_EQ(reader.UserRegisterEx(1), 0);
  EXPECT_EQ(reader.UserRead(1, out, sizeof out), 0);
  EXPECT_EQ(write(writer, make_record(9, 5000)), 5000); // longer than the ring
  EXPECT_EQ(reader.UserRead(1, out, sizeof out), -3);
  EXPECT_EQ(reader.UserUnRegister(1), 1);
  EXPECT_EQ(GetCapturedStdout(), "-------userid:1 GetLeftNums 3000 2999 -------\n"
                                 "----- userid:1 have exist!--------\n");
  CaptureStdout();

  shmid_ds segment{};
  shmctl(shmget(key, 0, 0), IPC_STAT, &segment);
  EXPECT_EQ(segment.shm_segsz, 1152U);
  const auto* words = reinterpret_cast<const uint32_t*>(AtShm(shmget(key, 0, 0)));
  const uint32_t expected[] = {1152, 152, words[2], 3004, 1};
  EXPECT_EQ(memcmp(words, expected, sizeof expected), 0);
  EXPECT_EQ(words[5 + 3 * 3], 3U);
}

TEST_F(ShmRing, AScribbledHeaderOrRecordNeverLeadsOutOfTheSegment)
{
  constexpr size_t size = 152 + 1000;
  constexpr size_t page = 4096; // the segment is mapped up to there
  constexpr char outside = '\xA5';
  std::mt19937 random(7);
  for (size_t run = 0; run < 4000; run++)
  {
    CCommShmBuffer ring(key, size);
    char* base = reinterpret_cast<char*>(AtShm(GetShm(key, 0)));
    memset(base + size, outside, page - size);
    std::string out(INT16_MAX, 0);
    auto* bytes = reinterpret_cast<unsigned char*>(out.data());
    ring.UserRegisterEx(1);
    write(ring, make_record(1, 50));
    write(ring, std::string(random() % 900, 'x'));
    // Every byte of the header in turn, then any bytes.
    const char values[] = {'\0', '\xFF', '\x7F', '\x80'};
    base[run < 152 * 4 ? run / 4 : random() % 352] = values[run % 4];
    for (size_t more = run % 8; run >= 152 * 4 && more > 0; more--)
      base[random() % 352] = static_cast<char>(random() % 0xA0);
    CCommShmBuffer late(key, 0);
    for (CCommShmBuffer* object : {&ring, &late})
    {
      for (int got = 1; got > 0;)
      {
        got = object->UserRead(1, bytes, INT16_MAX);
        ASSERT_TRUE(got >= -3 && got <= 988) << run;
        ASSERT_EQ(out.find(outside), std::string::npos) << run;
      }
      write(*object, std::string(random() % 1500, 'x'));
      object->GetLeftNums(1);
      object->UserRegisterEx(1);
    }
    write(ring, "ab"); // puts the write position right
    ring.UserRegisterEx(1);
    EXPECT_EQ(write(ring, "abc"), 3);
    EXPECT_EQ(ring.UserRead(1, bytes, INT16_MAX), 3) << run;
    ring.UserUnRegister(1);
    ASSERT_EQ(std::string(base + size, page - size), std::string(page - size, outside)) << run;
    memset(base, 0, size); // the next object writes the header anew
    DtShm(base);
  }
}

TEST_F(ShmRing, WhatAWriterSpoiltBeforeItDiedIsNoRecord)
{
  CCommShmBuffer ring(key, 152 + 1000);
  unsigned char out[1000];
  ring.UserRegisterEx(1);
  ring.UserRegisterEx(2);
  for (unsigned int number = 1; number <= 10; number++)
    write(ring, make_record(number, 88)); // 100 bytes with its header
  EXPECT_EQ(ring.UserRead(1, out, 88), 88);
  EXPECT_EQ(ring.UserRead(2, out, 88) + ring.UserRead(2, out, 88) + ring.UserRead(2, out, 88), 3 * 88);

  // A copy may begin at its end: the second record's header still stands, its payload does not.
  char* area = reinterpret_cast<char*>(AtShm(GetShm(key, 0))) + 152;
  uint32_t begun[] = {0xE0E0FEF8U, 11, 238};
  WriteShm(area, 1000, 1000, reinterpret_cast<char*>(begun), sizeof begun);
  area[150] ^= 1;
  EXPECT_EQ(ring.UserRead(1, out, 88), -3);
  write(ring, "short");
  EXPECT_EQ(ring.UserRead(1, out, 88), -3);
  EXPECT_EQ(ring.UserRead(2, out, 88), 88);
  EXPECT_EQ(out[87], static_cast<unsigned char>(make_record(4, 88)[0]));
  DtShm(area - 152);
}

TEST_F(ShmRing, SurvivesWritersKilledAtAnyMoment)
{
  CCommShmBuffer ring(key, 152 + 300000);
  ring.UserRegisterEx(2);
  std::string out(300000, 0);
  auto* bytes = reinterpret_cast<unsigned char*>(out.data());
  std::mt19937 random(5);
  int records = 0;
  for (int run = 0; run < fault_runs(); run++)
  {
    unsigned int number = 0;
    const pid_t writer = start_process(
        [&]
        {
          static CCommShmBuffer own(key, 0);
          usleep(++number % 16 == 0); // lets the reader have the lock
          write(own, make_record(number, 1 + number * 7919 % 60000));
        });
    // Follows it for some results, and leaves some of its records behind.
    for (auto left = random() % 20 + 1; left > 0;)
    {
      const int got = ring.UserRead(2, bytes, 300000);
      records += got > 0;
      left -= got != 0;
      ASSERT_TRUE(whole(bytes, got));
      ASSERT_TRUE(got >= 0 || (got == -3 && ring.UserRegisterEx(2) == 0));
    }
    usleep(static_cast<useconds_t>(random() % 300));
    kill_process(writer);
    for (int got = run % 2 == 0 ? write(ring, "sssss") : 1; got > 0;)
    {
      got = ring.UserRead(2, bytes, 300000);
      ASSERT_TRUE(whole(bytes, got)); // what the dead left behind that short one is no record
    }
    ring.UserRegisterEx(2);
    ASSERT_EQ(write(ring, make_record(1, 77)), 77);
    ASSERT_EQ(ring.UserRead(2, bytes, 300000), 77);
  }
  EXPECT_GT(records, 0);
}

TEST_F(ShmRing, SurvivesReadersKilledAtAnyMoment)
{
  CCommShmBuffer ring(key, 152 + 300000);
  ring.UserRegisterEx(1);
  std::string out(60000, 0);
  auto* bytes = reinterpret_cast<unsigned char*>(out.data());
  std::mt19937 random(6);
  for (int run = 0; run < fault_runs(); run++)
  {
    ASSERT_EQ(ring.UserRegisterEx(2), 0);
    const pid_t reader = start_process(
        [&]
        {
          static CCommShmBuffer own(key, 0);
          own.UserRead(2, bytes, 60000);
        });
    for (auto left = random() % 50 + 1; left > 0; left--)
    {
      const std::string record = make_record(unsigned(left), 1 + unsigned(random() % 30000));
      write(ring, record);
      ASSERT_EQ(ring.UserRead(1, bytes, 60000), static_cast<int>(record.size()));
      ASSERT_EQ(memcmp(bytes, record.data(), record.size()), 0);
    }
    kill_process(reader);
    for (int got = 1; got > 0;) // somebody else goes on in its place
    {
      got = ring.UserRead(2, bytes, 60000);
      ASSERT_TRUE(whole(bytes, got));
      ASSERT_TRUE(got >= 0 || got == -3);
    }
  }
  EXPECT_EQ(ring.UserUnRegister(2), 2);
}

TEST_F(ShmRing, AreaCopiesWrapAndRefuseWhatDoesNotFit)
{
  char area[11] = "..........";
  char word[] = "abcdef";
  EXPECT_EQ(WriteShm(area, 4, 10, word, 6), 10);
  EXPECT_EQ(WriteShm(area, 7, 10, word, 6), 3);
  EXPECT_STREQ(area, "def.abcabc");
  EXPECT_EQ(WriteShm(area, 10, 10, word, 2), 2);
  char back[7] = "";
  EXPECT_EQ(ReadShm(area, 7, 10, back, 6), 3);
  EXPECT_STREQ(back, "abcabf");
  EXPECT_EQ(WriteShm(area, 9, 10, nullptr, 0), 9);
  const int wrong[][2] = {{11, 1}, {-1, 1}, {0, -1}, {0, 21}, {10, 11}, {0, INT_MAX}};
  for (const auto& [pos, n] : wrong)
    EXPECT_EQ(WriteShm(area, pos, 10, word, n) + ReadShm(area, pos, 10, back, n), -2);
  EXPECT_EQ(WriteShm(nullptr, 0, 10, word, 1), -1);
  const int fd = open("/dev/null", O_RDWR | O_CLOEXEC);
  EXPECT_EQ(WriteLockShm(fd, area, 7, 10, word, 6), 0);
  EXPECT_EQ(ReadLockShm(fd, area, 7, 10, back, 6), 0);
  EXPECT_STREQ(back, "abcdef");
  close(fd);
  EXPECT_EQ(WriteLockShm(fd, area, 0, 10, word, 1), -1);
  EXPECT_EQ(AtShm(-1), 0);
  EXPECT_EQ(DtShm(nullptr), -1);
}
