#pragma once

/// @file
/// Visibility of the library's public symbols. Everything is hidden unless marked with DEVCOMM_API.

#if defined(__GNUC__)
#define DEVCOMM_API __attribute__((visibility("default")))
#else
#define DEVCOMM_API
#endif
