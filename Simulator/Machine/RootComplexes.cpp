#include "Simulator/Machine/RootComplexes.h"

#include <stdexcept>

namespace Simulator {

std::vector<RootComplex> LayOutRootComplexes(const Configuration& Settings) {
    constexpr unsigned IOHCS_PER_NBIO = 4;
    const unsigned PerSocket = Settings.RootComplexesPerSocket;
    const bool SegmentPerSocket = Settings.PciSegments > 1;
    const unsigned PerSegment = SegmentPerSocket ? PerSocket : PerSocket * Settings.Sockets;
    if (PerSocket == 0 || PerSocket > 8) {
        throw std::invalid_argument("root complexes per socket: 1 to 8");
    }
    std::vector<RootComplex> All;
    for (unsigned Socket = 0; Socket < Settings.Sockets; Socket++) {
        for (unsigned Index = 0; Index < PerSocket; Index++) {
            RootComplex One;
            One.Socket = Socket;
            One.Index = Index;
            One.Nbio = Index / IOHCS_PER_NBIO;
            One.Iohc = Index % IOHCS_PER_NBIO;
            One.Segment = SegmentPerSocket ? Socket : 0;
            One.BusBase = (SegmentPerSocket ? Index : Socket * PerSocket + Index) * (256 / PerSegment);
            All.push_back(One);
        }
    }
    return All;
}

}  // namespace Simulator
