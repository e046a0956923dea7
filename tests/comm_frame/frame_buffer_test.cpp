#include <devcomm/frame_buffer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <deque>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace
{
using Bytes = std::vector<unsigned char>;

std::vector<std::string> said; // log lines, and "overrun N"

int note_log(unsigned int level, const char* format, ...)
{
  char line[128];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  said.push_back(std::to_string(level) + " " + line);
  return 0;
}

int note_overrun(int code)
{
  said.push_back("overrun " + std::to_string(code));
  return 0;
}

struct Frame
{
  FrameInfo_t info;
  Bytes payload;
};

Frame make_frame(std::mt19937& random, uint32_t length, uint64_t time)
{
  Frame frame = {{time, static_cast<uint32_t>(random() % 3), static_cast<uint32_t>(random() % 34), length},
                 {}};
  frame.payload.resize(length);
  std::generate(frame.payload.begin(), frame.payload.end(),
                [&] { return static_cast<unsigned char>(random()); });
  return frame;
}

bool same_info(const FrameInfo_t& a, const FrameInfo_t& b)
{
  return memcmp(&a, &b, sizeof a) == 0;
}

// What is stored, told from where each frame lies in the area.
struct Model
{
  struct Placed
  {
    Frame frame;
    int64_t offset;
    uint32_t seq;
  };
  struct Reader
  {
    int id;
    uint32_t classes;
    uint32_t types;
    uint32_t last; // 0: nothing read
  };

  int64_t size;
  size_t nodes; // frames held at most
  std::deque<Placed> live;
  std::vector<Reader> readers;

  void drop_in(int64_t from, int64_t to)
  {
    const auto in = [&](int64_t at)
    {
      return from < to ? at >= from && at <= to : at <= to || at >= from;
    };
    while (!live.empty() && in(live.front().offset))
    {
      live.pop_front();
    }
  }

  void put(const Frame& frame)
  {
    const int64_t length = frame.info.length;
    const uint32_t seq = live.empty() ? 1 : live.back().seq + 1;
    int64_t at = 0;
    if (!live.empty())
    {
      const int64_t end = live.back().offset + live.back().frame.info.length;
      at = live.size() > 1 && end + length >= size ? 0 : end;
      const int64_t oldest = live.front().offset;
      if (live.size() > 1 &&
          (at == 0 ? oldest >= end || oldest < length : oldest >= end && oldest <= at + length))
      {
        drop_in(end, at + length);
      }
    }
    if (live.size() == nodes)
    {
      drop_in(live.front().offset, live.front().offset + live.front().frame.info.length);
    }
    live.push_back({frame, at, seq});
  }

  // The reader's next frame; says what the buffer should have said.
  const Placed* next(Reader& reader, const char* name, int code, bool sayHead,
                     std::vector<std::string>& lines)
  {
    const auto line = [&](const char* which, const Placed& placed)
    {
      lines.push_back("2 CCommBuffer::" + std::string(name) + which +
                      std::to_string(placed.frame.info.timeStamp) + "\n");
    };
    const Placed* found = nullptr;
    if (live.empty())
    {
      return nullptr;
    }
    if (reader.last == 0)
    {
      found = &live.front();
      if (sayHead)
      {
        line(": head: ", *found);
      }
    }
    else if (reader.last < live.front().seq)
    {
      found = &live.back();
      line(": tail: ", *found);
      lines.push_back("overrun " + std::to_string(code));
    }
    else if (reader.last < live.back().seq)
    {
      found = &live[reader.last + 1 - live.front().seq];
    }
    reader.last = found != nullptr ? found->seq : reader.last;
    return found;
  }
};

enum Kind
{
  KindRead,
  KindMulti,
  KindEx,
  KindMap
};

void check_read(CCommBuffer& buffer, Model& model, Model::Reader& reader, Kind kind, int max, uint32_t mask)
{
  static Bytes out(1 << 20);
  std::vector<FrameInfo_t> infos(64);
  int outLen = -1;
  said.clear();
  const int id = reader.id;
  const int got = kind == KindRead    ? buffer.Read(id, out.data(), infos.data())
                  : kind == KindMulti ? buffer.MultiRead(id, out.data(), infos.data(), max)
                  : kind == KindEx    ? buffer.MultiReadEx(id, out.data(), infos.data(), max, mask, &outLen)
                                      : buffer.MapRead(id, out.data(), infos.data(), max);
  const char* name = kind == KindRead ? "Read" : kind == KindMap ? "MapRead" : "MultiRead";
  const int code = kind == KindRead ? 0 : kind == KindMap ? 2 : 1;
  std::vector<std::string> lines;
  Bytes bytes;
  int count = 0;
  while (const Model::Placed* placed = model.next(reader, name, code, code == 1, lines))
  {
    const FrameInfo_t& info = placed->frame.info;
    const auto bit = [](uint32_t bits, uint32_t n)
    {
      return n < 32 && (bits & (1U << n)) != 0;
    };
    if ((kind == KindEx && !bit(mask, info.frameClass)) ||
        (kind == KindMap && !(bit(reader.classes, info.frameClass) && bit(reader.types, info.frameType))))
    {
      continue;
    }
    if (kind == KindEx)
    {
      uint32_t words[] = {0, 0, 0xAA55AA55, info.frameType, info.frameClass, info.length};
      memcpy(words, &info.timeStamp, 8);
      const auto* raw = reinterpret_cast<const unsigned char*>(words);
      bytes.insert(bytes.end(), raw, raw + 24);
    }
    bytes.insert(bytes.end(), placed->frame.payload.begin(), placed->frame.payload.end());
    ASSERT_TRUE(same_info(infos[static_cast<size_t>(count)], info));
    if (++count >= max || kind == KindRead)
    {
      break;
    }
  }
  ASSERT_EQ(got, count);
  ASSERT_EQ(said, lines);
  ASSERT_TRUE(std::equal(bytes.begin(), bytes.end(), out.begin()));
  ASSERT_EQ(outLen, kind == KindEx ? static_cast<int>(bytes.size()) : -1);
}

void check_seek(CCommBuffer& buffer, Model& model, Model::Reader& reader, bool byTime, unsigned int amount)
{
  ASSERT_EQ(buffer.Seek(reader.id, byTime, amount), model.live.empty() ? -1 : 0);
  if (model.live.empty())
  {
    return;
  }
  size_t at = model.live.size() - 1;
  const uint64_t newest = model.live.back().frame.info.timeStamp;
  if (!byTime)
  {
    at -= std::min<size_t>(at, amount);
  }
  else
  {
    while (at > 0 && newest - model.live[at].frame.info.timeStamp < uint64_t(amount) * 1000000)
    {
      at--;
    }
  }
  reader.last = model.live[at].seq;
}

void check_left(CCommBuffer& buffer, const Model& model, const Model::Reader& reader)
{
  unsigned int oldest = 7;
  unsigned int newest = 7;
  const int left = buffer.GetLeft(reader.id, &oldest, &newest);
  const bool behind = model.live.empty() || reader.last < model.live.front().seq;
  ASSERT_EQ(left, behind ? 0 : static_cast<int>(model.live.back().seq - reader.last + 1));
  const auto seconds = [](const Model::Placed& placed)
  {
    return static_cast<unsigned int>(placed.frame.info.timeStamp / 1000000);
  };
  ASSERT_EQ(oldest, model.live.empty() ? 0 : seconds(model.live.front()));
  ASSERT_EQ(newest, model.live.empty() ? 0 : seconds(model.live.back()));
}
} // namespace

