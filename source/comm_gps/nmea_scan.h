#pragma once

#include <cstdarg>
#include <cstddef>

/// nmea_scanf with a limit of text_size bytes, the terminator included, on what %s stores: a longer token
/// is cut, so that the parse functions' own buffers hold against any sentence.
int nmea_scan_bounded(const char* buf, int len, const char* format, size_t text_size, va_list args);
