// The network task, asked through real sockets.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "machine.h"
#include "network.h"

namespace {

class Client {
 public:
  explicit Client(int serverPort) : socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
    server_.sin_family = AF_INET;
    server_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    server_.sin_port = htons(static_cast<std::uint16_t>(serverPort));
    sockaddr_in own = server_;
    own.sin_port = 0;
    socklen_t size = sizeof own;
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&own), size), 0);
    getsockname(socket_, reinterpret_cast<sockaddr*>(&own), &size);
    port_ = ntohs(own.sin_port);
    const timeval limit = {60, 0};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }
  ~Client() { close(socket_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void Send(const std::string& text) const {
    EXPECT_EQ(sendto(socket_, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&server_),
                     sizeof server_),
              static_cast<ssize_t>(text.size()));
  }
  std::string Answer() const {
    char text[2048];
    const ssize_t count = recv(socket_, text, sizeof text, 0);
    return count < 0 ? "no answer" : std::string(text, static_cast<size_t>(count));
  }
  bool HasMore() const {
    char byte;
    return recv(socket_, &byte, 1, MSG_DONTWAIT) >= 0;
  }
  std::string PortText() const { return std::to_string(port_); }

 private:
  int socket_;
  sockaddr_in server_ = {};
  int port_ = 0;
};

TEST(Network, TwoClientsEmptyAndOversizedDatagrams) {
  const int port = FreePort();
  TestMachine machine("", rack::TimeMode::Real);
  machine.Write("Velmo.conf", "[udp]\nPort=" + std::to_string(port) + "\n");
  machine.Start();
  AwaitPort(machine, port);
  const Client first(port);
  const Client second(port);
  const std::string answer = "Hello! i am OK.\n";
  first.Send("a");
  EXPECT_EQ(first.Answer(), answer);
  second.Send("who are you?");
  EXPECT_EQ(second.Answer(), answer);
  first.Send("");
  const std::string longest(1256, 'x');
  first.Send(longest + "cut");
  EXPECT_EQ(first.Answer(), answer);
  second.Send(std::string("zero\0byte", 9));
  EXPECT_EQ(second.Answer(), answer);
  EXPECT_FALSE(first.HasMore());
  EXPECT_FALSE(second.HasMore());

  const auto lines = [](const Client& client, const std::string& length, const std::string& text) {
    std::string from = "Client IP is 127.0.0.1, Port is " + client.PortText() + "\n";
    if (length == "0") return from;
    return from + "Server received[" + length + "]:" + text +
           "\nSendto IP:127.0.0.1 Port:" + client.PortText() + "\n";
  };
  EXPECT_EQ(machine.LinesWith("PLCNet: "), lines(first, "1", "a") + lines(second, "12", "who are you?") +
                                               lines(first, "0", "") + lines(first, "1256", longest) +
                                               lines(second, "9", "zero"));
  EXPECT_EQ(machine.Errors(), "");
}

TEST(Network, ATakenPortIsToldAndTheMachineRunsOn) {
  TestMachine machine("", rack::TimeMode::Real);
  const Client owner(1);
  machine.Write("Velmo.conf", "[UDP]\nPort=" + owner.PortText() + "\n");
  machine.Write("plc1/RESET.PLC", "OUT: 0, 1, 1\nEXIT\n");
  machine.StartUntil("EXIT");
  EXPECT_TRUE(machine.Await([&] { return machine.Errors() == "bind error: Address already in use\n"; }))
      << machine.Errors();
}

TEST(Network, InVirtualTimeASocketHasAPortToo) {
  const std::pair<const char*, const char*> ports[] = {{"abc", "40000"}, {"65537", "1"}};
  for (const auto& [given, bound] : ports) {
    TestMachine machine("[rack]\ntask_count = 0\n");
    machine.Write("Velmo.conf", "[UDP]\nPort=" + std::string(given) + "\n");
    machine.Start();
    machine.WaitForConsole("UDP Port \"" + std::string(given) + "\" means nothing, bound to " + bound + "\n");
  }
}

TEST(Network, TheUsualPortWithoutConfiguration) {
  const char* configurations[] = {nullptr, "[UDP]\nSpeed=1\n", "[TCP]\nPort=99\n", "[UDP]\r\nPort=99\r\n"};
  const OwnNetwork network;
  for (const char* configuration : configurations) {
    TestMachine machine("", rack::TimeMode::Real);
    std::filesystem::remove(machine.Path("Velmo.conf"));
    if (configuration != nullptr) machine.Write("Velmo.conf", configuration);
    machine.Start();
    AwaitPort(machine, 2017);
    const Client client(2017);
    client.Send("a");
    EXPECT_EQ(client.Answer(), "Hello! i am OK.\n");
  }
}

}  // namespace
