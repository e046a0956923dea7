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
  Frame frame = {{time, uint32_t(random() % 3), uint32_t(random() % 34), length}, Bytes(length)};
  std::generate(frame.payload.begin(), frame.payload.end(), [&] { return uint8_t(random()); });
  return frame;
}

bool bit(uint32_t bits, uint32_t n)
{
  return n < 32 && (bits & (1U << n)) != 0;
}

// What is stored, told from where each frame lies in the area.
struct Model
{
  struct Placed
  {
    Frame frame;
    int64_t offset;
    uint32_t seq;

    uint64_t time() const
    {
      return frame.info.timeStamp;
    }
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
    for (int64_t at; !live.empty(); live.pop_front())
    {
      at = live.front().offset;
      if (!(from < to ? at >= from && at <= to : at <= to || at >= from))
        break;
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
        drop_in(end, at + length);
    }
    if (live.size() == nodes)
      drop_in(live.front().offset, live.front().offset + live.front().frame.info.length);
    live.push_back({frame, at, seq});
  }

  // The reader's next frame; says what the buffer should have said.
  const Placed* next(Reader& reader, const std::string& call, int code, std::vector<std::string>& lines)
  {
    if (live.empty() || reader.last >= live.back().seq)
      return nullptr;
    const bool isNew = reader.last == 0;
    const bool isLapped = !isNew && reader.last < live.front().seq;
    const Placed& found = isNew      ? live.front()
                          : isLapped ? live.back()
                                     : live[reader.last + 1 - live.front().seq];
    if (isLapped || (isNew && call == "MultiRead"))
      lines.push_back("2 CCommBuffer::" + call + (isNew ? ": head: " : ": tail: ") +
                      std::to_string(found.time()) + "\n");
    if (isLapped)
      lines.push_back("overrun " + std::to_string(code));
    reader.last = found.seq;
    return &found;
  }
};

void check_read(CCommBuffer& buffer, Model& model, Model::Reader& reader, const std::string& call, int max,
                uint32_t mask)
{
  static Bytes out(1 << 20);
  std::vector<FrameInfo_t> infos(64);
  int outLen = -1;
  said.clear();
  const int id = reader.id;
  const bool one = call == "Read";
  const bool ex = call == "MultiReadEx";
  const bool map = call == "MapRead";
  const int got = one   ? buffer.Read(id, out.data(), infos.data())
                  : ex  ? buffer.MultiReadEx(id, out.data(), infos.data(), max, mask, &outLen)
                  : map ? buffer.MapRead(id, out.data(), infos.data(), max)
                        : buffer.MultiRead(id, out.data(), infos.data(), max);
  const int code = one ? 0 : map ? 2 : 1;
  std::vector<std::string> lines;
  Bytes bytes;
  int count = 0;
  while (const Model::Placed* placed = model.next(reader, ex ? "MultiRead" : call, code, lines))
  {
    const FrameInfo_t& info = placed->frame.info;
    if ((ex && !bit(mask, info.frameClass)) ||
        (map && !(bit(reader.classes, info.frameClass) && bit(reader.types, info.frameType))))
      continue;
    if (ex)
    {
      uint32_t words[] = {0, 0, 0xAA55AA55, info.frameType, info.frameClass, info.length};
      memcpy(words, &info.timeStamp, 8);
      const auto* raw = reinterpret_cast<const unsigned char*>(words);
      bytes.insert(bytes.end(), raw, raw + 24);
    }
    bytes.insert(bytes.end(), placed->frame.payload.begin(), placed->frame.payload.end());
    ASSERT_EQ(memcmp(&infos[static_cast<size_t>(count)], &info, sizeof info), 0);
    if (++count >= max || one)
      break;
  }
  ASSERT_EQ(got, count);
  ASSERT_EQ(said, lines);
  ASSERT_TRUE(std::equal(bytes.begin(), bytes.end(), out.begin()));
  ASSERT_EQ(outLen, ex ? static_cast<int>(bytes.size()) : -1);
}

void check_seek(CCommBuffer& buffer, Model& model, Model::Reader& reader, bool byTime, unsigned int amount)
{
  const std::deque<Model::Placed>& live = model.live;
  ASSERT_EQ(buffer.Seek(reader.id, byTime, amount), live.empty() ? -1 : 0);
  if (live.empty())
    return;
  size_t at = live.size() - 1;
  while (at > 0 && (byTime ? live.back().time() - live[at].time() < uint64_t(amount) * 1000000
                           : live.size() - 1 - at < amount))
    at--;
  reader.last = live[at].seq;
}

void check_left(CCommBuffer& buffer, const Model& model, const Model::Reader& reader)
{
  unsigned int oldest = 7;
  unsigned int newest = 7;
  const int left = buffer.GetLeft(reader.id, &oldest, &newest);
  const bool behind = model.live.empty() || reader.last < model.live.front().seq;
  ASSERT_EQ(left, behind ? 0 : static_cast<int>(model.live.back().seq - reader.last + 1));
  ASSERT_EQ(oldest, model.live.empty() ? 0 : uint32_t(model.live.front().time() / 1000000));
  ASSERT_EQ(newest, model.live.empty() ? 0 : uint32_t(model.live.back().time() / 1000000));
}
} // namespace

TEST(FrameBuffer, MatchesAModelUnderRandomFramesReadersMasksAndSeeks)
{
  const char* const calls[] = {"Read", "MultiRead", "MultiReadEx", "MapRead"};
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
        Frame frame = make_frame(random, static_cast<uint32_t>(length), time += random() % 4 * 500000);
        ASSERT_EQ(CCommBuffer::Write(&frame.info, reinterpret_cast<char*>(frame.payload.data()), &buffer), 0);
        model.put(frame);
      }
      else if (what < 8)
      {
        const auto mask = static_cast<uint32_t>(random());
        ASSERT_NO_FATAL_FAILURE(
            check_read(buffer, model, reader, calls[random() % 4], int(random() % 8) - 1, mask));
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
        written.back().info.length = 0xFFFFFFFF; // the payload is not that long: it must not be touched
      ASSERT_EQ(buffer.PutData(written.back().payload.data(), &written.back().info), 0);
      // From the oldest frame on: a new reader sees everything that is stored.
      const int all = buffer.Register(0, 0);
      const int count = buffer.MultiRead(all, out.data(), infos, 64);
      const unsigned char* at = out.data();
      for (int k = 0; k < count; k++)
      {
        const Frame& frame = written[static_cast<size_t>(infos[k].timeStamp - 1)];
        ASSERT_EQ(memcmp(&frame.info, &infos[k], sizeof frame.info), 0);
        ASSERT_TRUE(std::equal(frame.payload.begin(), frame.payload.end(), at)) << size << " " << i;
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
  std::thread readers[3];
  for (std::thread& reader : readers)
  {
    reader = std::thread(
        [&, id = buffer.Register(0, 0)]
        {
          Bytes out(8192);
          FrameInfo_t info = {};
          for (uint64_t last = 0; last < total; last = info.timeStamp)
          {
            while (buffer.Read(id, out.data(), &info) == 0)
              std::this_thread::yield();
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
    reader.join();
}
