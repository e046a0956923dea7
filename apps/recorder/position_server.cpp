#include "position_server.h"

#include "dog.h"

#include <devcomm/coordinates.h>
#include <devcomm/gps.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <new>

namespace
{

constexpr int kTimeoutMs = 60000;
constexpr int kMaxPeers = 16;
constexpr int kDogSlot = 0; // of the connection's private data
constexpr double kKmhPerKnot = 1.852;
constexpr float kSpeedStep = 0.01F; // knots, of RmcRecord

// The record that nmea_Combine reads.
#pragma pack(push, 1)
struct RmcRecord
{
  char status; // 'A' valid, 'V' void
  char unused1;
  uint16_t speed; // in kSpeedStep
  char unused2[12];
  uint16_t course; // whole degrees
  char northSouth;
  char eastWest;
  char unused3[8];
  double lat; // ddmm.mmmmm
  double lon; // dddmm.mmmmm
};
#pragma pack(pop)
static_assert(offsetof(RmcRecord, course) == 16 && offsetof(RmcRecord, lat) == 28 &&
                  offsetof(RmcRecord, lon) == 36,
              "the layout that nmea_Combine reads");

RmcRecord rmc_record(const Position& position)
{
  const CCoordsCalculate coords;
  RmcRecord record = {};
  record.status = position.fix == 0 ? 'V' : 'A';
  if (position.fix == 0)
    return record;
  const double speed = position.speed / kKmhPerKnot / static_cast<double>(kSpeedStep);
  record.speed = static_cast<uint16_t>(lround(std::clamp(speed, 0.0, 65535.0)));
  record.course = static_cast<uint16_t>(lround(position.course) % 360);
  record.northSouth = position.lat < 0 ? 'S' : 'N';
  record.eastWest = position.lon < 0 ? 'W' : 'E';
  record.lat = coords.degree2Dm(fabs(position.lat));
  record.lon = coords.degree2Dm(fabs(position.lon));
  return record;
}

} // namespace

PositionServer::PositionServer() : server_(ServerInit()) {}

PositionServer::~PositionServer()
{
  ServerUninit(server_);
}

bool PositionServer::start(int port)
{
  listening_ =
      server_ != nullptr && ServerStartListen(server_, port, kTimeoutMs, kMaxPeers, on_event, nullptr) == 0;
  return listening_ && ServerGetStatus(server_) != 0;
}

// Only the watchdog has to do with a peer; sentences are queued for all by on_position().
int PositionServer::on_event(SERVICE_STATE_E state, const char* /*data*/, int len, tcp_server_st* /*server*/,
                             tcp_client_st* client, void* /*arg*/)
{
  if (state == SERVICE_STATE_START)
    ClientSetPrivateData(client, kDogSlot, new (std::nothrow) Dog("position peer"));
  auto* dog = static_cast<Dog*>(ClientGetPrivateData(client, kDogSlot));
  if (dog == nullptr)
    return -1;
  dog->feed();
  if (state == SERVICE_STATE_CLOSE)
    delete dog;
  return len;
}

void PositionServer::ask_stop()
{
  if (listening_)
    ThreadSetStatus(server_->thread, 0);
}

bool PositionServer::stop()
{
  if (listening_)
    ServerStopListen(server_);
  listening_ = false;
  return ServerGetConnCount(server_) == 0;
}

void PositionServer::on_position(const Position& position)
{
  if (position.time == sentTime_)
    return;
  sentTime_ = position.time;
  RmcRecord record = rmc_record(position);
  char sentence[160];
  const int length = nmea_Combine("GPRMC", static_cast<long>(position.time), &record, sentence, kSpeedStep);
  if (length > 0)
    ServerSendAll(server_, sentence, length);
}
