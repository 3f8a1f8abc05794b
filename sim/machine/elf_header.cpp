#include "machine/elf_header.h"

#include <elf.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <optional>

namespace rack {

namespace {

// The beginning of a header, which is the same for 32 and 64 bits.
struct Head {
  unsigned char ident[EI_NIDENT];
  std::uint16_t type;
  std::uint16_t processor;
};
static_assert(sizeof(Head) == EI_NIDENT + 4);

std::optional<Head> ReadHead(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  Head head = {};
  if (!file.read(reinterpret_cast<char*>(&head), sizeof head)) return std::nullopt;
  if (std::memcmp(head.ident, ELFMAG, SELFMAG) != 0) return std::nullopt;
  return head;
}

struct Emulator {
  std::uint16_t processor;
  std::uint16_t wider;  // a computer with this processor runs the programs itself
  const char* name;
};
constexpr Emulator kEmulators[] = {
    {EM_ARM, EM_AARCH64, "qemu-arm"},
    {EM_AARCH64, EM_AARCH64, "qemu-aarch64"},
};

const char* Width(const Head& head) {
  return head.ident[EI_CLASS] == ELFCLASS32 ? "32 bits" : "64 bits";
}

}  // namespace

std::string WhyNotPreloaded(const std::string& controller, const std::string& library) {
  errno = 0;
  if (!std::ifstream(library)) return library + ": " + std::strerror(errno);
  const std::optional<Head> own = ReadHead(library);
  if (!own || own->type != ET_DYN) return library + ": no shared library";
  const std::optional<Head> started = ReadHead(controller);
  if (!started) return "";
  if (own->ident[EI_CLASS] != started->ident[EI_CLASS]) {
    return std::string("it has ") + Width(*own) + ", the controller " + Width(*started) +
           "; --library takes another one";
  }
  if (own->processor != started->processor) return "it is for another processor than the controller";
  return "";
}

std::string EmulatorOf(const std::string& controller) {
  const std::optional<Head> started = ReadHead(controller);
  const std::optional<Head> own = ReadHead("/proc/self/exe");
  if (!started || !own || started->processor == own->processor) return "";
  for (const Emulator& emulator : kEmulators) {
    if (emulator.processor == started->processor && emulator.wider != own->processor) return emulator.name;
  }
  return "";
}

}  // namespace rack
