#pragma once

/// Has the disk that a path lies on write its cache out, so that the power may go. Does nothing when it lies on
/// something else than a whole ATA or SCSI disk or a partition of one, or without the rights.
///
/// @return true when a disk was asked and said yes
bool flush_disk_of(const char* path);
