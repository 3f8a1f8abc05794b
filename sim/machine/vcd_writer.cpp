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

// Names may hold no blank: the format ends a name there.
std::string Word(std::string text) {
  std::replace(text.begin(), text.end(), ' ', '_');
  return text;
}

std::string Range(int width) {
  return width == 1 ? "" : "[" + std::to_string(width - 1) + ":0]";
}

// The viewer shows 2 to the power of this many nanoseconds in the width of a few hundred pixels; a window holds about
// four of them.
int Zoom(std::int64_t nanos) {
  int zoom = 0;
  for (std::int64_t shown = 4; shown < nanos; shown *= 2) ++zoom;
  return zoom;
}

}  // namespace

int VcdWriter::AddWire(const std::string& scope, const std::string& name, int width) {
  wires_.push_back({Word(scope), Word(name), width, Code(wires_.size()), std::nullopt, false});
  return static_cast<int>(wires_.size()) - 1;
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

void VcdWriter::Remark(const std::string& text) {
  out_ << "$comment " << text << " $end\n";
}

void VcdWriter::End(std::int64_t nanos) {
  Time(nanos);
  out_.flush();
}

std::string VcdWriter::View(const std::string& dump) const {
  // How the viewer shows the trace that follows: a level, a signed decimal number, or a heading.
  constexpr const char* kLevel = "@28\n";
  constexpr const char* kSigned = "@420\n";
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
    view += (wire.width == 1 ? kLevel : kSigned) +
            ("machine." + scope + "." + wire.name + Range(wire.width) + "\n");
  }
  return view;
}

}  // namespace rack
