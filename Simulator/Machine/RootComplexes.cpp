#include "Simulator/Machine/RootComplexes.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

#include "Simulator/Machine/PciDump.h"

namespace Simulator {

namespace {

constexpr unsigned LAST_BUS = 255;

// The nearest root complex moves to each bus; the first one stays where the firmware looks for it.
void MoveTo(const std::vector<std::pair<unsigned, unsigned>>& Buses, std::vector<RootComplex>& All) {
    std::vector<bool> IsTaken(All.size());
    IsTaken[0] = true;
    for (const auto& Where : Buses) {
        const unsigned Segment = Where.first;
        const unsigned Bus = Where.second;
        const auto Stands = [&](const RootComplex& One) { return One.Segment == Segment && One.BusBase == Bus; };
        if (const auto Found = std::ranges::find_if(All, Stands); Found != All.end()) {
            IsTaken[static_cast<std::size_t>(Found - All.begin())] = true;
            continue;
        }
        // The last one whose buses the new one takes, else the last one of all.
        std::size_t Best = All.size();
        bool IsNear = false;
        for (std::size_t Index = 0; Index < All.size(); Index++) {
            const bool Holds = All[Index].Segment == Segment && All[Index].BusBase <= Bus;
            if (!IsTaken[Index] && (Holds || !IsNear)) {
                Best = Index;
                IsNear = Holds;
            }
        }
        if (Best == All.size()) {
            throw std::invalid_argument("the dump shows more root complexes than the machine has");
        }
        IsTaken[Best] = true;
        All[Best].Segment = Segment;
        All[Best].BusBase = Bus;
    }
}

}  // namespace

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
    if (Settings.Pcie.Dump) {
        MoveTo(RootBusesOf(ReadPciDump(Settings.Pcie.Dump->Text)), All);
    }
    for (RootComplex& One : All) {
        One.LastBus = LAST_BUS;
        for (const RootComplex& Other : All) {
            if (Other.Segment == One.Segment && Other.BusBase > One.BusBase) {
                One.LastBus = std::min(One.LastBus, Other.BusBase - 1);
            }
        }
    }
    return All;
}

unsigned PciSegmentCount(const Configuration& Settings) {
    unsigned Count = Settings.PciSegments;
    if (Settings.Pcie.Dump) {
        for (const DumpedFunction& One : ReadPciDump(Settings.Pcie.Dump->Text)) {
            Count = std::max(Count, std::bit_ceil(One.Where.Segment + 1));
        }
    }
    return Count;
}

}  // namespace Simulator
