// Where the machine's root complexes lie.
#pragma once

#include <vector>

#include "Simulator/Configuration.h"

namespace Simulator {

struct RootComplex {
    unsigned Socket = 0;
    unsigned Index = 0;  // within the socket: the physical IO hub
    unsigned Nbio = 0;
    unsigned Iohc = 0;  // within the NBIO
    unsigned Segment = 0;
    unsigned BusBase = 0;
};

// In the order of the bus map. The buses of a segment are shared out evenly among its root complexes.
std::vector<RootComplex> LayOutRootComplexes(const Configuration& Settings);

}  // namespace Simulator
