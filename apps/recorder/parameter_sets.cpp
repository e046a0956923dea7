#include "parameter_sets.h"

AccessUnit ParameterSets::complete(const AccessUnit& unit, size_t limit)
{
  NalUnit nal = {};
  if (find_nal(unit.data, unit.size, kNalSps, nal))
  {
    sets_.clear();
    for (size_t at = 0; next_nal(unit.data, unit.size, at, nal);)
      if (nal.type == kNalSps || nal.type == kNalPps)
        sets_.insert(sets_.end(), unit.data + nal.begin, unit.data + nal.end);
    return unit;
  }
  if (!unit.keyFrame || sets_.empty() || unit.size + sets_.size() > limit)
    return unit;

  // A delimiter stays in front.
  size_t front = 0;
  if (!next_nal(unit.data, unit.size, front, nal) || nal.type != kNalDelimiter)
    front = 0;
  completed_.assign(unit.data, unit.data + front);
  completed_.insert(completed_.end(), sets_.begin(), sets_.end());
  completed_.insert(completed_.end(), unit.data + front, unit.data + unit.size);
  return {completed_.data(), completed_.size(), true};
}
