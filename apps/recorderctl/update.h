#pragma once

#include <string>

/// Downloads url into file, and believes it only when it has the MD5 that the text at url + ".md5" begins with.
///
/// The download lies in file + ".part" until then. What a broken one leaves there is kept, beside the MD5 in file +
/// ".part.md5", for the next call to go on from unless another image is published by then; a whole one with another MD5
/// is removed. file itself is never half written.
///
/// @return exit status; one line on standard error has said why it is not 0
int update(const std::string& url, const std::string& file);
