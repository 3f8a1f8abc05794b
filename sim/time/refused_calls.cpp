// The calls that virtual time does not answer: the first one ends the run with its name. In real and scaled time
// they are the C library's.
#include "preload/next.h"
#include "time/scheduler.h"

#define RACK_REFUSED(name, result, parameters, arguments, when) \
  result name parameters {                                      \
    static rack::Next next(rack::calls::name);                  \
    if (when) rack::Refuse(#name);                              \
    return next arguments;                                      \
  }
#define RACK_REFUSED_IN_TURN(name, result, parameters, arguments) \
  RACK_REFUSED(name, result, parameters, arguments, rack::InTurn())
#define RACK_REFUSED_TO_FIBRES(name, result, parameters, arguments) \
  RACK_REFUSED(name, result, parameters, arguments, rack::InTurn() && rack::AsFibres())

extern "C" {
RACK_REFUSED_CALLS(RACK_REFUSED_IN_TURN)
RACK_FIBRE_REFUSED_CALLS(RACK_REFUSED_TO_FIBRES)
}
