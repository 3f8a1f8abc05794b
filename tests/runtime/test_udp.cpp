#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <cstring>
#include <string>

#include "support/capture.h"
#include "support/scratch.h"
#include "udpserver.h"

namespace {

// A supervising computer on this machine.
class Client {
 public:
  Client() : socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in any = Address(0);
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&any), sizeof any), 0);
    const timeval limit = {20, 0};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }
  ~Client() { close(socket_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  int Port() const {
    sockaddr_in own = {};
    socklen_t length = sizeof own;
    getsockname(socket_, reinterpret_cast<sockaddr*>(&own), &length);
    return ntohs(own.sin_port);
  }
  void Send(int port, const std::string& text) const {
    const sockaddr_in to = Address(port);
    sendto(socket_, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  }
  std::string Receive() const {
    char text[2000];
    const ssize_t count = recv(socket_, text, sizeof text, 0);
    return count < 0 ? "nothing" : std::string(text, static_cast<size_t>(count));
  }

 private:
  static sockaddr_in Address(int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
  }

  int socket_;
};

class Endpoint : public ScratchTest {
 protected:
  void TearDown() override {
    if (server.UDP_Sockfd >= 0) close(server.UDP_Sockfd);
    ScratchTest::TearDown();
  }
  static int FreePort() { return Client().Port(); }
  static std::string From(const Client& client) {
    return "PLCNet: Client IP is 127.0.0.1, Port is " + std::to_string(client.Port()) + "\n";
  }

  UDP server;
  Client first;
  Client second;
};

TEST_F(Endpoint, TakesItsPortFromTheConfigurationAndAnswersEachSender) {
  const int port = FreePort();
  Write("Velmo.conf", "[UDP]\nPort=" + std::to_string(port) + "\n");
  EXPECT_EQ(server.client_len, 16);
  ASSERT_EQ(server.Init(9), 1);
  EXPECT_EQ(server.LocalPort, port);
  Capture console(STDOUT_FILENO);
  char message[1256];

  first.Send(port, "x");
  ASSERT_EQ(server.Recv(message), 1);
  EXPECT_EQ(message[0], 'x');
  EXPECT_EQ(console.Text(), From(first));
  EXPECT_EQ(server.Send("Hello! i am OK.\n"), 16);
  EXPECT_EQ(first.Receive(), "Hello! i am OK.\n");
  EXPECT_EQ(console.Text(), "PLCNet: Sendto IP:127.0.0.1 Port:" + std::to_string(first.Port()) + "\n");

  second.Send(port, std::string(1300, 'y'));
  ASSERT_EQ(server.Recv(message), 1256);
  EXPECT_EQ(server.RemotePort, second.Port());
  EXPECT_EQ(server.Send("to the second"), 13);
  EXPECT_EQ(second.Receive(), "to the second");

  console.Text();
  first.Send(port, "");
  EXPECT_EQ(server.Recv(message), 0);
  EXPECT_EQ(console.Text(), From(first));
  EXPECT_EQ(server.Send(nullptr), -1);
  EXPECT_EQ(console.Text(), "");
}

TEST_F(Endpoint, PortIs2017WithoutConfiguration) {
  Capture errors(STDERR_FILENO);
  for (const char* text : {"", "[UDP]\n", "[UDP]\nPort=\n"}) {
    Write("Velmo.conf", text);
    server.Init(9);
    EXPECT_EQ(server.LocalPort, 2017) << text;
    EXPECT_EQ(ntohs(server.server.sin_port), 2017) << text;
    EXPECT_EQ(server.server.sin_addr.s_addr, 0u);
    close(server.UDP_Sockfd);
  }
  server.UDP_Sockfd = -1;
}

TEST_F(Endpoint, APortThatMeansNothingIsBoundAsItIsReadAndTold) {
  Capture console(STDOUT_FILENO);
  for (const char* text : {"abc", "0", "65536", "-1 \r"}) {
    Write("Velmo.conf", "[UDP]\nPort=" + std::string(text) + "\n");
    ASSERT_EQ(server.Init(9), 1) << text;
    sockaddr_in bound = {};
    socklen_t length = sizeof bound;
    getsockname(server.UDP_Sockfd, reinterpret_cast<sockaddr*>(&bound), &length);
    const std::string said(text, std::strcspn(text, " "));
    EXPECT_EQ(console.Text(), "UDP Port \"" + said + "\" means nothing, bound to " +
                                  std::to_string(ntohs(bound.sin_port)) + "\n");
    EXPECT_EQ(ntohs(bound.sin_port) == 65535, said == "-1");
    close(server.UDP_Sockfd);
  }
  Write("Velmo.conf", "[UDP]\nPort=65535\n");
  ASSERT_EQ(server.Init(9), 1);
  EXPECT_EQ(console.Text(), "");
}

TEST_F(Endpoint, FailingCallsAreReportedAndTheNextOneWorks) {
  Capture console(STDOUT_FILENO);
  Capture errors(STDERR_FILENO);
  char message[1256];
  server.nTaskNo = 9;
  EXPECT_EQ(server.Recv(message), 0);
  EXPECT_EQ(server.Send("x"), 0);
  EXPECT_EQ(console.Text(),
            "PLCNet: Recvfrom error\nPLCNet: Sendto IP: Port:0\nPLCNet: Sendto error  Port 0\n");

  const int port = FreePort();
  rlimit files;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
  const rlimit none = {0, files.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const int withoutSocket = server.Network_Init(port);
  setrlimit(RLIMIT_NOFILE, &files);
  EXPECT_EQ(withoutSocket, -1);
  EXPECT_EQ(errors.Text(), "create socket failed: Too many open files\n");

  EXPECT_EQ(server.Network_Init(first.Port()), -2);
  EXPECT_EQ(errors.Text(), "bind error: Address already in use\n");
  EXPECT_EQ(console.Text(), "UDP port " + std::to_string(first.Port()) + " is not bound\n");
  close(server.UDP_Sockfd);

  ASSERT_EQ(server.Network_Init(port), 1);
  first.Send(port, "again");
  EXPECT_EQ(server.Recv(message), 5);
}

}  // namespace
