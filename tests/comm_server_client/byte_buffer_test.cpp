#include <devcomm/byte_buffer.h>
#include <devcomm/socket.h>

#include "support/measure.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstring>
#include <memory>
#include <random>

namespace
{

using Record = std::unique_ptr<ExpandBuffer, void (*)(ExpandBuffer*)>;

Record make_record()
{
  return Record(ExpandBuffer_new(), ExpandBuffer_free);
}

std::string text_of(const Record& record)
{
  return std::string(record->buffer, record->buffer + record->length);
}

/// What readline takes off, "-" for null.
std::string line_of(ExpandBuffer* buf)
{
  std::unique_ptr<char, void (*)(void*)> line(ExpandBuffer_readline(buf), free);
  return line ? line.get() : "-";
}

void fill(ExpandBuffer* buf, const std::string& text)
{
  ExpandBuffer_Dec(buf, UINT_MAX);
  ASSERT_EQ(ExpandBuffer_add(buf, text.data(), static_cast<unsigned>(text.size())), 0);
}

} // namespace

TEST(ByteBuffer, BothFormsFollowAPlainStringThroughRandomOperations)
{
  std::independent_bits_engine<std::mt19937, 32, unsigned> random(20240601);
  const Record record = make_record();
  SimpleBufMng queue;
  std::string model;
  for (int step = 0; step < 10000; ++step)
  {
    const unsigned n = random() % 700;
    const unsigned op = random() % 8;
    if (op < 3)
    {
      std::string data(n, '\0');
      std::generate(data.begin(), data.end(), [&] { return "abc"[random() % 3]; });
      ASSERT_EQ(queue.Add(data.data(), n), 0);
      ASSERT_EQ(ExpandBuffer_add(record.get(), data.data(), n), 0);
      model += data;
    }
    else if (op < 5)
    {
      queue.Drain(n);
      ExpandBuffer_Dec(record.get(), n);
      model.erase(0, n);
    }
    else if (op == 5)
    {
      char one[700];
      char other[700];
      const std::string taken = model.substr(0, n);
      ASSERT_EQ(std::string(one, queue.Remove(one, n)), taken);
      ASSERT_EQ(std::string(other, ExpandBuffer_remove(record.get(), other, n)), taken);
      model.erase(0, n);
    }
    else if (op == 6 && !model.empty())
    {
      const size_t at = random() % model.size();
      const std::string what = model.substr(at, 1 + n % 9) + (n % 7 == 0 ? "z" : "");
      const size_t place = model.find(what);
      const auto* key = reinterpret_cast<const unsigned char*>(what.data());
      const unsigned char* found = queue.Find(key, static_cast<unsigned>(what.size()));
      ASSERT_EQ(found == nullptr ? std::string::npos : static_cast<size_t>(found - queue.Buffer()), place);
    }
    else
    {
      ASSERT_EQ(queue.Expand(n), 0);
      ASSERT_EQ(ExpandBuffer_expand(record.get(), n), 0);
      memset(queue.Buffer() + queue.Length(), 'x', n);
    }
    const ExpandBuffer& buf = *record.get();
    ASSERT_EQ(buf.buffer, buf.origin + buf.misalign);
    ASSERT_LE(uint64_t{buf.misalign} + buf.length, buf.totallen);
    ASSERT_EQ(text_of(record), model);
    ASSERT_EQ(std::string(queue.Buffer(), queue.Buffer() + queue.Length()), model);
  }
}

