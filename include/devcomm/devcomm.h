#pragma once

/// @file
/// The whole library in one include; each family's header can be included alone.

#include <devcomm/audio_level.h>
#include <devcomm/block_pool.h>
#include <devcomm/byte_buffer.h>
#include <devcomm/cache_file.h>
#include <devcomm/codec.h>
#include <devcomm/coordinates.h>
#include <devcomm/digest.h>
#include <devcomm/disk_command.h>
#include <devcomm/file.h>
#include <devcomm/frame_buffer.h>
#include <devcomm/frame_info.h>
#include <devcomm/ftp_client.h>
#include <devcomm/gps.h>
#include <devcomm/http_download.h>
#include <devcomm/icmp.h>
#include <devcomm/line_buffer.h>
#include <devcomm/lock.h>
#include <devcomm/net_interface.h>
#include <devcomm/nmea.h>
#include <devcomm/round_buffer.h>
#include <devcomm/serial_port.h>
#include <devcomm/shm_ring.h>
#include <devcomm/signal_handler.h>
#include <devcomm/socket.h>
#include <devcomm/sqlite_access.h>
#include <devcomm/tcp_service.h>
#include <devcomm/text.h>
#include <devcomm/thread.h>
#include <devcomm/time_process.h>
#include <devcomm/udp_client.h>
#include <devcomm/unix_domain.h>
#include <devcomm/watchdog.h>
#include <devcomm/worker_thread.h>
