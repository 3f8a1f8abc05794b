#include "rack/state.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <iterator>

#include "rack/rack.h"

namespace rack {
namespace {

constexpr int kCopyAttempts = 2000;
constexpr Nanos kCopyPause = 50 * kMicrosecond;

// Takes the file's place on the disk: on a full one a mapped page that has none ends the process. A file system that
// cannot do this gets a file that grows.
bool Reserve(int descriptor) {
  while (fallocate(descriptor, 0, 0, sizeof(RackState)) != 0) {
    if (errno == EINTR) continue;
    return (errno == EOPNOTSUPP || errno == ENOSYS) && ftruncate(descriptor, sizeof(RackState)) == 0;
  }
  return true;
}

std::string SystemError(const std::string& path) {
  return path + ": " + std::strerror(errno);
}

// The odd number must be seen before any of the change is, or a reader copies half a change under the old number.
// The release of the operation that makes it odd holds back only what comes before; a processor of weak order, as ARM
// is, may show later stores first. A release fence between stores keeps both in order. The thread sanitizer knows no
// fences: under it the compiler alone is held, and x86 keeps stores in order by itself.
void OddBeforeChange() {
#ifdef __SANITIZE_THREAD__
  std::atomic_signal_fence(std::memory_order_seq_cst);
#else
  std::atomic_thread_fence(std::memory_order_release);
#endif
}

template <std::size_t Size>
bool Ends(const char (&text)[Size]) {
  return text[Size - 1] == '\0';
}

bool IsSound(const RackImage& image, const SignalRef& signal) {
  return signal.kind <= SignalKind::Output &&
         (signal.kind == SignalKind::None || signal.entry < image.entryCount);
}

bool IsSound(const RackImage& image, const PlantLink& link) {
  return link.when <= Condition::CylinderAlarm && link.then <= Effect::Count && link.entry < kMaxEntries &&
         link.stopEntry < kMaxEntries && IsSound(image, link.source) && IsSound(image, link.target) &&
         IsSound(image, link.removal);
}

bool IsSound(const RackImage& image) {
  if (image.device > DeviceName::Em335xIsa || image.entryCount > kMaxEntries) return false;
  const auto isSlot = [](std::uint8_t slot) { return slot < kSlots; };
  const auto isCard = [](const CardState& card) { return static_cast<std::size_t>(card.kind) < kCardKinds; };
  const auto isSignal = [](const SignalName& signal) {
    return Ends(signal.name) && signal.entry < kMaxEntries;
  };
  return std::all_of(image.entrySlot, image.entrySlot + image.entryCount, isSlot) &&
         std::all_of(std::begin(image.cards), std::end(image.cards), isCard) &&
         std::all_of(std::begin(image.signals), std::end(image.signals), isSignal) &&
         std::all_of(std::begin(image.linkNames), std::end(image.linkNames),
                     [](const auto& name) { return Ends(name); });
}

// Whether all that counts, names or numbers something stays within its bounds, as whoever reads the state relies on.
// A running controller changes none of it while this looks.
bool IsSound(const RackState& state) {
  const RackImage& image = state.image;
  const RackLive& live = state.live;
  if (!IsSound(image) || live.plant.linkCount > kMaxLinks) return false;
  const auto isTask = [](const TaskRecord& task) {
    return Ends(task.text) && Ends(task.failedPath) && Ends(task.pauseText);
  };
  const auto isFault = [](const FaultRecord& fault) {
    return static_cast<int>(fault.kind) <= kFaultKinds && fault.slot < kSlots;
  };
  const auto sameKind = [](const CardState& card, const CardState& other) { return card.kind == other.kind; };
  return std::equal(std::begin(live.cards), std::end(live.cards), std::begin(image.cards), sameKind) &&
         std::all_of(std::begin(live.plant.links), std::end(live.plant.links),
                     [&](const PlantLink& link) { return IsSound(image, link); }) &&
         std::all_of(std::begin(live.faults), std::end(live.faults), isFault) &&
         std::all_of(std::begin(live.tasks), std::end(live.tasks), isTask) &&
         std::all_of(std::begin(live.programFiles), std::end(live.programFiles),
                     [](const auto& name) { return Ends(name); });
}

void Pause(Nanos time) {
  timespec rest{static_cast<time_t>(time / kSecond), static_cast<long>(time % kSecond)};
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

}  // namespace

void MakeEmptySetup(RackSetup& setup) {
  std::memset(&setup, 0, sizeof setup);
  setup.image.device = DeviceName::EmIsa;
  setup.time.accessNanos = kUsualAccessNanos;
  InsertCard(setup, 0, CardKind::Cpu);
  AssignEntries(setup);
}

void InsertCard(RackSetup& setup, int slot, CardKind kind) {
  PowerOn(setup.image.cards[slot], kind);
}

void AssignEntries(RackSetup& setup) {
  RackImage& image = setup.image;
  image.entryCount = 0;
  for (std::uint8_t slot = 0; slot < kSlots && image.entryCount < kMaxEntries; ++slot) {
    if (setup.image.cards[slot].kind != CardKind::None) image.entrySlot[image.entryCount++] = slot;
  }
}

int SlotOfEntry(const RackImage& image, int entry) {
  if (entry < 0 || static_cast<std::uint32_t>(entry) >= image.entryCount) return -1;
  return image.entrySlot[entry];
}

int EntryOfSlot(const RackImage& image, int slot) {
  for (std::uint32_t entry = 0; entry < image.entryCount; ++entry) {
    if (image.entrySlot[entry] == slot) return static_cast<int>(entry);
  }
  return -1;
}

const SignalName* NameOf(const RackImage& image, bool output, int entry, int channel) {
  for (const SignalName& signal : image.signals) {
    if (signal.name[0] == '\0') break;
    if ((signal.output != 0) == output && signal.entry == entry && signal.channel == channel) return &signal;
  }
  return nullptr;
}

const SignalName* FindSignal(const RackImage& image, const char* name) {
  for (const SignalName& signal : image.signals) {
    if (signal.name[0] == '\0') break;
    if (std::strcmp(signal.name, name) == 0) return &signal;
  }
  return nullptr;
}

void StepMode::Take(std::int32_t code) {
  // Scan codes of the keypad.
  constexpr std::int32_t kEnter = 0x5A;
  constexpr std::int32_t kPlus = 0x79;
  constexpr std::int32_t kDec = 0x7B;
  if (code == kPlus) on = latched = 1;
  if (code == kDec) on = latched = 0;
  if (code == kEnter && latched == 0) on = 0;
}

Nanos MonotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kSecond + now.tv_nsec;
}

void PowerOn(RackState& state, const RackSetup& setup, Nanos monotonic) {
  std::memcpy(state.magic, kStateMagic, sizeof state.magic);
  state.version = kStateVersion;
  state.size = sizeof(RackState);
  state.powerOn = monotonic;
  state.image = setup.image;
  state.time.setup = setup.time;
  state.time.setup.realStart = monotonic;
  if (setup.time.mode == TimeMode::Virtual) state.powerOn = kVirtualPowerOn;
  std::memcpy(state.live.cards, state.image.cards, sizeof state.live.cards);
  state.live.plant = setup.plant;
  Rack(state).PowerOn(setup.inputsOn);
}

void FinishPolls(RackState& state) {
  PollFolder(state.journal, state.polls).Finish(state.live.now);
}

StateFile::~StateFile() {
  Close();
}

void StateFile::Close() {
  if (mapped_ != nullptr) munmap(mapped_, sizeof(RackState));
  if (descriptor_ >= 0) close(descriptor_);
  mapped_ = nullptr;
  descriptor_ = -1;
}

bool StateFile::Map(int descriptor, std::string& error) {
  void* memory = mmap(nullptr, sizeof(RackState), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) {
    error = SystemError(path_);
    close(descriptor);
    return false;
  }
  mapped_ = static_cast<RackState*>(memory);
  descriptor_ = descriptor;
  return true;
}

bool StateFile::Create(const std::string& path, const RackSetup& setup, std::string& error) {
  Close();
  path_ = path;
  // Made beside the old file and moved over it: whoever opens the path finds a whole state.
  const std::string fresh = path + ".new";
  const int descriptor = open(fresh.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (descriptor < 0) {
    error = SystemError(fresh);
    return false;
  }
  if (!Reserve(descriptor)) {
    error = SystemError(fresh);
    close(descriptor);
    unlink(fresh.c_str());
    return false;
  }
  if (!Map(descriptor, error)) return false;
  rack::PowerOn(*mapped_, setup, MonotonicNow());
  if (rename(fresh.c_str(), path.c_str()) != 0) {
    error = SystemError(path);
    Close();
    return false;
  }
  return true;
}

bool StateFile::Open(const std::string& path, std::string& error) {
  Close();
  path_ = path;
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
  if (std::memcmp(mapped_->magic, kStateMagic, sizeof kStateMagic) == 0 &&
      mapped_->version == kStateVersion && mapped_->size == sizeof(RackState)) {
    if (IsSound(*mapped_)) return true;
    error = path + ": the state of a rack, but damaged; \"velmo-rack run\" makes a new one";
    Close();
    return false;
  }
  error = path + ": not the state of a rack, or of another version of this program";
  Close();
  return false;
}

bool StateFile::Replaced() const {
  struct stat mapped {};
  struct stat named {};
  if (fstat(descriptor_, &mapped) != 0 || stat(path_.c_str(), &named) != 0) return true;
  return mapped.st_ino != named.st_ino || mapped.st_dev != named.st_dev;
}

StateFile::SenderLock::SenderLock(const StateFile& file)
    : thread_(file.sender_), descriptor_(file.descriptor_) {
  while (flock(descriptor_, LOCK_EX) != 0 && errno == EINTR) {
  }
}

StateFile::SenderLock::~SenderLock() {
  flock(descriptor_, LOCK_UN);
}

bool CopyLive(RackLive& live, RackLive& copy) {
  for (int attempt = 0; attempt < kCopyAttempts; ++attempt) {
    const std::uint32_t before = live.change.load(std::memory_order_acquire);
    std::memcpy(static_cast<void*>(&copy), &live, sizeof copy);
    // Acquired: the copy does not begin before the number is read. Adding 0 writes nothing new, but being a release
    // it stays behind the copy, which a load need not.
    if (before % 2 == 0 && live.change.fetch_add(0, std::memory_order_acq_rel) == before) return true;
    Pause(kCopyPause);
  }
  return false;
}

LiveChange::LiveChange(RackLive& live) : live_(live) {
  // Odd already if a controller ended in the middle of a change.
  live_.change.fetch_or(1U, std::memory_order_acq_rel);
  OddBeforeChange();
}

LiveChange::~LiveChange() {
  // Released: who reads the even number in CopyLive, which acquires it, reads what was changed before. No one else
  // writes the number meanwhile, so a load and a store do.
  live_.change.store(live_.change.load(std::memory_order_relaxed) + 1U, std::memory_order_release);
}

}  // namespace rack
