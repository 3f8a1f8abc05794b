// The process's link to the rack: the mapped state, and what the controller's own file calls tell about its
// tasks.
//
// Any thread may call any operation; one lock guards it all. Time comes from CurrentTime.
#pragma once

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>

#include "preload/bus_target.h"
#include "preload/console_writer.h"
#include "preload/journal_room.h"
#include "preload/next.h"
#include "preload/time_source.h"
#include "rack/rack.h"

namespace rack {

class Session final : public BusTarget {
 public:
  // The session of this process; null without a state file in the environment. Made at the first call, which
  // may come before any constructor of the library has run.
  static Session* Get();

  DeviceName Device() override { return state_.State()->image.device; }
  int Read(std::uint8_t port) override;
  void Write(std::uint8_t port, std::uint8_t value) override;

  RackState& Shared() { return *state_.State(); }
  // The library answers for a controller from now on, whatever it calls first.
  void Attach();
  // Works the machine out up to now and applies requests, without an access.
  void Serve();
  // The machine worked out up to now while it is watched; what has happened, and what happens next.
  MachineDue Work();
  // What it is watched for from now on.
  MachineDue Watch(const TriggerTable& triggers);

  // The controller tries a device name; it has got it or not.
  void DeviceTried(bool opened);
  void DeviceClosed();

  // Program files, by their path "plcN/...". Other files are none of the session's business.
  void FileOpened(const char* path, FILE* stream);
  void FileClosed(FILE* stream);
  void FileRewound(FILE* stream);
  bool IsProgram(FILE* stream);
  // fgets, called from this place in the code, has read so many bytes of a line, or found the end of the file (line
  // null).
  void LineRead(FILE* stream, const void* caller, const char* line, std::size_t length);

  // Whether these bytes are held, to be written with those behind them. False: write them at once.
  bool HoldConsole(int descriptor, const char* text, std::size_t size);
  void WriteConsole();
  void WriteConsoleInTime();
  // These bytes went to standard output.
  void ConsoleWritten(const char* text, std::size_t count);

  void Synced();
  // Whether the restart call is to fail; otherwise the caller ends the process.
  bool RestartFails();

  // Where a file of the board outside the machine's directory is kept; the path itself for every other file.
  // False: the name does not fit into `kept`.
  bool Redirect(const char* path, char* kept, std::size_t size) const;

 private:
  struct OpenProgram {
    FILE* stream;
    std::uint8_t task;
    std::uint32_t file;
    std::uint32_t line;
    bool inLine;     // the last read ended in the middle of a line
    bool searching;  // a label search is reading
  };

  Session(const char* path, std::string& error);
  Nanos Now() const;
  void TellMoved();
  int ReadNow(std::uint8_t port);
  void WriteNow(std::uint8_t port, std::uint8_t value);
  void NoteConsole(const char* text, std::size_t count);
  void NoteRestart();
  Origin Caller() const;
  OpenProgram* Find(const FILE* stream);
  std::uint32_t FileNumber(const char* path);
  void NoteController();
  DueLine TakeLine(FILE* stream, const void* caller, const char* line, std::size_t length);
  bool NoteLine(OpenProgram& program, const void* caller, const char* text, std::size_t length);
  bool NoteEnd(OpenProgram& program);
  void NoteAccess(std::uint8_t port);
  void NoteProbe(int value);
  void ReadCardList(const char* text, std::size_t count);
  void NoteListed(const char* line);

  OwnMutex guard_;
  std::atomic<bool> watched_{false};
  JournalRoom room_;
  std::unique_ptr<ConsoleWriter> writer_;
  StateFile state_;
  std::unique_ptr<Rack> rack_;
  std::string home_;  // folder of the run, without a slash at its end
  OpenProgram programs_[64]{};
  bool lineBegins_ = true;  // what is written to the console next
  std::string mainLine_;    // what the main thread has written of a line so far
};

}  // namespace rack
