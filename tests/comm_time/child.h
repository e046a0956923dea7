#pragma once

#include <cstdio>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

/// Runs a function in a child process, for what cannot be undone in the test's own. Gives what it wrote on
/// standard output and then its result, as a number.
template <typename Function>
std::string run_in_child(Function function)
{
  int ends[2];
  if (pipe(ends) != 0)
    return "no pipe";
  fflush(stdout);
  const pid_t pid = fork();
  if (pid == 0)
  {
    dup2(ends[1], STDOUT_FILENO);
    const int result = function();
    fflush(stdout);
    _exit(result);
  }
  close(ends[1]);
  std::string output;
  for (char c; read(ends[0], &c, 1) == 1;)
    output += c;
  close(ends[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  return output + (WIFEXITED(status) ? std::to_string(WEXITSTATUS(status)) : "died");
}