TEST(FrameBuffer, MatchesAModelUnderRandomFramesReadersMasksAndSeeks)
{
  for (unsigned int seed = 1; seed <= 6; seed++)
  {
    std::mt19937 random(seed);
    CCommBuffer buffer(20000, note_log, note_overrun); // 24 slots, 23 lent
    Model model{20000, 23, {}, {}};
    uint64_t time = 5000000000000000;
    for (int step = 0; step < 6000; step++)
    {
      if (step % 600 == 0)
      {
        const auto classes = static_cast<uint32_t>(random());
        model.readers.push_back({buffer.Register(classes, 5), classes, 5, 0});
        ASSERT_EQ(model.readers.back().id, step / 600);
      }
      if (step % 900 == 899)
      {
        buffer.Unregister(model.readers[1].id);
        model.readers.erase(model.readers.begin() + 1);
      }
      ASSERT_EQ(buffer.GetUsrCount(), static_cast<int>(model.readers.size()));
      Model::Reader& reader = model.readers[random() % model.readers.size()];
      const auto what = random() % 10;
      if (step > 20 && what < 6)
      {
        // Long, short and equal frames by turns: room runs out, then nodes do, then ends meet exactly.
        const auto length = step / 200 % 3 == 0   ? 1 + random() % 3500
                            : step / 200 % 3 == 1 ? 1 + random() % 300
                                                  : 1000;
        Frame frame = make_frame(random, static_cast<uint32_t>(length), time += random() % 2000000);
        ASSERT_EQ(CCommBuffer::Write(&frame.info, reinterpret_cast<char*>(frame.payload.data()), &buffer), 0);
        model.put(frame);
      }
      else if (what < 8)
      {
        const auto mask = static_cast<uint32_t>(random());
        ASSERT_NO_FATAL_FAILURE(
            check_read(buffer, model, reader, Kind(random() % 4), int(random() % 8) - 1, mask));
      }
      else if (what == 8 && random() % 3 == 0)
      {
        ASSERT_NO_FATAL_FAILURE(
            check_seek(buffer, model, reader, random() % 2 == 0, unsigned(random() % 30)));
      }
      ASSERT_NO_FATAL_FAILURE(check_left(buffer, model, reader));
    }
  }
}

