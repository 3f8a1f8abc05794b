#include "time/symbols.h"

#include <cxxabi.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "preload/next.h"

namespace rack {
namespace {

// A file in memory, for the time of the object.
class MappedFile {
 public:
  explicit MappedFile(const char* path) {
    static Next openFile(calls::open);
    const int descriptor = openFile(path, O_RDONLY | O_CLOEXEC);
    struct stat info {};
    if (descriptor < 0) return;
    if (fstat(descriptor, &info) == 0 && info.st_size > 0) {
      size_ = static_cast<std::size_t>(info.st_size);
      void* const memory = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, descriptor, 0);
      if (memory != MAP_FAILED) bytes_ = static_cast<const char*>(memory);
    }
    static Next closeFile(calls::close);
    closeFile(descriptor);
  }
  ~MappedFile() {
    if (bytes_ != nullptr) munmap(const_cast<char*>(bytes_), size_);
  }
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;

  // So many objects that begin at an offset; null when the file is shorter.
  template <class Object>
  const Object* At(std::size_t offset, std::size_t count = 1) const {
    if (bytes_ == nullptr || offset > size_ || count > (size_ - offset) / sizeof(Object)) return nullptr;
    return reinterpret_cast<const Object*>(bytes_ + offset);
  }

 private:
  const char* bytes_ = nullptr;
  std::size_t size_ = 0;
};

// How far the program lies behind the addresses in its file.
std::uintptr_t ProgramBase() {
  std::uintptr_t base = 0;
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* place) {
        *static_cast<std::uintptr_t*>(place) = info->dlpi_addr;
        return 1;  // the first one is the program
      },
      &base);
  return base;
}

bool WriteName(const char* symbol, char* text, std::size_t size) {
  int status = 0;
  char* const plain = abi::__cxa_demangle(symbol, nullptr, nullptr, &status);
  std::snprintf(text, size, "%s", plain != nullptr ? plain : symbol);
  std::free(plain);
  return true;
}

}  // namespace

bool WriteSymbol(const void* address, char* text, std::size_t size) {
  const std::uintptr_t place = reinterpret_cast<std::uintptr_t>(address) - ProgramBase();
  const MappedFile file("/proc/self/exe");
  const auto* const head = file.At<ElfW(Ehdr)>(0);
  if (head == nullptr) return false;
  const auto* const sections = file.At<ElfW(Shdr)>(head->e_shoff, head->e_shnum);
  if (sections == nullptr) return false;
  for (unsigned i = 0; i < head->e_shnum; ++i) {
    const ElfW(Shdr)& table = sections[i];
    if (table.sh_type != SHT_SYMTAB || table.sh_link >= head->e_shnum) continue;
    const std::size_t count = table.sh_size / sizeof(ElfW(Sym));
    const auto* const symbols = file.At<ElfW(Sym)>(table.sh_offset, count);
    const ElfW(Shdr)& names = sections[table.sh_link];
    const char* const texts = file.At<char>(names.sh_offset, names.sh_size);
    if (symbols == nullptr || texts == nullptr) return false;
    for (std::size_t row = 0; row < count; ++row) {
      const ElfW(Sym)& symbol = symbols[row];
      const bool holds = (symbol.st_info & 0xF) == STT_OBJECT && place >= symbol.st_value &&
                         place - symbol.st_value < symbol.st_size;
      if (holds && symbol.st_name < names.sh_size) return WriteName(texts + symbol.st_name, text, size);
    }
  }
  return false;
}

}  // namespace rack
