// A waveform in the VCD format of logic analysers, and the view file that shows it.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace rack {

// Writes one recording. Wires are declared first, then Begin is called once, then changes in order of time.
class VcdWriter {
 public:
  explicit VcdWriter(std::ostream& out) : out_(out) {}

  // Declares a wire below a scope and returns its number. A width of 1 is a level, a wider one a signed
  // number.
  int AddWire(const std::string& scope, const std::string& name, int width);

  // Declares a wire that shows words, and what it shows at the start; empty: it is not known.
  int AddText(const std::string& scope, const std::string& name, const std::string& start);
  void SetStart(int wire, const std::string& text);

  // Writes the declarations and the values at the start, one per wire in order of declaration; nothing where it
  // is not known, and for wires with words.
  void Begin(const std::vector<std::optional<std::int64_t>>& values, std::int64_t nanos);

  // A wire's new value. A value the wire has already writes nothing; a time before the last one counts as the
  // last.
  void Change(int wire, std::int64_t value, std::int64_t nanos);
  void ChangeText(int wire, const std::string& text, std::int64_t nanos);

  // A remark that stands in the file at this place: what was lost, or which fault begins.
  void Remark(const std::string& text);

  // Marks the end, so that the last values have a length.
  void End(std::int64_t nanos);

  // The view that shows the whole recording, the wires that changed in it in groups by scope. `dump` is the
  // recording's file name.
  std::string View(const std::string& dump) const;

 private:
  struct Wire {
    std::string scope;
    std::string name;
    int width;  // 0: it shows words
    std::string code;
    std::optional<std::int64_t> value;
    std::string text;
    bool changed;
  };

  int Add(const std::string& scope, const std::string& name, int width, const std::string& text);
  void Time(std::int64_t nanos);
  static char Bit(const Wire& wire, int bit);
  void Value(const Wire& wire);

  std::ostream& out_;
  std::vector<Wire> wires_;
  std::int64_t start_ = 0;
  std::int64_t time_ = -1;
};

}  // namespace rack