TEST(ByteBuffer, GrowsByDoublingPrintsItAndReclaimsTheFrontFirst)
{
  const Record record = make_record();
  ExpandBuffer* buf = record.get();
  char line[128];
  const std::string text(210, 't');
  CaptureStdout();
  EXPECT_EQ(ExpandBuffer_add(buf, text.data(), 210), 0);
  EXPECT_EQ(buf->totallen, 256U);
  snprintf(line, sizeof line, "buf ptr=0x%x, buf->totallen =0 , length=256, need=210\n",
           static_cast<unsigned>(reinterpret_cast<uintptr_t>(buf)));
  EXPECT_EQ(GetCapturedStdout(), line);

  CaptureStdout();
  ExpandBuffer_Dec(buf, 200);
  EXPECT_EQ(ExpandBuffer_expand(buf, 100), 0); // 200 consumed bytes are enough
  EXPECT_TRUE(buf->misalign == 0 && buf->totallen == 256);
  EXPECT_EQ(GetCapturedStdout(), ""); // moving alone prints nothing

  fill(buf, text);
  ExpandBuffer_Dec(buf, 200);
  EXPECT_EQ(ExpandBuffer_expand(buf, 250), 0);
  EXPECT_EQ(buf->totallen, 512U); // the consumed front counts: 460 bytes asked of it
  ExpandBuffer_Dec(buf, 10);
  EXPECT_EQ(buf->buffer, buf->origin);

  // Sizes beyond 32 bits are refused before anything moves; wrapped sums never pass for small ones.
  fill(buf, text);
  ExpandBuffer_Dec(buf, 1);
  for (unsigned need : {UINT_MAX, UINT_MAX - 200, 0x80000001U})
  {
    EXPECT_EQ(ExpandBuffer_expand(buf, need), -1);
    EXPECT_EQ(buf->misalign, 1U);
  }
  EXPECT_EQ(ExpandBuffer_add(buf, nullptr, 1), -1);
  EXPECT_EQ(buf->length, 209U);

  const Record fresh = make_record();
  buf = fresh.get();
  const unsigned char key = 'x';
  EXPECT_EQ(ExpandBuffer_find(buf, &key, 1), nullptr);
  EXPECT_EQ(ExpandBuffer_expand(buf, 300), 0);
  EXPECT_EQ(buf->totallen, 512U);
  EXPECT_EQ(ExpandBuffer_find(buf, &key, 0), nullptr);
}

TEST(ByteBuffer, AppendsItsOwnBytesAndMovesOtherBuffers)
{
  const Record one = make_record();
  const Record two = make_record();
  fill(one.get(), std::string(200, '-') + "abc");
  ExpandBuffer_Dec(one.get(), 200);
  EXPECT_EQ(ExpandBuffer_add(one.get(), one->buffer, 3), 0);
  EXPECT_EQ(text_of(one), "abcabc");
  EXPECT_EQ(ExpandBuffer_add(one.get(), one->origin, 206), 0); // reaches into the consumed front
  EXPECT_EQ(text_of(one), "abcabc" + std::string(200, '-') + "abcabc");

  const uint8_t* storage = one->origin;
  EXPECT_EQ(ExpandBuffer_add_buffer(two.get(), one.get()), 0);
  EXPECT_EQ(two->origin, storage); // exchanged, not copied
  EXPECT_EQ(one->totallen, 0U);
  EXPECT_EQ(ExpandBuffer_add_buffer(two.get(), two.get()), 0);
  EXPECT_EQ(two->length, 212U);
  fill(one.get(), "end");
  EXPECT_EQ(ExpandBuffer_add_buffer(two.get(), one.get()), 0);
  EXPECT_EQ(text_of(two).substr(209), "abcend");
  EXPECT_EQ(one->length, 0U);
}

TEST(ByteBuffer, FormatsTextsOfAnyLength)
{
  const Record record = make_record();
  const std::string longText(5000, 'L');
  EXPECT_EQ(ExpandBuffer_add_printf(record.get(), "%d-%s;", 42, "x"), 5);
  EXPECT_EQ(record->totallen, 2048U);
  EXPECT_EQ(ExpandBuffer_add_printf(record.get(), "%s%d", longText.c_str(), 7), 5001);
  // A text that fills the space to the byte has no room for its NUL and goes round again.
  constexpr int space = 8192 - 5006;
  ASSERT_EQ(record->totallen, 8192U);
  EXPECT_EQ(ExpandBuffer_add_printf(record.get(), "%*s", space, "!"), space);
  EXPECT_EQ(text_of(record), "42-x;" + longText + "7" + std::string(space - 1, ' ') + "!");
}

