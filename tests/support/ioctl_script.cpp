#include "support/ioctl_script.h"

#include <cstdarg>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace
{

IoctlScript::Answer& current()
{
  static IoctlScript::Answer answer;
  return answer;
}

} // namespace

IoctlScript::IoctlScript(Answer answer)
{
  current() = std::move(answer);
}

IoctlScript::~IoctlScript()
{
  current() = nullptr;
}

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept
{
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return current() ? current()(fd, request, argument)
                   : static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}
