#pragma once

/// @file
/// Elapsed time, local time, time texts, the device's time zone, and process chores.
///
/// Free functions without state, save the text buffer of strtime and the busy flag of comm_setTZ. Any thread
/// may call any of them at any time unless its comment says otherwise. Times are seconds since 1970-01-01 UTC
/// in a `long`: on 32-bit machines they end in January 2038. Elapsed time is wall-clock time, so setting the
/// clock shows in it.
///
/// @code
/// const unsigned long long start = msecdiff(0);                  // now, in milliseconds
/// const int result = systemdump("fsck -p /dev/sda1", 60);        // 0: ended within a minute
/// printf("%d after %llu ms, at %s\n", result, msecdiff(start), strtime(time(nullptr)));
/// @endcode

#include <devcomm/export.h>

#include <stddef.h>
#include <time.h>

// ---- Elapsed time ----

/// Milliseconds since an earlier stamp of the same clock; msecdiff(0) is the stamp of now.
///
/// @param start  milliseconds since 1970
/// @return now - start; wraps to a huge number when the clock was set back behind start
DEVCOMM_API unsigned long long msecdiff(unsigned long long start);

/// Microseconds since an earlier stamp of the same clock; usecdiff(0) is the stamp of now.
///
/// @param start  microseconds since 1970
/// @return now - start; wraps to a huge number when the clock was set back behind start
DEVCOMM_API unsigned long long usecdiff(unsigned long long start);

/// Keeps the processor busy for a time too short to sleep; never returns early, even when the clock is set.
///
/// @param us  microseconds
/// @return what the last gettimeofday() returned: 0
DEVCOMM_API int delayus(unsigned long long us);

// ---- Local time ----

/// Breaks a time down in the local zone, without the C library's shared record.
///
/// @param t    seconds since 1970, may be negative
/// @param out  C library numbering: month from 0, years from 1900. The daylight flag and the zone fields are
///             not written, and nothing is on failure
/// @return 1, or 0 when the year does not fit an int or an argument is null
///
/// Follows a change of TZ at once, as localtime() does.
DEVCOMM_API int comm_localtime_r(const long* t, tm* out);

/// The local time of now.
///
/// @return month 1 to 12 and the full year, unlike the C library's numbering: not for mktime() or strftime()
DEVCOMM_API tm GetRealTime();

/// mktime() with natural numbering; the time given is standard time, also in summer.
///
/// @param year  full year, 1900 or later
/// @param mon   1 to 12; this and the rest may be out of range and are carried over, as mktime() does
/// @param mday  1 to 31
/// @param hour  0 to 23
/// @param min   0 to 59
/// @param sec   0 to 60
/// @return seconds since 1970; 0 for a year below 1900; -1 as mktime() reports it
DEVCOMM_API time_t mktime_ex(int year, int mon, int mday, int hour, int min, int sec);

// ---- Time texts ----

/// Prints "[YYYY.MM.DD hh:mm:ss]", local time, on standard output; no line end.
///
/// @param t  seconds since 1970; a year that does not fit an int prints nothing
DEVCOMM_API void printtime(long t);

/// Writes "YYYY-MM-DD hh:mm:ss", local time, with a terminating zero.
///
/// @param s     buffer; 20 bytes hold every year of four digits
/// @param size  bytes
/// @param t     seconds since 1970
/// @return length without the zero; 0 when s is null, size is 0, or the text does not fit (then s is empty)
DEVCOMM_API size_t strftime_r(char* s, unsigned size, long t);

/// Reads "YYYY-MM-DD hh:mm:ss" as local standard time.
///
/// @param s  text; more may follow
/// @param t  receives seconds since 1970. A text that cannot be read still writes it: the fields up to the
///           fault, the others 0, so look at the result first
/// @return the position after the text read; null when an argument is null (t is not written) or the text
///         cannot be read
DEVCOMM_API char* strptime_r(const char* s, long* t);

/// strftime_r into a buffer of the library's own.
///
/// @return a static text, empty when the time cannot be written; the next call overwrites it. One thread only
DEVCOMM_API char* strtime(long t);

