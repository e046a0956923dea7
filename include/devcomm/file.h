#pragma once

#include <devcomm/export.h>

struct mntent;

/// @file
/// Whole-file reads and writes, existence and sizes of files, directories, mounted file systems and block
/// devices. The functions keep no state and, except get_mount_point, may be called from any thread. Sizes
/// are 64-bit on every machine. A null path is one that does not exist.

/// @return size in bytes, by seeking to the end; -1 when the file cannot be opened. A folder, or a file
///         under /proc, tells whatever its file system tells, which need not be what can be read
DEVCOMM_API long long getfilesize(char* path);

/// @return size in bytes from stat, without opening the file; 0 when there is none
DEVCOMM_API long long get_file_size(const char* path);

/// @return 0 when the path exists, -1 when not
DEVCOMM_API int fileisexist(char* path);

/// @return 1 when the path exists, 0 when not: the opposite sense of fileisexist, and callers use both
DEVCOMM_API int file_exist(char* path);

/// Reads a whole file into a new buffer, up to its end: the size that the file tells (0 under /proc) is
/// only where the buffer starts out.
///
/// @param len  receives the bytes read; 0 on failure; may be null
/// @return buffer of size + 1 bytes from malloc, zero-terminated; the caller frees it. Null when the file
///         cannot be opened or read (a folder), is 2 GiB or larger, or memory ran out
DEVCOMM_API char* filetobufwithoutbuf(char* path, int* len);

/// Reads the first bytes of a file into the caller's buffer.
///
/// @param size  bytes of room
/// @param len   receives the bytes read, the smaller of file size and size; may be null
/// @return 0; -1 when the file cannot be opened, a read fails, size is negative, or fewer bytes came than
///         the file's size promised (len tells how many)
DEVCOMM_API int filetobufwithbuf(char* buf, int size, int* len, char* path);

/// Creates or truncates a file and writes len bytes to it.
///
/// @return 0; -1 when the file cannot be opened or not every byte could be written, also when that shows
///         only at closing. A negative len, or a null buf with bytes to write, is -1 and touches no file
DEVCOMM_API int buffertofile(char* buf, int len, char* path);

/// As buffertofile, appending.
DEVCOMM_API int bufferaddfile(char* buf, int len, char* path);

/// @return 0 when the path opens as a directory, else -1
DEVCOMM_API int dir_is_exist(char* path);

/// Makes a directory with mode 0777, less the umask; parents are not made.
/// @return 0, also when the path exists, as whatever it is; -1 on failure
DEVCOMM_API int make_dir(char* path);

/// make_dir, then sees that the path opens as a directory.
/// @return 0; -1 on failure, after a line from perror that begins with "make_dir" or "opendir"
DEVCOMM_API int make_not_exist_dir(char* path);

/// Sizes of the file system that holds a path, in bytes.
///
/// @param total  all blocks; 0 on failure; may be null
/// @param avail  blocks available to unprivileged users; 0 on failure; may be null
/// @return result of statfs: 0, or -1
DEVCOMM_API int get_mnt_size(char* path, unsigned long long* total, unsigned long long* avail);

/// Looks a mount directory up in /proc/mounts; the paths must be equal to the letter.
///
/// @return entry in the C library's static storage, valid until the next scan by anybody in the process,
///         or null. One thread at a time
DEVCOMM_API struct mntent* get_mount_point(const char* dir);

/// @return size of a block device in bytes; of a plain file, its size; 0 when it cannot be opened
///
/// Kernels without BLKGETSIZE64 are asked for sectors (BLKGETSIZE) and sector size (BLKSSZGET), and the
/// product is taken as it is.
DEVCOMM_API unsigned long long get_disk_size(char* device);
