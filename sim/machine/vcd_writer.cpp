#include "machine/vcd_writer.h"

#include <algorithm>

namespace rack {

namespace {

// A wire's short code: printable characters from '!' to '~', lowest digit first.
std::string Code(std::size_t number) {
  constexpr std::size_t kDigits = 94;
  std::string code;
  do {
    code += static_cast<char>('!' + number % kDigits);
    number /= kDigits;
  } while (number != 0);
  return code;
}

// Names may hold no blank, where the format ends a name, no dot, where viewers part it, and no bracket, which is where they
// look for the number of a bit.
std::string Word(std::string text) {
  const auto isNone = [](char c) {
    return c == '.' || c == '[' || c == ']' || static_cast<unsigned char>(c) <= ' ';
  };
  std::replace_if(text.begin(), text.end(), isNone, '_');
  return text;
}

// Words as a value: a blank would end it.
std::string TextValue(const std::string& text) {
  if (text.empty()) return "-";
  std::string value;
  for (const char c : text) value += c == ' ' ? std::string("\\x20") : std::string(1, c);
  return value;
}

std::string Range(int width) {
  return width <= 1 ? "" : "[" + std::to_string(width - 1) + ":0]";
}

// The viewer shows 2 to the power of this many nanoseconds in the width of a few hundred pixels; a window holds about
// four of them.
int Zoom(std::int64_t nanos) {
  int zoom = 0;
  for (std::int64_t shown = 4; shown < nanos && shown <= INT64_MAX / 2; shown *= 2) ++zoom;
  return zoom;
}

}  // namespace

int VcdWriter::AddWire(const std::string& scope, const std::string& name, int width) {
  return Add(scope, name, width, "");
}

int VcdWriter::AddText(const std::string& scope, const std::string& name, const std::string& start) {
  return Add(scope, name, 0, start);
}

// Names that differ only in what a name may not hold are told apart.
int VcdWriter::Add(const std::string& scope, const std::string& name, int width, const std::string& text) {
  const std::string place = Word(scope);
  std::string word = Word(name);
  const auto taken = [&](const Wire& wire) { return wire.scope == place && wire.name == word; };
  while (std::any_of(wires_.begin(), wires_.end(), taken)) word += '_';
  wires_.push_back({place, word, width, Code(wires_.size()), std::nullopt, text, false});
  return static_cast<int>(wires_.size()) - 1;
}

void VcdWriter::SetStart(int wire, const std::string& text) {
  wires_[static_cast<std::size_t>(wire)].text = text;
}

void VcdWriter::Begin(const std::vector<std::optional<std::int64_t>>& values, std::int64_t nanos) {
  out_ << "$version velmo-rack $end\n$timescale 1ns $end\n$scope module machine $end\n";
  std::string scope;
  for (const Wire& wire : wires_) {
    if (wire.scope != scope) {
      if (!scope.empty()) out_ << "$upscope $end\n";
      scope = wire.scope;
      out_ << "$scope module " << scope << " $end\n";
    }
    if (wire.width == 0) {
      out_ << "$var string 1 " << wire.code << " " << wire.name << " $end\n";
      continue;
    }
    const std::string range = Range(wire.width);
    out_ << "$var wire " << wire.width << " " << wire.code << " " << wire.name << (range.empty() ? "" : " ")
         << range << " $end\n";
  }
  if (!scope.empty()) out_ << "$upscope $end\n";
  out_ << "$upscope $end\n$enddefinitions $end\n";
  start_ = nanos;
  Time(nanos);
  out_ << "$dumpvars\n";
  for (std::size_t i = 0; i < wires_.size(); ++i) {
    wires_[i].value = values[i];
    Value(wires_[i]);
  }
  out_ << "$end\n";
}

void VcdWriter::Time(std::int64_t nanos) {
  if (nanos <= time_) return;
  time_ = nanos;
  out_ << "#" << nanos << "\n";
}

char VcdWriter::Bit(const Wire& wire, int bit) {
  if (!wire.value) return 'x';
  return (*wire.value >> bit & 1) != 0 ? '1' : '0';
}

void VcdWriter::Value(const Wire& wire) {
  if (wire.width == 0) {
    out_ << 's' << TextValue(wire.text) << ' ' << wire.code << "\n";
    return;
  }
  if (wire.width == 1) {
    out_ << Bit(wire, 0) << wire.code << "\n";
    return;
  }
  out_ << 'b';
  for (int bit = wire.width - 1; bit >= 0; --bit) out_ << Bit(wire, bit);
  out_ << ' ' << wire.code << "\n";
}

void VcdWriter::Change(int wire, std::int64_t value, std::int64_t nanos) {
  Wire& changed = wires_[static_cast<std::size_t>(wire)];
  if (changed.value == value) return;
  changed.value = value;
  changed.changed = true;
  Time(nanos);
  Value(changed);
}

void VcdWriter::ChangeText(int wire, const std::string& text, std::int64_t nanos) {
  Wire& changed = wires_[static_cast<std::size_t>(wire)];
  if (changed.text == text) return;
  changed.text = text;
  changed.changed = true;
  Time(nanos);
  Value(changed);
}

void VcdWriter::Remark(const std::string& text) {
  out_ << "$comment " << text << " $end\n";
}

void VcdWriter::End(std::int64_t nanos) {
  Time(nanos);
  out_.flush();
}

std::string VcdWriter::View(const std::string& dump) const {
  // How the viewer shows the trace that follows: a level, a signed decimal number, words, or a heading.
  constexpr const char* kLevel = "@28\n";
  constexpr const char* kSigned = "@420\n";
  constexpr const char* kWords = "@820\n";
  constexpr const char* kHeading = "@200\n";
  std::string view = "[dumpfile] \"" + dump + "\"\n[timestart] " + std::to_string(start_) + "\n*-" +
                     std::to_string(Zoom(time_ - start_)) + " 0\n[treeopen] machine.\n";
  std::string scope;
  for (const Wire& wire : wires_) {
    if (!wire.changed) continue;
    if (wire.scope != scope) {
      scope = wire.scope;
      view += kHeading + ("-" + scope + "\n");
    }
    view += (wire.width == 0   ? kWords
             : wire.width == 1 ? kLevel
                               : kSigned) +
            ("machine." + scope + "." + wire.name + Range(wire.width) + "\n");
  }
  return view;
}

}  // namespace rack
