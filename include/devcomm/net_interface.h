#pragma once

#include <devcomm/export.h>

#include <cstdint>

/// @file
/// IPv4 configuration of the network interfaces: addresses, netmasks, default routes, up and down, hardware
/// addresses, carrier and traffic counters.
///
///     unsigned int ip = 0;
///     char text[16];
///     if (GetIpAddr("eth0", &ip) == 0)
///       printf("%s\n", IntIP2String(ip, text, sizeof text));
///
/// Rules they share: addresses are 32 bits in host byte order, 0x7F000001 for 127.0.0.1. Each call asks the
/// kernel anew and keeps nothing; any thread may call any of them. Changes need the right to administer the
/// network. An interface name has at most 15 characters: a longer one is no interface's, and a call fails as
/// for a name that is not there. Messages go to standard output, without an end of line where they give the
/// system's reason in brackets, such as "SetIpAddr call ioctl failed(No such device)".

/// Counters of one interface since it was made. Each is the low 32 bits of the kernel's own: it starts again
/// at 0 past 4,294,967,295, and differences stay right across that.
struct IfrRtInfo_t
{
  char name[12]; ///< as the kernel lists it, blanks in front included; cut to 11 characters
  uint32_t rx_bytes;
  uint32_t rx_packets;
  uint32_t rx_errs;
  uint32_t rx_drop;
  uint32_t rx_fifo;
  uint32_t rx_frame;
  uint32_t rx_compressed;
  uint32_t rx_multicast;
  uint32_t tx_bytes;
  uint32_t tx_packets;
  uint32_t tx_errs;
  uint32_t tx_drop;
  uint32_t tx_fifo;
  uint32_t tx_colls;
  uint32_t tx_carrier;
  uint32_t tx_compressed;
};

// Addresses ------------------------------------------------------------------------------------------------

/// Address of an interface, without a message on failure.
/// @return 0; -1 when the interface has none or is not there; -2 for a null pointer
DEVCOMM_API int GetIpAddr(const char* ifname, unsigned int* ip);

/// Sets the address; the kernel sets the netmask of the address's class, so that SetNetmask comes after.
/// @return 0; -1 after "SetIpAddr call socket failed(%s)" or "... ioctl failed(%s)"; -2 for a null name
DEVCOMM_API int SetIpAddr(const char* ifname, unsigned int ip);

/// @return 0; -1 after "GetNetmask call socket failed(%s)" or "... ioctl failed(%s)"; -2 for a null pointer
DEVCOMM_API int GetNetmask(const char* ifname, unsigned int* mask);

/// @return 0; -1 after "SetNetmask call socket failed(%s)" or "... ioctl failed(%s)"; -2 for a null name
DEVCOMM_API int SetNetmask(const char* ifname, unsigned int mask);

/// Hardware address as text.
///
/// @param out  gets 17 characters, "02:42:AC:11:00:02", and a terminator
/// @return 0; -1 after perror("socket") or perror("ioctl"), or for a null pointer
DEVCOMM_API int GetMac(const char* ifname, char* out);

/// Tells whether an address is in the /24 network of another interface than the one it is meant for,
/// whatever the netmasks.
/// @param ifname  left out of the comparison
/// @return 0 when it is; -1 when not, for a null name, and after "open proc file error"
DEVCOMM_API int CheckIPInRange(const char* ifname, unsigned int ip);

/// Dotted text of an address.
/// @param len  bytes of buf; 16 always do
/// @return buf; null when buf is null or the text does not fit
DEVCOMM_API char* IntIP2String(unsigned int ip, char* buf, int len);

// Routes ---------------------------------------------------------------------------------------------------
// A default route here is one of the main table that is up and goes through a gateway, with no other flag.

/// Gateway of an interface's default route; the last one listed when there are several.
/// @param gw  gets 0 when there is none
/// @return 0, also when there is none; -1 for a null pointer and when the table cannot be read
DEVCOMM_API int GetGateway(const char* ifname, unsigned int* gw);

/// Gateway of an interface's first default route among the first 10 lines of the table, its heading included.
/// @param gw  untouched on failure
/// @return 0 when found, else -1
DEVCOMM_API int GetGatewayEx(const char* ifname, unsigned int* gw);

/// First default route of any interface.
///
/// @param ifname_out   gets the interface's name, at most 16 bytes with the terminator; may be null
/// @param gw_text_out  gets the gateway's dotted text, at most 16 bytes; null leaves gw untouched too
/// @param gw           gets the gateway; may be null
/// @return 1 when found, 0 when there is none, -1 when the table cannot be read
DEVCOMM_API int GetDefaultGateway(char* ifname_out, char* gw_text_out, unsigned int* gw);

/// Adds a default route through a gateway; which interface it leaves by is the kernel's choice, by the
/// gateway's network.
///
/// @param gw_text  dotted address, else a name to resolve as host and then as network; when neither knows it,
///                 "resolving %s\n" is printed and no route added
/// @return 0, also when the kernel refused the route ("SIOC[ADD|DEL]RT" is printed): ask GetGateway; -1 for
///         null, and after "set route open socket failed"
///
/// May block while the resolver works.
DEVCOMM_API int SetRoute(char* gw_text);

/// Deletes every default route of an interface; refusals are told as by SetRoute.
/// @return 0; -1 for a null name and when the table cannot be read
DEVCOMM_API int DelRoute(const char* ifname);

/// DelRoute, then prints "SetGateway : %s\n" with the gateway's text and adds a default route through it.
/// @return 0, also when the kernel refused the route; -2 for a null name
DEVCOMM_API int SetGateway(const char* ifname, unsigned int gw);

// Links ----------------------------------------------------------------------------------------------------

/// Sets the interface up.
/// @return 0; -1 after "InterfaceUp call socket failed(%s)" or "... ioctl failed(%s)"; -2 for a null name
DEVCOMM_API int NetIfUp(const char* ifname);

/// Sets the interface down, which takes its routes along.
/// @return 0; -1 after "InterfaceDown call socket failed(%s)" or "... ioctl failed(%s)"; -2 for a null name
DEVCOMM_API int NetIfDown(const char* ifname);

/// @return 0 when the kernel lists the interface, 1 when not; -1 for a null name, and after
///         "open proc file error"
DEVCOMM_API int CheckNetIf(const char* ifname);

/// Carrier of one of the interfaces a device has: eth0, eth1, ra0, ppp0 and wlan0. Only the first four
/// characters count (three for ra0), so that eth0.5 and eth01 ask for eth0, and wlan1 for wlan0; callers
/// rely on it.
/// @return 1 carrier, 0 none; -1 for another name, and when it cannot be told: not there, or down
DEVCOMM_API int GetInterfaceStatus(const char* ifname);

/// Counters of the first interface whose name contains a text: "eth1" also finds "eth10" when that is listed
/// before. Callers rely on parts of names being enough.
///
/// @param out  filled on success; zeroed when the text was seen in other places only
/// @return 0; -1 when not found and for null or empty arguments
DEVCOMM_API int GetIfrInfo(const char* ifname, IfrRtInfo_t* out);
