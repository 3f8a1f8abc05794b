// What the fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

// Ends the process, which the fuzzer then tells of with the input that has led here.
void Require(bool holds, const char* what);

// An input, taken from its front.
class Bytes {
 public:
  Bytes() = default;
  explicit Bytes(std::string_view bytes) : rest_(bytes) {}

  bool IsEmpty() const { return rest_.empty(); }
  // `behindEnd` when there are none left.
  std::uint8_t Byte(std::uint8_t behindEnd = 0);
  // Up to the next line feed, without it.
  std::string Line();
  std::string_view Rest() const { return rest_; }

 private:
  std::string_view rest_;
};

inline std::string_view TextOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// A text in memory of its own length, so that the address sanitizer sees each byte beyond it.
class ExactText {
 public:
  explicit ExactText(std::string_view text) : bytes_(text.begin(), text.end()) { bytes_.push_back('\0'); }
  char* Get() { return bytes_.data(); }
  // Room for that many bytes, the text in front.
  ExactText(std::string_view text, std::size_t room) : bytes_(text.begin(), text.end()) {
    bytes_.resize(room);
  }

 private:
  std::vector<char> bytes_;
};

// A directory of the process, its own while one input is tried, and emptied before.
class Scratch {
 public:
  Scratch();
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  static const std::string& Path();
  static void Write(const std::string& name, std::string_view text);
  static bool Read(const std::string& name, std::string* text);

 private:
  int home_;
};

// The input as files: each behind a line "== NAME"; what stands before the first one goes to `first`.
struct InputFile {
  std::string name;
  std::string_view text;
};
std::vector<InputFile> FilesOf(std::string_view input, const char* first);
// "plc1/FLOW.PLC" and its like: short, without a way out of the directory.
bool IsProgramName(const std::string& name);

}  // namespace fuzz
