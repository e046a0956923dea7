#include "update.h"

#include "finish_file.h"

#include <devcomm/digest.h>
#include <devcomm/http_download.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>

#include <unistd.h>

namespace
{

constexpr size_t kHexDigits = 32;

int fail(const char* what, const std::string& name)
{
  fprintf(stderr, "recorderctl: %s %s\n", what, name.c_str());
  return 1;
}

bool download(std::string url, std::string file)
{
  return http_download(url.data(), file.data()) == 0;
}

// The first word of a text, in lower case; empty when it is no MD5.
std::string md5_in(const std::string& text)
{
  std::string hex;
  std::ifstream(text) >> hex;
  const auto isHex = [](unsigned char c)
  {
    return isxdigit(c) != 0;
  };
  if (hex.size() != kHexDigits || !std::all_of(hex.begin(), hex.end(), isHex))
    return "";
  std::transform(hex.begin(), hex.end(), hex.begin(),
                 [](unsigned char c) { return static_cast<char>(tolower(c)); });
  return hex;
}

// Downloads, unless that was done before, and looks at what came.
int fetch(const std::string& url, const std::string& part, const std::string& md5)
{
  // An earlier call may have got all of it, and a server refuses to send what follows the end.
  if (CompareMd5File(part.c_str(), 0, md5.c_str()) == 0)
    return 0;
  if (!download(url, part))
    return fail("cannot download", url);
  if (CompareMd5File(part.c_str(), 0, md5.c_str()) == 0)
    return 0;
  unlink(part.c_str());
  return fail("wrong MD5 of", url);
}

} // namespace

int update(const std::string& url, const std::string& file)
{
  const std::string part = file + ".part";
  const std::string note = part + ".md5"; // what part is to become
  const std::string newNote = note + ".new";
  if (!std::ofstream(newNote)) // empties it too: an older one is not to be continued
    return fail("cannot write", newNote);
  const std::string md5 = download(url + ".md5", newNote) ? md5_in(newNote) : "";
  if (md5.empty())
  {
    unlink(newNote.c_str());
    return fail("no MD5 at", url + ".md5");
  }
  if (md5 != md5_in(note))
    unlink(part.c_str()); // the beginning of another image
  rename(newNote.c_str(), note.c_str());
  int status = fetch(url, part, md5);
  if (status == 0 && !finish_file(part, file))
    status = fail("cannot write", file);
  if (access(part.c_str(), F_OK) != 0)
    unlink(note.c_str());
  return status;
}
