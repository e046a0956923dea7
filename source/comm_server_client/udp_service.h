#pragma once

#include <devcomm/udp_client.h>

/// What the library keeps beside the public record, which always comes from UdpClientInit.
struct UdpService : udp_client_st
{
  int freeAtEnd; // its own callback called UdpClientUninit; the service's thread alone touches this
};

/// Whether the caller is the service's own thread, that is, its callback.
bool udp_service_is_current(const udp_client_st* client);

/// The service's thread, from SERVICE_STATE_START to the end of the thread.
void udp_service_main(CommonThread_st* thread, void* arg);

/// Frees a record whose thread has ended, or is calling as its last step.
void udp_service_free(UdpService* service);
