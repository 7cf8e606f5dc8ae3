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
    unsigned LastBus = 0;
};

// In the order of the bus map. The buses of a segment are shared out evenly among its root complexes, but for those
// that a dump of another machine puts elsewhere.
std::vector<RootComplex> LayOutRootComplexes(const Configuration& Settings);

// PCI segments that the machine has: as many as it is told, or as many as a dump needs; a power of two.
unsigned PciSegmentCount(const Configuration& Settings);

}  // namespace Simulator
