// The network around a machine.
#pragma once

#include "machine.h"

// Waits until the controller has bound its port: until then a datagram is lost.
void AwaitPort(TestMachine& machine, int port);

// Programs outside may hold the usual port: a network of its own, where the user may make one.
class OwnNetwork {
 public:
  OwnNetwork();
  ~OwnNetwork();
  OwnNetwork(const OwnNetwork&) = delete;
  OwnNetwork& operator=(const OwnNetwork&) = delete;

 private:
  int before_;
};
