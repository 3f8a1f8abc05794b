// The configuration file, as the controller's reader finds its way through it.
#include <algorithm>
#include <cctype>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>

#include "check/topics.h"
#include "drvlib.h"
#include "numbers.h"
#include "readini.h"
#include "toml/words.h"

namespace check {

namespace fs = std::filesystem;

namespace {

constexpr const char* kConfName = "Velmo.conf";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kCommentMarks = ";#/";  // for who writes the file; the reader finds no item there

struct ConfItem {
  const char* group;
  const char* item;
  int lowest;
  int highest;
};
constexpr ConfItem kItems[] = {
    {"[UDP]", "Port", 1, 65535},
    {"[KEYPAD]", "FunctionPort", 9, 255},
};
constexpr const ConfItem& kKeyPort = kItems[1];
constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

bool SameWord(const std::string& a, const std::string& b) {
  return stricmp(a.c_str(), b.c_str()) == 0;
}

std::string Trimmed(const std::string& text) {
  const size_t start = text.find_first_not_of(kBlanks);
  if (start == text.npos) return "";
  return text.substr(start, text.find_last_not_of(kBlanks) + 1 - start);
}

// Without leading blanks, as the reader compares it.
std::string AsRead(const std::string& text) {
  return text.substr(std::min(text.size(), text.find_first_not_of(' ')));
}

template <class Same>
const ConfItem* FindItem(Same same) {
  const auto* row = std::find_if(std::begin(kItems), std::end(kItems), same);
  return row == std::end(kItems) ? nullptr : row;
}

// What the controller finds of an item; nothing when it finds none.
std::optional<std::string> ValueOf(const std::string& path, const ConfItem& row) {
  char value[MAXBUFFER + 100] = "";
  if (ReadIni.GetField(path.c_str(), row.group, row.item, 0, value) != 0) return std::nullopt;
  return value;
}

class ConfRules {
 public:
  ConfRules(const std::string& path, const std::optional<RackShape>& rack, Report* report)
      : path_(path), rack_(rack), out_(*report) {}

  void Check() {
    std::istringstream lines(ReadWholeFile(path_));
    std::string line;
    while (std::getline(lines, line)) {
      ++number_;
      line_ = line;
      mark_ = 0;
      if (number_ == 1 && line.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
        Unread(1, "a byte order mark stands before the first line", "; save the file without it");
        mark_ = kByteOrderMark.size();
        line.erase(0, mark_);
        CheckLine(line, false);
        continue;
      }
      CheckLine(line, true);
    }
  }

 private:
  // column: in bytes behind a byte order mark, from 1.
  void Add(size_t column, RuleId rule, const std::string& message) {
    out_.Add(path_, number_, line_, mark_ + column - 1, rule, message);
  }

  // meant: how it should be, with what separates it from the message; may be empty.
  void Unread(size_t column, const std::string& what, const std::string& meant = "") {
    Add(column, RuleId::ConfUnread, what + ": the controller does not find it and takes its default" + meant);
  }

  void NotLookedAt(const std::string& what) {
    Add(1, RuleId::ConfUnread, what + ": the controller does not look at this one");
  }

  // What the controller finds of an item of this file.
  const std::optional<std::string>& Found(const ConfItem& item) {
    const auto [found, isNew] = found_.try_emplace(item.item);
    if (isNew) found->second = ValueOf(path_, item);
    return found->second;
  }

  void CheckLine(const std::string& line, bool report) {
    const std::string trimmed = Trimmed(line);
    if (!trimmed.empty() && kCommentMarks.find(trimmed[0]) != std::string_view::npos) return;
    if (!trimmed.empty() && std::string_view("[<(").find(trimmed[0]) != std::string_view::npos) {
      return CheckGroup(line, trimmed, report);
    }
    if (line.find('=') != line.npos) return CheckItem(line);
    CheckItemWithoutSign(trimmed);
  }

  // "FunctionPort:9": a word of an item with something else behind it.
  void CheckItemWithoutSign(const std::string& trimmed) {
    const size_t end = std::min(trimmed.size(), trimmed.find_first_not_of(kLetters));
    const ConfItem* item =
        FindItem([&](const ConfItem& row) { return SameWord(trimmed.substr(0, end), row.item); });
    if (item != nullptr)
      Unread(1, std::string("no \"=\" follows ") + item->item,
             std::string("; write \"") + item->item + "=\"");
  }

  // "[UDP] Port=8000"
  bool CheckTextBehindGroup(const std::string& line, const std::string& trimmed) {
    const size_t end = trimmed.find(']');
    if (end == trimmed.npos || end + 1 == trimmed.size()) return false;
    const std::string name = trimmed.substr(0, end + 1);
    const ConfItem* group = FindItem([&](const ConfItem& row) { return SameWord(name, row.group); });
    if (group == nullptr) return false;
    const size_t behind = trimmed.find_first_not_of(kBlanks, end + 1);
    Unread(line.find(trimmed) + behind + 1, "text stands behind " + name + " in its line",
           std::string("; \"") + trimmed.substr(behind) + "\" belongs in the next line");
    return true;
  }

  // An item of another group; in a group that is not the controller's only when it finds the item nowhere.
  void CheckStrayItem(const std::string& trimmed) {
    const ConfItem* item = FindItem([&](const ConfItem& row) { return SameWord(trimmed, row.item); });
    if (item == nullptr || item == group_ || (group_ == nullptr && Found(*item))) return;
    Unread(1, trimmed + " does not belong to this group", std::string("; put it under ") + item->group);
  }

