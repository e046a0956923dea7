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

// The first word of the text at url, in lower case; empty when it is no MD5.
std::string published_md5(const std::string& url, const std::string& scratch)
{
  unlink(scratch.c_str()); // an older one is not to be continued
  std::string hex;
  if (download(url, scratch))
    std::ifstream(scratch) >> hex;
  unlink(scratch.c_str());
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

} // namespace

int update(const std::string& url, const std::string& file)
{
  const std::string part = file + ".part";
  const std::string md5 = published_md5(url + ".md5", file + ".md5.part");
  if (md5.empty())
    return fail("no MD5 at", url + ".md5");
  // An earlier call may have got all of it, and a server refuses to send what follows the end.
  if (CompareMd5File(part.c_str(), 0, md5.c_str()) != 0)
  {
    if (!download(url, part))
      return fail("cannot download", url);
    if (CompareMd5File(part.c_str(), 0, md5.c_str()) != 0)
    {
      unlink(part.c_str());
      return fail("wrong MD5 of", url);
    }
  }
  return finish_file(part, file) ? 0 : fail("cannot write", file);
}
