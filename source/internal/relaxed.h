#pragma once

// Flags that threads poll without a lock are plain integers in public records, so that applications
// read them as ordinary fields. These helpers are how the library itself touches them.

/// Reads a flag that another thread may be writing. No ordering with other memory.
template <typename T>
inline T relaxed_load(const T& value)
{
  return __atomic_load_n(&value, __ATOMIC_RELAXED);
}

/// Writes a flag that another thread may be reading. No ordering with other memory.
template <typename T>
inline void relaxed_store(T& target, T value)
{
  __atomic_store_n(&target, value, __ATOMIC_RELAXED);
}
