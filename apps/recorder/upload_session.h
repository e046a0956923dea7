#pragma once

#include <devcomm/ftp_client.h>

#include <cstdint>
#include <functional>
#include <string>

/// Told how much of the file the server has been given, in bytes. @return false to give up
using UploadProgress = std::function<bool(int64_t done, int64_t size)>;

/// Sends a file to an FTP server, in a session of its own, from where an earlier attempt stopped on.
///
/// A file of the name that the server lists is the beginning of ours unless it is longer; then it is replaced. Blocks
/// for as long as the FTP client does, which is a minute for a server that falls silent.
///
/// @param path  below 2 GiB
/// @param name  what it is called on the server
/// @return whether the server has acknowledged the file after its last byte, and lists it with its full size
bool upload_file(const UserDefServerSet_t& server, const std::string& path, const std::string& name,
                 const UploadProgress& progress);
