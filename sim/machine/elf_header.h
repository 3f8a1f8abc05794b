// Whether a library fits in front of a program, and what runs the program, by what stands at the head of the files.
#pragma once

#include <string>

namespace rack {

// Why the library cannot be preloaded for this controller; empty when it can. Nothing of it is loaded into this
// process: its constructor would take over the machine that this process's environment names, and a library of another
// width would not load at all. A controller that is no ELF file, as a script, is not looked at.
std::string WhyNotPreloaded(const std::string& controller, const std::string& library);

// The name of the emulator for a controller of another processor, such as qemu-arm; empty when this computer runs it
// itself, or when none is known.
std::string EmulatorOf(const std::string& controller);

}  // namespace rack
