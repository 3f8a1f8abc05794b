// Names of the controller's variables.
#pragma once

#include <cstddef>

namespace rack {

// The name of the variable of the program that lies at this address, from the program's file. False: there is none
// (it lies in memory that was taken while the program ran), or the file holds no names.
bool WriteSymbol(const void* address, char* text, std::size_t size);

}  // namespace rack
