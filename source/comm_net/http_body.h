#pragma once

#include <devcomm/http_download.h>

/// Moves the body of a response into the file; the steps behind the public functions.
class HttpBody
{
public:
  /// @param room  lets the file write this many bytes at a time; lives as long as the record. Null: the file
  ///              has a small buffer of its own
  explicit HttpBody(http_t* h, char* room = nullptr, size_t roomSize = 0);

  int Receive();
  int ReceiveChunks();
  int Read(int len);
  int Save(const char* data, int len);

private:
  bool OpenFile();

  http_t* m_h;
  char* m_room;
  size_t m_roomSize;
};
