#include "network.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

void AwaitPort(TestMachine& machine, int port) {
  char text[16];
  std::snprintf(text, sizeof text, ":%04X ", static_cast<unsigned>(port));
  const std::string sockets = "/proc/" + std::to_string(machine.Controller()) + "/net/udp";
  EXPECT_TRUE(Eventually([&] {
    std::string all;
    char part[4096];
    const int file = open(sockets.c_str(), O_RDONLY | O_CLOEXEC);
    ssize_t count;
    while ((count = read(file, part, sizeof part)) > 0) all.append(part, static_cast<size_t>(count));
    close(file);
    return all.find(text) != std::string::npos;
  }));
}

OwnNetwork::OwnNetwork() : before_(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC)) {
  if (unshare(CLONE_NEWNET) != 0) return;
  const int handle = socket(AF_INET, SOCK_DGRAM, 0);
  ifreq request = {};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP;
  EXPECT_EQ(ioctl(handle, SIOCSIFFLAGS, &request), 0);
  close(handle);
}

OwnNetwork::~OwnNetwork() {
  setns(before_, CLONE_NEWNET);
  close(before_);
}
