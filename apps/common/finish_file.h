#pragma once

#include <string>

/// Gives a file its final name once all of it is safely on the disk, so that whatever has that name is whole.
///
/// @param part  the file as it was written, closed
/// @param file  in the same directory; one that is there already is replaced
/// @return false when that fails: part is then still there
bool finish_file(const std::string& part, const std::string& file);
