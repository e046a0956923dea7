#include "position.h"

void PositionBoard::post(const Position& position)
{
  const CAutoLock guard(&lock_);
  position_ = position;
}

Position PositionBoard::newest() const
{
  const CAutoLock guard(&lock_);
  return position_;
}
