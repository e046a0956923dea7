#include "upload_session.h"

#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr size_t kBlockBytes = 65536;
constexpr int kStallSeconds = 10;
constexpr int kReplyBytes = 201;
constexpr size_t kLongestName =
    sizeof ftp_sdk_data_t::file_name - 1; // of a longer one the client sends a part

class Session
{
public:
  Session(const UserDefServerSet_t& server, const std::string& path, const std::string& name)
      : file_(name.size() <= kLongestName ? open(path.c_str(), O_RDONLY | O_CLOEXEC) : -1)
  {
    UserDefServerSet_t copy = server;
    client_.FtpSetServerInfo(0, &copy);
    client_.FtpSetLocalInfo("", name.c_str());
  }

  ~Session()
  {
    client_.FtpClose();
    if (file_ >= 0)
      close(file_);
  }

  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  bool run(const UploadProgress& progress)
  {
    struct stat about = {};
    if (file_ < 0 || fstat(file_, &about) != 0 || about.st_size >= INT32_MAX)
      return false;
    const int64_t size = about.st_size;
    // The directory once more: FtpStart enters it as seen from the user's own, and a file is listed as seen from the
    // root. Where it cannot be entered, each try would leave the file somewhere else.
    if (client_.FtpStart() != 0 || client_.FtpCwd(0) != 0 || client_.FtpGetServerDirFile() != 0)
      return false;
    const int64_t there = listed().size;
    const int64_t begin = there <= size ? there : 0;
    return client_.FtpCreateDateSockFd(begin > 0 ? 1 : 0, 0) == 0 && send(begin, size, progress) &&
           acknowledged() && client_.FtpGetServerDirFile() == 0 && listed().name_len != 0 &&
           listed().size == size;
  }

private:
  const ftp_list_entry_t& listed()
  {
    return client_.FtpGetClientData()->list_entries[0];
  }

  bool send(int64_t done, int64_t size, const UploadProgress& progress)
  {
    std::vector<char> block(kBlockBytes);
    const int data = client_.FtpGetClientData()->data_fd;
    while (progress(done, size))
    {
      if (done == size)
        return true;
      const ssize_t got = pread(file_, block.data(), block.size(), static_cast<off_t>(done));
      if (got <= 0 || client_.FtpWriteDate(data, block.data(), static_cast<unsigned>(got), kStallSeconds) < 0)
        return false;
      done += got;
    }
    return false;
  }

  // The end of the data connection is the end of the file, to which the server's reply then refers.
  bool acknowledged()
  {
    char reply[kReplyBytes];
    client_.FtpCloseSockFd(client_.FtpGetClientData()->data_fd);
    const int code = client_.FtpGetRc(reply, sizeof reply);
    return code == 226 || code == 250;
  }

  int file_;
  CFtpClient client_;
};

} // namespace

bool upload_file(const UserDefServerSet_t& server, const std::string& path, const std::string& name,
                 const UploadProgress& progress)
{
  return Session(server, path, name).run(progress);
}