TEST(FrameBuffer, FramesOfAnySizeAreReadWholeOrNotAtAll)
{
  for (const int size : {-1, 0, 1, 1000, 1024, 9000})
  {
    std::mt19937 random(9);
    CCommBuffer buffer(size, nullptr, nullptr);
    const int id = buffer.Register(~0UL, ~0UL);
    std::vector<Frame> written;
    Bytes out(1 << 18);
    FrameInfo_t infos[64];
    int before = 0;
    for (int i = 0; i < 3000; i++)
    {
      // Of 9000 bytes, with 7 nodes: the 9th frame wraps to end where the oldest starts, the 10th overruns that.
      const uint32_t meeting[] = {1000, 1000, 1000, 1000, 1000, 1000, 1000, 1000, 2000, 2500};
      const auto any = static_cast<uint32_t>(random() % (random() % 3 == 0 ? 9100 : 2000));
      const uint32_t length = i < 10 ? meeting[i] : i % 40 < 3 ? 0 : any;
      written.push_back(make_frame(random, length, static_cast<uint64_t>(i) + 1));
      if (i == 20)
      {
        written.back().info.length = 0xFFFFFFFF; // the payload is not that long: it must not be touched
      }
      ASSERT_EQ(buffer.PutData(written.back().payload.data(), &written.back().info), 0);
      // From the oldest frame on: a new reader sees everything that is stored.
      const int all = buffer.Register(0, 0);
      const int count = buffer.MultiRead(all, out.data(), infos, 64);
      const unsigned char* at = out.data();
      for (int k = 0; k < count; k++)
      {
        const Frame& frame = written[static_cast<size_t>(infos[k].timeStamp - 1)];
        ASSERT_TRUE(same_info(frame.info, infos[k]));
        ASSERT_TRUE(std::equal(frame.payload.begin(), frame.payload.end(), at))
            << "size " << size << " frame " << i;
        at += frame.payload.size();
      }
      const bool storable = size >= 1024 && i != 20 && static_cast<int>(length) <= size;
      ASSERT_TRUE(!storable || (count > 0 && infos[count - 1].timeStamp == static_cast<uint64_t>(i) + 1));
      // An empty frame behind several is all that is left.
      ASSERT_TRUE(!storable || length > 0 || count == (before > 1 ? 1 : before + 1));
      before = count;
      buffer.Unregister(all);
    }
    EXPECT_EQ(buffer.Read(id, nullptr, infos) + buffer.MultiRead(id, out.data(), nullptr, 1), 0);
  }
}

TEST(FrameBuffer, UnknownReadersEmptyBuffersAndTheClock)
{
  CCommBuffer buffer(4096, nullptr, nullptr);
  unsigned char byte = 'a';
  FrameInfo_t info = {0, 1, 2, 1};
  int outLen = 5;
  EXPECT_EQ(buffer.MultiReadEx(9, &byte, &info, 1, 1, &outLen), 0);
  EXPECT_EQ(outLen, 0);
  EXPECT_EQ(buffer.Seek(9, 0, 1), -1);
  EXPECT_EQ(buffer.GetLeft(9, nullptr, nullptr), -1);
  EXPECT_EQ(buffer.Unregister(9), 0);
  const int id = buffer.Register(0, 0);
  EXPECT_EQ(buffer.Seek(id, 0, 1), -1);
  buffer.PutData(&byte, &info);
  EXPECT_LE(std::abs(static_cast<long long>(info.timeStamp / 1000000) - time(nullptr)), 2);
  EXPECT_EQ(CCommBuffer::Write(&info, nullptr, &buffer) + CCommBuffer::Write(nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(buffer.Read(id, &byte, &info), 1);
}

TEST(FrameBuffer, ReadersOnOtherThreadsSeeWholeFramesInOrder)
{
  CCommBuffer buffer(64 * 1024, nullptr, nullptr);
  constexpr uint64_t total = 20000;
  std::vector<std::thread> readers;
  readers.reserve(3);
  for (int r = 0; r < 3; r++)
  {
    readers.emplace_back(
        [&, id = buffer.Register(0, 0)]
        {
          Bytes out(8192);
          FrameInfo_t info = {};
          for (uint64_t last = 0; last < total; last = info.timeStamp)
          {
            while (buffer.Read(id, out.data(), &info) == 0)
            {
              std::this_thread::yield();
            }
            ASSERT_GT(uint64_t(info.timeStamp), last);
            const auto mark = static_cast<unsigned char>(info.timeStamp);
            ASSERT_EQ(std::count(out.begin(), out.begin() + info.length, mark), info.length);
          }
        });
  }
  Bytes payload(4096);
  for (uint64_t i = 1; i <= total; i++)
  {
    FrameInfo_t info = {i, 0, 0, static_cast<uint32_t>(1 + i * 37 % 4096)};
    std::fill(payload.begin(), payload.end(), static_cast<unsigned char>(i));
    buffer.PutData(payload.data(), &info);
    std::this_thread::yield();
  }
  for (std::thread& reader : readers)
  {
    reader.join();
  }
}
