// What the TOML reader has against a file, as one line.
#pragma once

#include <string>
#include <toml.hpp>

namespace rack {

// "file:line:column: message", for a text that is called `name`.
std::string SyntaxError(const std::string& name, const toml::exception& error);

}  // namespace rack