TEST(ByteBuffer, TakesLinesOfEveryEnding)
{
  const Record record = make_record();
  EXPECT_EQ(line_of(record.get()), "-");
  fill(record.get(), "abc");
  EXPECT_EQ(line_of(record.get()), "-");
  EXPECT_EQ(text_of(record), "abc");
  fill(record.get(), "\r\na\n\nb\n\rc\r\rd\r");
  for (const char* line : {"", "a", "", "b", "c", "", "d", "-"})
    EXPECT_EQ(line_of(record.get()), line);
}

TEST(ByteBuffer, ReadsAndWritesDescriptorsByOneCallEach)
{
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  SimpleBufMng queue;
  const std::string text(6000, 'p');
  ASSERT_EQ(queue.Add(text.data(), 6000), 0);
  EXPECT_EQ(queue.Writefile(fds[1], 1000), 1000);
  EXPECT_EQ(queue.Write(fds[1]), 5000);
  EXPECT_EQ(queue.Write(fds[1]), 0);
  EXPECT_EQ(queue.Read(fds[0], 10), 10);
  EXPECT_EQ(queue.Readfile(fds[0], -1), 4096);
  EXPECT_EQ(queue.Read(fds[0], 5000), 6000 - 4106);
  close(fds[1]);
  EXPECT_EQ(queue.Read(fds[0], 5000), 0);
  close(fds[0]);
  EXPECT_EQ(error_of([&] { return queue.Read(fds[0], 1); }), EBADF);
  EXPECT_EQ(error_of([&] { return queue.Write(fds[0]); }), EBADF);
  EXPECT_EQ(queue.Length(), 6000U);

  // A buffer that could not be made never looks like a socket to try again later.
  EXPECT_EQ(error_of([&] { return ExpandBuffer_read(nullptr, fds[0], 1); }), EINVAL);
  EXPECT_EQ(error_of([&] { return ExpandBuffer_write(nullptr, fds[0]); }), EINVAL);

  // A vanished reader is an error, never a signal, and one pending before stays pending.
  int pair[2];
  ASSERT_EQ(pipe(fds) + socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  close(fds[0]);
  close(pair[0]);
  signal(SIGPIPE, SIG_DFL);
  for (int fd : {fds[1], pair[1]})
    EXPECT_EQ(error_of([&] { return queue.Write(fd); }), EPIPE);
  sigset_t pipeSignal;
  sigemptyset(&pipeSignal);
  sigaddset(&pipeSignal, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
  raise(SIGPIPE);
  EXPECT_EQ(queue.Write(fds[1]), -1);
  const timespec atOnce{};
  EXPECT_EQ(sigtimedwait(&pipeSignal, nullptr, &atOnce), SIGPIPE);
  pthread_sigmask(SIG_UNBLOCK, &pipeSignal, nullptr);
  EXPECT_EQ(queue.Length(), 6000U);
  close(fds[1]);
  close(pair[1]);
}

TEST(ByteBuffer, SendsAllItHoldsAsOneDatagram)
{
  sockaddr_in to{};
  const int receiver = udp_unicast_init(0, &to);
  const int sender = net_udp_connect("127.0.0.1", ntohs(to.sin_port), &to);
  ASSERT_GT(sender, 0);
  SimpleBufMng out;
  SimpleBufMng in;
  sockaddr_in from{};
  EXPECT_EQ(error_of([&] { return in.UdpRead(receiver, -1, &from); }), EAGAIN);
  out.Add("two ", 4);
  out.Add("parts", 5);
  EXPECT_EQ(out.UdpWrite(sender, &to), 9);
  EXPECT_EQ(out.Length(), 0U);
  EXPECT_EQ(select_read(receiver, 1000), 1);
  EXPECT_EQ(in.UdpRead(receiver, 7, &from), 7); // cut, the rest is lost
  EXPECT_EQ(std::string(in.Buffer(), in.Buffer() + in.Length()), "two par");
  EXPECT_EQ(from.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(in.UdpRead(receiver, -1, nullptr), -1);
  close(sender);
  close(receiver);
}
