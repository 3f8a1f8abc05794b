#include "rack/state.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "rack/rack.h"

namespace rack {
namespace {

constexpr const char* kKindNames[] = {"empty", "cpu", "io", "stepper", "servo", "cylinder"};
constexpr int kCopyAttempts = 2000;
constexpr Nanos kCopyPause = 50 * kMicrosecond;

std::string SystemError(const std::string& path) {
  return path + ": " + std::strerror(errno);
}

void Pause(Nanos time) {
  timespec rest{time / kSecond, static_cast<long>(time % kSecond)};
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

}  // namespace

const char* KindName(CardKind kind) {
  return kKindNames[static_cast<int>(kind)];
}

void MakeEmptySetup(RackSetup& setup) {
  std::memset(&setup, 0, sizeof setup);
  setup.Image.Device = DeviceName::EmIsa;
  setup.Time.AccessNanos = kUsualAccessNanos;
  InsertCard(setup, 0, CardKind::Cpu);
  AssignEntries(setup);
}

void InsertCard(RackSetup& setup, int slot, CardKind kind) {
  PowerOn(setup.Cards[slot], kind);
}

void AssignEntries(RackSetup& setup) {
  RackImage& image = setup.Image;
  image.EntryCount = 0;
  for (std::uint8_t slot = 0; slot < kSlots && image.EntryCount < kMaxEntries; ++slot) {
    if (setup.Cards[slot].Kind != CardKind::None) image.EntrySlot[image.EntryCount++] = slot;
  }
}

int SlotOfEntry(const RackImage& image, int entry) {
  if (entry < 0 || static_cast<std::uint32_t>(entry) >= image.EntryCount) return -1;
  return image.EntrySlot[entry];
}

int EntryOfSlot(const RackImage& image, int slot) {
  for (std::uint32_t entry = 0; entry < image.EntryCount; ++entry) {
    if (image.EntrySlot[entry] == slot) return static_cast<int>(entry);
  }
  return -1;
}

const SignalName* NameOf(const RackImage& image, bool output, int entry, int channel) {
  for (const SignalName& signal : image.Signals) {
    if (signal.Name[0] == '\0') break;
    if ((signal.Output != 0) == output && signal.Entry == entry && signal.Channel == channel) return &signal;
  }
  return nullptr;
}

const SignalName* FindSignal(const RackImage& image, const char* name) {
  for (const SignalName& signal : image.Signals) {
    if (signal.Name[0] == '\0') break;
    if (std::strcmp(signal.Name, name) == 0) return &signal;
  }
  return nullptr;
}

Nanos MonotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kSecond + now.tv_nsec;
}

void PowerOn(RackState& state, const RackSetup& setup, Nanos monotonic) {
  std::memcpy(state.Magic, kStateMagic, sizeof state.Magic);
  state.Version = kStateVersion;
  state.Size = sizeof(RackState);
  state.PowerOn = monotonic;
  state.Image = setup.Image;
  state.Time.Setup = setup.Time;
  state.Time.Setup.RealStart = monotonic;
  if (setup.Time.Mode == TimeMode::Virtual) state.PowerOn = kVirtualPowerOn;
  std::memcpy(state.Live.Cards, setup.Cards, sizeof state.Live.Cards);
  state.Live.Plant = setup.Plant;
  Rack(state).PowerOn(setup.InputsOn);
}

StateFile::~StateFile() {
  Close();
}

void StateFile::Close() {
  if (Mapped != nullptr) munmap(Mapped, sizeof(RackState));
  if (Descriptor >= 0) close(Descriptor);
  Mapped = nullptr;
  Descriptor = -1;
}

bool StateFile::Map(int descriptor, std::string& error) {
  void* memory = mmap(nullptr, sizeof(RackState), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) {
    error = SystemError(Path);
    close(descriptor);
    return false;
  }
  Mapped = static_cast<RackState*>(memory);
  Descriptor = descriptor;
  return true;
}

bool StateFile::Create(const std::string& path, const RackSetup& setup, std::string& error) {
  Close();
  Path = path;
  // Made beside the old file and moved over it: whoever opens the path finds a whole state.
  const std::string fresh = path + ".new";
  const int descriptor = open(fresh.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (descriptor < 0) {
    error = SystemError(fresh);
    return false;
  }
  if (ftruncate(descriptor, sizeof(RackState)) != 0) {
    error = SystemError(fresh);
    close(descriptor);
    return false;
  }
  if (!Map(descriptor, error)) return false;
  rack::PowerOn(*Mapped, setup, MonotonicNow());
  if (rename(fresh.c_str(), path.c_str()) != 0) {
    error = SystemError(path);
    Close();
    return false;
  }
  return true;
}

bool StateFile::Open(const std::string& path, std::string& error) {
  Close();
  Path = path;
  const int descriptor = open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (descriptor < 0) {
    error = SystemError(path);
    return false;
  }
  struct stat info {};
  if (fstat(descriptor, &info) != 0 || info.st_size != static_cast<off_t>(sizeof(RackState))) {
    error = path + ": not the state of a rack, or of another version of this program";
    close(descriptor);
    return false;
  }
  if (!Map(descriptor, error)) return false;
  if (std::memcmp(Mapped->Magic, kStateMagic, sizeof kStateMagic) == 0 && Mapped->Version == kStateVersion &&
      Mapped->Size == sizeof(RackState)) {
    return true;
  }
  error = path + ": not the state of a rack, or of another version of this program";
  Close();
  return false;
}

bool StateFile::Replaced() const {
  struct stat mapped {};
  struct stat named {};
  if (fstat(Descriptor, &mapped) != 0 || stat(Path.c_str(), &named) != 0) return true;
  return mapped.st_ino != named.st_ino || mapped.st_dev != named.st_dev;
}

StateFile::SenderLock::SenderLock(const StateFile& file) : Descriptor(file.Descriptor) {
  while (flock(Descriptor, LOCK_EX) != 0 && errno == EINTR) {
  }
}

StateFile::SenderLock::~SenderLock() {
  flock(Descriptor, LOCK_UN);
}

bool CopyLive(RackLive& live, RackLive& copy) {
  for (int attempt = 0; attempt < kCopyAttempts; ++attempt) {
    const std::uint32_t before = live.Change.load(std::memory_order_acquire);
    std::memcpy(static_cast<void*>(&copy), &live, sizeof copy);
    // Adding 0 writes nothing new, but unlike a load it stays behind the copy.
    if (before % 2 == 0 && live.Change.fetch_add(0, std::memory_order_acq_rel) == before) return true;
    Pause(kCopyPause);
  }
  return false;
}

LiveChange::LiveChange(RackLive& live) : Live(live) {
  // Odd already if a controller ended in the middle of a change.
  Live.Change.fetch_or(1U, std::memory_order_acq_rel);
}

LiveChange::~LiveChange() {
  Live.Change.store(Live.Change.load(std::memory_order_relaxed) + 1U, std::memory_order_release);
}

}  // namespace rack
