#include "fuzz.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fuzz {
namespace {

constexpr std::string_view kFileMark = "== ";

// Made once, and removed when the process ends.
class Directory {
 public:
  Directory() {
    const std::filesystem::path place = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
    path_ = place / "velmo-fuzz-XXXXXX";
    Require(mkdtemp(path_.data()) != nullptr, "a scratch directory");
  }
  ~Directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "Does not hold: %s\n", what);
  std::abort();
}

std::uint8_t Bytes::Byte(std::uint8_t behindEnd) {
  if (rest_.empty()) return behindEnd;
  const auto byte = static_cast<std::uint8_t>(rest_.front());
  rest_.remove_prefix(1);
  return byte;
}

std::string Bytes::Line() {
  const std::size_t end = rest_.find('\n');
  const std::string line(rest_.substr(0, end));
  rest_.remove_prefix(end == rest_.npos ? rest_.size() : end + 1);
  return line;
}

const std::string& Scratch::Path() {
  static const Directory directory;
  return directory.Path();
}

Scratch::Scratch() : home_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  for (const auto& entry : std::filesystem::directory_iterator(Path())) std::filesystem::remove_all(entry);
  Require(home_ >= 0 && chdir(Path().c_str()) == 0, "the scratch directory can be entered");
}

Scratch::~Scratch() {
  Require(fchdir(home_) == 0, "the scratch directory can be left");
  close(home_);
}

void Scratch::Write(const std::string& name, std::string_view text) {
  const std::filesystem::path path = Path() + "/" + name;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary).write(text.data(), static_cast<std::streamsize>(text.size()));
}

bool Scratch::Read(const std::string& name, std::string* text) {
  const std::ifstream file(Path() + "/" + name, std::ios::binary);
  std::ostringstream content;
  if (file) content << file.rdbuf();
  *text = content.str();
  return file.is_open();
}

std::vector<InputFile> FilesOf(std::string_view input, const char* first) {
  std::vector<InputFile> files;
  std::string name = first;
  for (;;) {
    std::size_t mark = input.substr(0, kFileMark.size()) == kFileMark ? 0 : input.find("\n== ");
    if (mark != 0 && mark != input.npos) ++mark;
    const std::string_view text = input.substr(0, mark);
    if (!text.empty()) files.push_back({name, text});
    if (mark == input.npos) return files;
    Bytes rest(input.substr(mark + kFileMark.size()));
    name = rest.Line();
    input = rest.Rest();
    if (input.empty()) files.push_back({name, input});
  }
}

bool IsProgramName(const std::string& name) {
  const bool isInTask = name.size() > 5 && name.size() < 60 && name.compare(0, 3, "plc") == 0 &&
                        name[3] >= '1' && name[3] <= '8' && name[4] == '/';
  return isInTask && name.find_first_of(std::string_view("/\0", 2), 5) == name.npos &&
         name.find("..") == name.npos;
}

}  // namespace fuzz
