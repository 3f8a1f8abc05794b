// The UDP endpoint on which a supervising computer asks whether the controller lives.
#pragma once

#include <netinet/in.h>
#include <pthread.h>

#include "locks.h"

constexpr int MAX_MSG_SIZE = 1256;  // bytes of a datagram that are received; the rest is cut off

extern pthread_mutex_t UdpLock;  // one send or receive call; held while the receive call waits
inline LockRole UdpRole;

// Used by the network thread only. A failed call leaves it usable: the next one is made as usual.
class UDP {
 public:
  UDP();

  // Binds the port of "Velmo.conf" (group "[UDP]", item "Port"), 2017 without it. TaskNo: for the log lines.
  // Result of Network_Init.
  int Init(int TaskNo);

  // Makes the socket and binds it to the port on any interface. 1: done. -1: no socket. -2: not bound.
  int Network_Init(int Local_Port);

  // Sends the text, without its terminating zero, to the sender of the last datagram received.
  // Bytes sent; 0: failed. -1: Data is null.
  int Send(const char* Data);

  // Waits for a datagram and takes up to MAX_MSG_SIZE bytes of it into Data, without a terminating zero.
  // Bytes received, 0 for an empty datagram; 0: failed.
  int Recv(char* Data);

  char RemoteIPAddr[100];  // sender of the last datagram, dotted
  int UDP_Sockfd;          // -1: none
  sockaddr_in server;      // local address
  sockaddr_in client;      // sender of the last datagram
  int client_len;          // bytes of client given to a receive call
  int nTaskNo;
  int RemotePort;  // sender of the last datagram, host byte order
  int LocalPort;   // host byte order

 private:
  ssize_t SendDatagram(const char* data) REQUIRES(UdpRole);
  ssize_t ReceiveDatagram(char* data) REQUIRES(UdpRole);
};

extern UDP UDPServer;
