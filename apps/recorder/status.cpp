#include "status.h"

#include <cinttypes>
#include <cstdio>

namespace
{

struct PositionText
{
  explicit PositionText(const Position& position)
  {
    const char* fix = position.fix == 0 ? "none" : position.fix == 2 ? "2D" : "3D";
    snprintf(text, sizeof text, "fix %s, %.5f %.5f, %.0f km/h, fence %s", fix, position.lat, position.lon,
             position.speed, *position.fence != '\0' ? position.fence : "none");
  }
  char text[192];
};

} // namespace

Status::Status(const MediaSource& source, const VideoServer& server, const PositionBoard& positions,
               const Uploader& uploader)
    : source_(source), server_(server), positions_(positions), uploader_(uploader)
{
}

void Status::write(char* text, size_t size) const
{
  const std::string upload = uploader_.describe();
  snprintf(text, size, "frames %u, key frames %u, viewers %d, bytes %" PRIu64 ", dropped %" PRIu64 ", %s%s%s",
           source_.frames(), source_.key_frames(), server_.viewers(), server_.bytes(),
           server_.dropped() + source_.dropped(), PositionText(positions_.newest()).text,
           upload.empty() ? "" : ", ", upload.c_str());
}