/// Reads "YYYYMMDD?hhmmss", where ? is any one character; the text may end after any field.
///
/// Fields that are missing or out of range take a default: year 1900 (range 1900 to 2030), month 1, day 1
/// (1 to 31 in any month), hour, minute and second 0. Hours from 24 and minutes and seconds from 60 count as
/// out of range.
///
/// @param s  zero-terminated
/// @return month 1 to 12 and the full year, unlike the C library's numbering: not for mktime() or strftime();
///         all other fields 0. All zero when the text is null or shorter than 4 characters
DEVCOMM_API tm StrToTime(char* s);

// ---- Time zone ----

/// Writes the device's time zone to /etc/TZ and says so on standard output.
///
/// Offsets are east of Greenwich and the file has the POSIX sign, so (8, 0) writes "GMT-08:00" and a line end.
/// (-8, 0) writes "GMT+-8:00": the readers of the file know it so. Running processes keep their zone.
///
/// @param hours    -12 to 12
/// @param minutes  0 to 59
/// @return 0, also when the file cannot be opened; -1 when a value is out of range, and from then on for every
///         call until the process restarts; -1 while another thread is setting the zone
DEVCOMM_API int comm_setTZ(int hours, int minutes);

// ---- Processes ----

/// The running program's folder and name, from /proc/self/exe.
///
/// @param dir   receives the folder with its final '/'
/// @param name  receives the part after it; must hold size bytes too
/// @param size  bytes of dir; the whole path has to fit
/// @return length of the folder with its final '/'; -1 when the link cannot be read, the path does not fit,
///         or an argument is null
DEVCOMM_API int get_cur_process_info(char* dir, char* name, int size);

/// Finds a process by a part of its name.
///
/// @param name  looked for in the kernel's name in parentheses, which holds 15 characters of the program's
///              name and counts here up to its first space: "(init)" contains "init", "(init" and ""
/// @return pid of the first match in the order of /proc, perhaps the caller itself; -1 when there is none or
///         name is null
DEVCOMM_API int get_process_status(char* name);

/// Finds a process whose whole name is how `name` begins: "sshd-monitor" finds "sshd", "ssh" does not.
///
/// @param name  compared with the kernel's name of 15 characters at most. Of a name with a space, the part
///              before it counts, less its last character
/// @return pid of the first match in the order of /proc, perhaps the caller itself; -1 when there is none or
///         name is null
DEVCOMM_API int get_process_status_ex(char* name);

/// Closes every descriptor from 0 to the soft limit of open files minus 1, for a child that is to inherit none.
///
/// An unlimited number counts as 1024.
///
/// @return 0; -1 at the first close() that fails other than on a descriptor that is not open (those above it
///         stay open), or when the limit cannot be read
DEVCOMM_API int _close_parent_all_fd();

/// Reads a whole file, also one under /proc or /sys that reports no size.
///
/// @return the bytes and a terminating zero, to be freed with free(); null when path is null, when the file
///         cannot be opened or read, or without memory
DEVCOMM_API char* proc_sys_file_to_buf(char* path);

// ---- Shell commands ----

/// Runs a command with /bin/sh and waits for it, for a limited time.
///
/// @param cmd      at most 511 bytes; the rest is cut off
/// @param seconds  limit, at most 3600 (more counts as 3600), in steps of the clock's whole seconds: up to one
///                 second short. 0 or less kills a command that does not end at once
/// @return 0 when it ended in time, whatever its exit status (127 when there is no shell); -1 cmd is null;
///         -2 fork failed; -3 waiting failed; -4 the limit came and the shell was killed
///
/// Only the shell itself is killed and waited for: what it started in the background runs on. SIGCHLD has its
/// default action meanwhile. SIGQUIT is ignored meanwhile and stays so in the calling process, unless the fork
/// failed. As these are settings of the process, one thread at a time may call this.
DEVCOMM_API int systemdump(const char* cmd, int seconds);

/// Makes a mounted file system writable: "mount -o rw,remount PATH", for 5 seconds at most.
///
/// @param path  goes into a shell command as it is, so it must come from a trusted source and needs its own
///              quotes where it holds spaces. One too long for a command of 511 bytes runs nothing
/// @return 0, whatever the command did; -1 when path is null or does not exist
///
/// Uses systemdump, with its effects on signals.
DEVCOMM_API int remount(const char* path);
