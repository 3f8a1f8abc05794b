#include "udpserver.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstring>
#include <limits>

#include "console.h"
#include "drvlib.h"
#include "locks.h"
#include "numbers.h"
#include "readini.h"
#include "waits.h"

UDP UDPServer;
pthread_mutex_t UdpLock;

namespace {

constexpr int kDefaultPort = 2017;
constexpr int kFailurePauseMicros = 100;
constexpr int kValueSize = 300;  // longer than any value of the configuration

bool IsPort(long long number) {
  return number > 0 && number <= std::numeric_limits<uint16_t>::max();
}

int BoundPort(int descriptor) {
  sockaddr_in bound = {};
  socklen_t length = sizeof bound;
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&bound), &length);
  return ntohs(bound.sin_port);
}

}  // namespace

UDP::UDP()
    : RemoteIPAddr(),
      UDP_Sockfd(-1),
      server(),
      client(),
      client_len(sizeof(sockaddr_in)),
      nTaskNo(0),
      RemotePort(0),
      LocalPort(kDefaultPort) {}

int UDP::Init(int TaskNo) {
  char text[kValueSize] = "";
  const bool isGiven = ReadIni.GetField("Velmo.conf", "[UDP]", "Port", 0, text) == 0;
  LocalPort = isGiven ? ToNumber<int>(text) : kDefaultPort;
  const int result = Network_Init(LocalPort);
  if (result == 1 && isGiven && !IsPort(ToWideNumber(text))) {
    ReadIni.Trim(text);
    Console("UDP Port \"%s\" means nothing, bound to %d\n", text, BoundPort(UDP_Sockfd));
  }
  nTaskNo = TaskNo;
  return result;
}

int UDP::Network_Init(int Local_Port) {
  server = sockaddr_in();
  server.sin_family = AF_INET;
  server.sin_addr.s_addr = htonl(INADDR_ANY);
  server.sin_port = htons(static_cast<uint16_t>(Local_Port));
  UDP_Sockfd = socket(AF_INET, SOCK_DGRAM, 0);
  if (UDP_Sockfd < 0) {
    PrintError("create socket failed");
    return -1;
  }
  if (bind(UDP_Sockfd, reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0) {
    PrintError("bind error");
    Console("UDP port %d is not bound\n", ntohs(server.sin_port));
    return -2;
  }
  return 1;
}

int UDP::Send(const char* Data) {
  if (Data == nullptr) return -1;
  Wprintf(nTaskNo, "Sendto IP:%s Port:%d\n", RemoteIPAddr, RemotePort);
  ssize_t count;
  {
    const ScopedLock lock(UdpLock, UdpRole);
    count = SendDatagram(Data);
  }
  if (count >= 0) return static_cast<int>(count);
  Wprintf(nTaskNo, "Sendto error %s Port %d\n", RemoteIPAddr, RemotePort);
  PauseMicros(kFailurePauseMicros);
  return 0;
}

ssize_t UDP::SendDatagram(const char* data) {
  return sendto(UDP_Sockfd, data, std::strlen(data), 0, reinterpret_cast<const sockaddr*>(&client),
                sizeof client);
}

ssize_t UDP::ReceiveDatagram(char* data) {
  socklen_t length = static_cast<socklen_t>(client_len);
  return recvfrom(UDP_Sockfd, data, MAX_MSG_SIZE, 0, reinterpret_cast<sockaddr*>(&client), &length);
}

int UDP::Recv(char* Data) {
  ssize_t count;
  {
    const ScopedLock lock(UdpLock, UdpRole);
    count = ReceiveDatagram(Data);
  }
  if (count < 0) {
    Wprintf(nTaskNo, "Recvfrom error\n");
    PauseMicros(kFailurePauseMicros);
    return 0;
  }
  inet_ntop(AF_INET, &client.sin_addr, RemoteIPAddr, sizeof RemoteIPAddr);
  RemotePort = ntohs(client.sin_port);
  Wprintf(nTaskNo, "Client IP is %s, Port is %d\n", RemoteIPAddr, RemotePort);
  return static_cast<int>(count);
}
