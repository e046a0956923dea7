#pragma once

/// @file
/// One signal set-up for a device process: what ends or disturbs it is logged.
///
///     SignalRegister(nullptr); // first thing in main

#include <devcomm/export.h>

/// Ignores SIGCHLD, so that children never become zombies (and cannot be waited for), and installs one
/// handler for SIGPIPE, SIGTERM, SIGABRT, SIGINT, SIGQUIT, SIGSEGV, SIGUSR1 and SIGUSR2. SIGSTOP and SIGKILL
/// are asked for as well and refused by the system.
///
/// @param handler  null means SignalHandler
DEVCOMM_API void SignalRegister(void (*handler)(int));

/// The default handler: writes "[PID]Recv Signal TEXT" to standard error. After that SIGINT and SIGTERM
/// write "[PID]Recv SIGINT" (the same for both) and end the process with status 0; SIGSEGV writes its line
/// again, waits a second, flushes the file systems and ends the process with status 0; everything else
/// returns and the process carries on. SIGCHLD does nothing.
///
/// Runs on the thread that got the signal and ends the process through exit, whose handlers are not safe
/// in a signal: a thread interrupted inside the allocator may hang there. Keeps errno when it returns.
DEVCOMM_API void SignalHandler(int sig);
