// The configuration file, as the controller's reader finds its way through it.
#include <algorithm>
#include <cctype>
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

class ConfRules {
 public:
  ConfRules(const std::string& path, Report* report) : path_(path), out_(*report) {}

  void Check() {
    std::istringstream lines(ReadWholeFile(path_));
    std::string line;
    while (std::getline(lines, line)) {
      ++number_;
      if (number_ == 1 && line.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
        Unread(1, "a byte order mark stands before the first line", "; save the file without it");
        line.erase(0, kByteOrderMark.size());
        CheckLine(line, false);
        continue;
      }
      CheckLine(line, true);
    }
  }

 private:
  // meant: how it should be, with what separates it from the message; may be empty.
  void Unread(size_t column, const std::string& what, const std::string& meant = "") {
    out_.Add(path_, number_, static_cast<int>(column), RuleId::ConfUnread,
             what + ": the controller does not find it and takes its default" + meant);
  }

  void NotLookedAt(const std::string& what) {
    out_.Add(path_, number_, 1, RuleId::ConfUnread, what + ": the controller does not look at this one");
  }

  void CheckLine(const std::string& line, bool report) {
    const std::string trimmed = Trimmed(line);
    if (!trimmed.empty() && kCommentMarks.find(trimmed[0]) != std::string_view::npos) return;
    if (!trimmed.empty() && std::string_view("[<(").find(trimmed[0]) != std::string_view::npos) {
      return CheckGroup(line, trimmed, report);
    }
    if (line.find('=') != line.npos) CheckItem(line);
  }

  void CheckGroup(const std::string& line, const std::string& trimmed, bool report) {
    group_ = FindItem([&](const ConfItem& row) { return SameWord(trimmed, row.group); });
    inGroup_ = true;
    isRead_ = false;
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
    if (!isRead_) return;
    const std::string item = group_->item;
    if (!SameWord(trimmed, item)) {
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
    char value[MAXBUFFER + 100] = "";
    const int result = ReadIni.GetField(path_.c_str(), group_->group, group_->item, 0, value);
    if (result != 0) return Unread(column, std::string(group_->item) + " has no value");
    const long long port = ToWideNumber(value);
    if (port >= group_->lowest && port <= group_->highest) return;
    out_.Add(path_, number_, static_cast<int>(column), RuleId::ConfPort,
             std::string(group_->item) + " is read as " + std::to_string(port) +
                 ", which is no such port: the controller does not work with it; " +
                 std::to_string(group_->lowest) + " to " + std::to_string(group_->highest) +
                 " was probably meant");
  }

  const std::string path_;
  Report& out_;
  int number_ = 0;
  const ConfItem* group_ = nullptr;  // of the line; null before the first and in an unknown one
  bool inGroup_ = false;
  bool isRead_ = false;  // the reader comes into this group
  std::set<std::string> groups_;
  std::set<std::string> items_;
};

}  // namespace

void CheckConf(const fs::path& directory, Report* report) {
  const std::vector<std::string> names = FileNames(directory);
  const bool isThere = std::find(names.begin(), names.end(), kConfName) != names.end();
  if (isThere) return ConfRules((directory / kConfName).lexically_normal().string(), report).Check();
  for (const std::string& name : names) {
    if (!SameWord(name, kConfName)) continue;
    report->Add((directory / name).lexically_normal().string(), 1, 1, RuleId::ConfUnread,
                "the controller reads \"Velmo.conf\" only, in this letter case, and takes its defaults");
  }
}

}  // namespace check
