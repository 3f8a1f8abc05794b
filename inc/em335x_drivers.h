// The ISA bus driver of the EM335x board: a character device used with open, read, write and close alone.
#pragma once

// Device names in the order they are tried.
constexpr int SUPPORTDEVNUM = 2;
constexpr char DeviceNames[SUPPORTDEVNUM][50] = {"/dev/em_isa", "/dev/em335x_isa"};

// Read one byte: read() of length 1. The byte holds the port on entry and the port's data on return.
struct IsaRead {
  unsigned char PortThenData;
};
static_assert(sizeof(IsaRead) == 1, "length of the driver's read exchange");

// Write one byte: write() of length 2, the data byte first.
struct IsaWrite {
  unsigned char Data;
  unsigned char Port;
};
static_assert(sizeof(IsaWrite) == 2, "length of the driver's write exchange");
