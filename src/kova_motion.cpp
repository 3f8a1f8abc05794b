#include "kova_motion.h"

long ReadEncoder(CkOVA_MANAGER& card, const CountPorts& ports) {
  const unsigned int bits0 = card.InB(ports.Bits0);
  const unsigned int bits8 = card.InB(ports.Bits8);
  const unsigned int bits16 = card.InB(ports.Bits16);
  const unsigned int bits24 = card.InB(ports.Bits24);
  return static_cast<int>(((bits24 << 24) | (bits16 << 16) | (bits8 << 8) | bits0) ^ 0x80000000U);
}

void WriteCount(CkOVA_MANAGER& card, const CountPorts& ports, unsigned int count) {
  card.OutB(ports.Bits24, static_cast<unsigned char>(count >> 24));
  card.OutB(ports.Bits16, static_cast<unsigned char>(count >> 16));
  card.OutB(ports.Bits8, static_cast<unsigned char>(count >> 8));
  card.OutB(ports.Bits0, static_cast<unsigned char>(count));
}

void Strobe(CkOVA_MANAGER& card, unsigned short port, unsigned char first, unsigned char second) {
  card.OutB(port, first);
  card.OutB(port, second);
}

unsigned char MotorControl(unsigned char MotorDir, unsigned char STOPDir, unsigned char Force,
                           unsigned char EnCntStop, unsigned char EnExStop) {
  return static_cast<unsigned char>((MotorDir << 7) | (STOPDir << 6) | (Force << 5) | (EnCntStop << 3) |
                                    (EnExStop << 2));
}
