// What a feature says that this image is built without.
#pragma once

#include "Library/RasLib/Trace.h"

// Traces the calling function's absence.
inline void TraceStandIn(const CHAR8* Caller = __builtin_FUNCTION()) {
    TraceAs(Caller, DEBUG_VERBOSE, "%a: not built into this image\n");
}
