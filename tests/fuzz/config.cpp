// Files that the controller reads beside its programs: configuration, motor files, start scripts.
#include <algorithm>
#include <cstring>

#include "drvlib.h"
#include "fuzz.h"
#include "hostile_board.h"
#include "kova_cpu.h"
#include "motfiles.h"
#include "plctask.h"
#include "readini.h"

namespace {

using fuzz::Require;
using fuzz::Scratch;

constexpr int kFound = 0;
constexpr int kNotFound = -2;

void TryConfiguration(std::string_view text) {
  Scratch::Write("Velmo.conf", text);
  const unsigned port = ConfiguredFunctionPort();
  Require(port == 0 || (port >= 9 && port <= 255), "a function port is none or one that is possible");
  struct {
    const char* group;
    const char* item;
    int position;
  } const rows[] = {{"[UDP]", "Port", 0}, {"[KEYPAD]", "FunctionPort", 0}, {"[A]", "B", 3}, {"", "", -1}};
  for (const auto& row : rows) {
    fuzz::ExactText value("  kept", 256);
    const int result = ReadIni.GetField("Velmo.conf", row.group, row.item, row.position, value.Get());
    Require(result == kFound || result == kNotFound, "a file that is there is read");
    Require(result == kFound || std::strcmp(value.Get(), "kept") == 0, "a value that is not there stays");
    int number = 7;
    float fraction = 7;
    long wide = 7;
    Require(ReadIni.GetField("Velmo.conf", row.group, row.item, row.position, number) == result &&
                ReadIni.GetField("Velmo.conf", row.group, row.item, row.position, fraction) == result &&
                ReadIni.GetField("Velmo.conf", row.group, row.item, row.position, wide) == result,
            "a value is there for each kind of number or for none");
    Require(result == kFound || (number == 7 && wide == 7), "a number that is not there stays");
  }
}

void TryMotorFiles(std::string_view text) {
  Scratch::Write("SMPOS.DAT", text);
  Scratch::Write("MOZ.POS", text);
  STEPPOS status;
  status.LoadStepMotorStatus();
  const bool isWhole = text.size() >= sizeof status.StepMotorStatus;
  int32_t wanted[MAXSTEPMOTORNUM] = {-1, -1, -1, -1, -1, -1, -1, -1};
  if (isWhole) std::memcpy(wanted, text.data(), sizeof wanted);
  Require(std::memcmp(wanted, status.StepMotorStatus, sizeof wanted) == 0,
          "a whole table is taken, no other");
  const int channel = text.empty() ? -1 : text.front();
  status.SaveStepMotorStatus(channel, 5);
  STEPPOS again;
  again.LoadStepMotorStatus();
  Require(std::memcmp(status.StepMotorStatus, again.StepMotorStatus, sizeof wanted) == 0,
          "what was saved is loaded");
  MOZPOS positions;
  positions.LoadPos();
  const std::size_t taken = std::min(text.size(), sizeof positions.POS);
  Require(std::memcmp(positions.POS, text.data(), taken) == 0, "the positions are the file's bytes");
}

void TryScript(std::string_view text) {
  Scratch::Write("run.sh", text);
  Require(CnvDos2UnixFile("run.sh") == 1, "a script that is there is converted");
  std::string wanted(text);
  std::replace(wanted.begin(), wanted.end(), '\r', '\n');
  std::string script;
  Require(Scratch::Read("run.sh", &script) && script == wanted, "carriage returns have become line feeds");
  Require(!Scratch::Read("tmp.txt", &script), "the work file is gone");
  Require(copyFile("run.sh", "copy.sh") == 0 && Scratch::Read("copy.sh", &script) && script == wanted,
          "the copy is the script");
  char base[] = ".";
  char name[] = "copy.sh";
  Require(FindFile(base, name) == 1, "the copy is found");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  pthread_mutex_init(&FileLock, nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Bytes input(fuzz::TextOf(data, size));
  const Scratch scratch;
  const fuzz::HostileBoard board;
  const std::uint8_t kind = input.Byte();
  if (kind == 'M') {
    TryMotorFiles(input.Rest());
  } else if (kind == 'S') {
    TryScript(input.Rest());
  } else {
    TryConfiguration(fuzz::TextOf(data, size));
  }
  return 0;
}
