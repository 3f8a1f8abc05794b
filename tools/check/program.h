// A machine's programs as the controller reads them.
#pragma once

#include <deque>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "check/rack_shape.h"
#include "check/rules.h"
#include "synx.h"

namespace check {

constexpr const char* kResetProgram = "RESET.PLC";
constexpr const char* kFlowProgram = "FLOW.PLC";

// A word's place in a line of its file, counted from 1.
struct Columns {
  int first = 0;
  int behind = 0;
};

// The word of a file's line that begins at a byte: in characters, and in units of UTF-16.
Columns CharactersAt(std::string_view line, size_t byte);
Columns Utf16At(std::string_view line, size_t byte);

// What the controller takes as one line: a line of the file, or a piece of one that is too long to be read at
// once. `parsed` points into `text`, so a line is neither copied nor moved.
struct Line {
  // startOfPiece: byte of the file's line where the piece begins.
  Line(int lineNumber, int startOfPiece, std::string bytes);
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  // The word of `text` that begins at a byte: in characters, and in units of UTF-16.
  Columns CharactersOf(int byte) const;
  Columns Utf16Of(int byte) const;
  bool IsPiece() const { return pieceStart > 0; }
  bool IsCommand() const { return parsed.CmdIdx != SYN_NUL; }

  int number;  // in the file, counted from 1
  int pieceStart;
  std::string raw;   // as read
  std::string text;  // trimmed
  int lead;          // byte of `raw` where `text` begins
  ExplainedLine parsed;
  std::optional<int> label;               // that GO finds here, also in a line too long to be executed
  std::vector<RuleId> ignored;            // silenced by the line's comment
  std::vector<std::string> wrongIgnores;  // what is wrong with the comment's words to this program
};

struct Program {
  std::string path;  // for messages
  std::string name;  // as a call must write it
  bool isMain = false;
  bool isCalled = false;  // by an FL or IF of its task
  bool isUtf16 = false;   // not taken apart then
  std::deque<Line> lines;
  std::map<int, size_t> labels;  // by number: index of the first line with it, where GO leads
};

struct Task {
  int number;
  std::filesystem::path directory;
  std::map<std::string, Program> programs;  // by name

  Program* Find(const std::string& name);
  const Program* Find(const std::string& name) const;
};

struct ProgramTree {
  std::filesystem::path directory;
  std::optional<RackShape> rack;
  std::vector<Task> tasks;

  // The card of a slot index; null when it is not known.
  const rack::CardCommands* CardOf(int slotIdx) const;
};

ProgramTree LoadTree(const std::filesystem::path& directory, const std::optional<RackShape>& rack);
// The programs of one task, whose directory may have any name, with this file whatever its name.
ProgramTree LoadTaskOnly(const std::filesystem::path& directory, const std::string& fileName,
                         const std::optional<RackShape>& rack);

// Number of a task directory's name, -1 for another name.
int TaskNumber(const std::string& name);

// The blocks that a line may call, as their names stand in it: of an IF those that are not NUL.
struct BlockName {
  std::string name;
  int column;  // byte of the line's `text`
};
std::vector<BlockName> CalledBlocks(const Line& line);

// Piece of a text as the controller cuts it; nothing when there are fewer.
std::optional<std::string> PieceOf(const std::string& text, int idx, char separator);
// Byte where that piece begins.
int PieceColumn(const std::string& text, int idx, char separator);

// Names of the files in a directory, sorted; empty when it cannot be read.
std::vector<std::string> FileNames(const std::filesystem::path& directory);
// The name among them that differs in letter case only; otherwise the nearest one, or nothing.
std::string NearMiss(const std::string& name, const std::vector<std::string>& names);

std::string ReadWholeFile(const std::filesystem::path& path);

}  // namespace check
