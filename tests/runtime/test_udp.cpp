#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <string>

#include "support/capture.h"
#include "support/scratch.h"
#include "udpserver.h"

namespace {

// A supervising computer on this machine.
class Client {
 public:
  Client() : Socket(socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in any = Address(0);
    EXPECT_EQ(bind(Socket, reinterpret_cast<sockaddr*>(&any), sizeof any), 0);
    const timeval limit = {20, 0};
    setsockopt(Socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }
  ~Client() { close(Socket); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  int Port() const {
    sockaddr_in own = {};
    socklen_t length = sizeof own;
    getsockname(Socket, reinterpret_cast<sockaddr*>(&own), &length);
    return ntohs(own.sin_port);
  }
  void Send(int port, const std::string& text) const {
    const sockaddr_in to = Address(port);
    sendto(Socket, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  }
  std::string Receive() const {
    char text[2000];
    const ssize_t count = recv(Socket, text, sizeof text, 0);
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

  int Socket;
};

class Endpoint : public ScratchTest {
 protected:
  void TearDown() override {
    if (Server.UDP_Sockfd >= 0) close(Server.UDP_Sockfd);
    ScratchTest::TearDown();
  }
  static int FreePort() { return Client().Port(); }
  static std::string From(const Client& client) {
    return "PLCNet: Client IP is 127.0.0.1, Port is " + std::to_string(client.Port()) + "\n";
  }

  UDP Server;
  Client First;
  Client Second;
};

TEST_F(Endpoint, TakesItsPortFromTheConfigurationAndAnswersEachSender) {
  const int port = FreePort();
  Write("Velmo.conf", "[UDP]\nPort=" + std::to_string(port) + "\n");
  EXPECT_EQ(Server.client_len, 16);
  ASSERT_EQ(Server.Init(9), 1);
  EXPECT_EQ(Server.LocalPort, port);
  Capture console(STDOUT_FILENO);
  char message[1256];

  First.Send(port, "x");
  ASSERT_EQ(Server.Recv(message), 1);
  EXPECT_EQ(message[0], 'x');
  EXPECT_EQ(console.Text(), From(First));
  EXPECT_EQ(Server.Send("Hello! i am OK.\n"), 16);
  EXPECT_EQ(First.Receive(), "Hello! i am OK.\n");
  EXPECT_EQ(console.Text(), "PLCNet: Sendto IP:127.0.0.1 Port:" + std::to_string(First.Port()) + "\n");

  Second.Send(port, std::string(1300, 'y'));
  ASSERT_EQ(Server.Recv(message), 1256);
  EXPECT_EQ(Server.RemotePort, Second.Port());
  EXPECT_EQ(Server.Send("to the second"), 13);
  EXPECT_EQ(Second.Receive(), "to the second");

  console.Text();
  First.Send(port, "");
  EXPECT_EQ(Server.Recv(message), 0);
  EXPECT_EQ(console.Text(), From(First));
  EXPECT_EQ(Server.Send(nullptr), -1);
  EXPECT_EQ(console.Text(), "");
}

TEST_F(Endpoint, PortIs2017WithoutConfiguration) {
  Capture errors(STDERR_FILENO);
  for (const char* text : {"", "[UDP]\n", "[UDP]\nPort=\n"}) {
    Write("Velmo.conf", text);
    Server.Init(9);
    EXPECT_EQ(Server.LocalPort, 2017) << text;
    EXPECT_EQ(ntohs(Server.server.sin_port), 2017) << text;
    EXPECT_EQ(Server.server.sin_addr.s_addr, 0u);
    close(Server.UDP_Sockfd);
  }
  Server.UDP_Sockfd = -1;
}

TEST_F(Endpoint, FailingCallsAreReportedAndTheNextOneWorks) {
  Capture console(STDOUT_FILENO);
  Capture errors(STDERR_FILENO);
  char message[1256];
  Server.nTaskNo = 9;
  EXPECT_EQ(Server.Recv(message), 0);
  EXPECT_EQ(Server.Send("x"), 0);
  EXPECT_EQ(console.Text(),
            "PLCNet: Recvfrom error\nPLCNet: Sendto IP: Port:0\nPLCNet: Sendto error  Port 0\n");

  const int port = FreePort();
  rlimit files;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
  const rlimit none = {0, files.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const int withoutSocket = Server.Network_Init(port);
  setrlimit(RLIMIT_NOFILE, &files);
  EXPECT_EQ(withoutSocket, -1);
  EXPECT_EQ(errors.Text(), "create socket failed: Too many open files\n");

  EXPECT_EQ(Server.Network_Init(First.Port()), -2);
  EXPECT_EQ(errors.Text(), "bind error: Address already in use\n");
  close(Server.UDP_Sockfd);

  ASSERT_EQ(Server.Network_Init(port), 1);
  First.Send(port, "again");
  EXPECT_EQ(Server.Recv(message), 5);
}

}  // namespace