  void CheckGroup(const std::string& line, const std::string& trimmed, bool report) {
    group_ = FindItem([&](const ConfItem& row) { return SameWord(trimmed, row.group); });
    inGroup_ = true;
    isRead_ = false;
    if (group_ == nullptr && CheckTextBehindGroup(line, trimmed)) return;
    if (group_ == nullptr) {
      std::string upper = trimmed;
      for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      const std::string nearest = rack::Nearest(upper, {kItems[0].group, kItems[1].group});
      if (!nearest.empty()) Unread(1, "\"" + trimmed + "\" is no group", DidYouMean(nearest));
      return;
    }
    const std::string name = group_->group;
    if (!report) return;
    if (!SameWord(AsRead(line), name)) {
      const size_t end = line.find(trimmed) + trimmed.size();
      return Unread(end == line.size() ? 1 : end + 1,
                    "a blank, tab or carriage return stands in the line of " + name);
    }
    isRead_ = groups_.insert(name).second;
    if (!isRead_) NotLookedAt("only the first group " + name + " is read");
  }

  void CheckItem(const std::string& line) {
    const std::string key = AsRead(line.substr(0, line.find('=')));
    const std::string trimmed = Trimmed(key);
    if (!inGroup_) {
      const ConfItem* item = FindItem([&](const ConfItem& row) { return SameWord(trimmed, row.item); });
      if (item != nullptr)
        Unread(1, trimmed + " stands in no group", std::string("; put ") + item->group + " before it");
      return;
    }
    CheckStrayItem(trimmed);
    if (!isRead_) return;
    const std::string item = group_->item;
    if (!SameWord(trimmed, item)) {
      if (FindItem([&](const ConfItem& row) { return SameWord(trimmed, row.item); }) != nullptr) return;
      const std::string nearest = rack::Nearest(trimmed, {item});
      if (!nearest.empty())
        Unread(1, "\"" + trimmed + "\" is no item of " + group_->group, DidYouMean(nearest));
      return;
    }
    if (!SameWord(key, item)) {
      return Unread(line.find('='), "a blank or tab stands around \"" + item + "\"",
                    "; write \"" + item + "=\"");
    }
    if (!items_.insert(item).second)
      return NotLookedAt("only the first " + item + " of " + group_->group + " is read");
    CheckValue(line.find('=') + 2);
  }

  void CheckValue(size_t column) {
    const std::optional<std::string>& value = Found(*group_);
    if (!value) return Unread(column, std::string(group_->item) + " has no value");
    const long long port = ToWideNumber(value->c_str());
    if (port >= group_->lowest && port <= group_->highest) return CheckKeyPort(column, port);
    Add(column, RuleId::ConfPort,
        std::string(group_->item) + " is read as " + std::to_string(port) +
            ", which is no such port: the controller does not work with it; " +
            std::to_string(group_->lowest) + " to " + std::to_string(group_->highest) +
            " was probably meant");
  }

  void CheckKeyPort(size_t column, long long port) {
    if (group_ != &kKeyPort || !rack_ || rack_->functionPort == port) return;
    const std::string there =
        rack_->functionPort == 0 ? "has none" : "has them at port " + std::to_string(rack_->functionPort);
    Add(column, RuleId::KeyPort,
        "the controller asks port " + std::to_string(port) + " for the function keys, but the rack file " +
            there + ": it sees none of them");
  }

  const std::string path_;
  const std::optional<RackShape>& rack_;
  Report& out_;
  int number_ = 0;
  std::string line_;
  size_t mark_ = 0;                  // bytes of a byte order mark before what is looked at
  const ConfItem* group_ = nullptr;  // of the line; null before the first and in an unknown one
  bool inGroup_ = false;
  bool isRead_ = false;  // the reader comes into this group
  std::set<std::string> groups_;
  std::set<std::string> items_;
  std::map<std::string, std::optional<std::string>> found_;  // by item
};

// Whether a line of the file has the item's name in it: what is wrong with it is then told there.
bool Names(const std::string& text, const std::string& item) {
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    for (size_t at = 0; at + item.size() <= line.size(); ++at) {
      if (SameWord(line.substr(at, item.size()), item)) return true;
    }
  }
  return false;
}

}  // namespace

void CheckConf(const ProgramTree& tree, Report* report) {
  const fs::path& directory = tree.directory;
  const std::vector<std::string> names = FileNames(directory);
  const std::string path = (directory / kConfName).lexically_normal().string();
  const bool isThere = std::find(names.begin(), names.end(), kConfName) != names.end();
  if (isThere) ConfRules(path, tree.rack, report).Check();
  if (!Names(isThere ? ReadWholeFile(path) : "", kKeyPort.item) && tree.rack &&
      tree.rack->functionPort != 0) {
    const std::string message = "the rack file has function keys at port " +
                                std::to_string(tree.rack->functionPort) + ", but Velmo.conf names no " +
                                kKeyPort.item + ": the controller never asks for them";
    const rack::PlacedText& place = tree.rack->file->notes.functionPort;
    if (isThere)
      report->Add(path, 1, 1, RuleId::KeyPort, message);
    else
      report->Add(tree.rack->path, static_cast<int>(place.line), static_cast<int>(place.column),
                  RuleId::KeyPort, message);
  }
  if (isThere) return;
  for (const std::string& name : names) {
    if (!SameWord(name, kConfName)) continue;
    report->Add((directory / name).lexically_normal().string(), 1, 1, RuleId::ConfUnread,
                "the controller reads \"Velmo.conf\" only, in this letter case, and takes its defaults");
  }
}

}  // namespace check
