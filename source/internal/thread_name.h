#pragma once

#include "internal/relaxed.h"

#include <cstddef>
#include <cstring>

// The name inside a thread handle. It is written under the handle's lock, but a stop that lost its race
// prints it without that lock: the bytes are accessed one by one, so that such a line may mix two names
// and is still terminated.

constexpr size_t kThreadNameSize = 64;

/// A terminated copy of a name that another thread may be changing.
struct ThreadNameCopy
{
  explicit ThreadNameCopy(const char (&name)[kThreadNameSize])
  {
    for (size_t i = 0; i < kThreadNameSize - 1; ++i)
    {
      text[i] = relaxed_load(name[i]);
    }
  }

  char text[kThreadNameSize] = {};
};

/// Sets the name, cut to 63 characters, and clears the rest.
inline void set_thread_name(char (&target)[kThreadNameSize], const char* name)
{
  char padded[kThreadNameSize] = {};
  memcpy(padded, name, strnlen(name, kThreadNameSize - 1));
  for (size_t i = 0; i < kThreadNameSize; ++i)
  {
    relaxed_store(target[i], padded[i]);
  }
}
