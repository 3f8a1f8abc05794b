// Numbers in program texts, parameters and configuration values.
#pragma once

// The number at the start of a text: leading white space, an optional sign, decimal digits; 0 when there are none.
// Any count of digits has a defined result: the value is held to 64 bits and then cut to the width of T.
long long ToWideNumber(const char* text);

template <class T>
T ToNumber(const char* text) {
  return static_cast<T>(ToWideNumber(text));
}

// A decimal fraction as atof reads it, narrowed to float; beyond float's range it is infinite.
float ToFloat(const char* text);
