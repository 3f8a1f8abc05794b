// The calls that virtual time does not answer: the first one ends the run with its name. In real and scaled time
// they are the C library's.
#include "preload/next.h"
#include "time/scheduler.h"

#define RACK_REFUSED(name, result, parameters, arguments) \
  result name parameters {                                \
    static rack::Next next(rack::calls::name);            \
    if (rack::InTurn()) rack::Refuse(#name);              \
    return next arguments;                                \
  }

extern "C" {
RACK_REFUSED_CALLS(RACK_REFUSED)
}
