#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "Simulator/Firmware/MemoryLayout.h"
#include "Simulator/SimulationState.h"

namespace Simulator {

namespace {

using Where = Simulation::CommunicationCall::Place;

// Where the buffer begins, and the memory that it may run through.
std::uint8_t* PlaceBuffer(Where Wanted, std::uint64_t Size, MemoryArea& Place) {
    const MemoryLayout& Layout = Memory();
    switch (Wanted) {
        case Where::Region:
            Place = Layout.Communication;
            return Place.Base;
        case Where::Outside:
            Place = Layout.Outside;
            return Place.Base;
        case Where::Smram:
            Place = Layout.SmramFront;
            return Place.Base;
        case Where::Straddling:
            // SMRAM follows the outside memory: the second half of the buffer lies in it.
            Place = {Layout.Outside.Base, Layout.Outside.Size + Layout.SmramFront.Size / 2};
            return Layout.SmramFront.Base - std::clamp<std::uint64_t>(Size / 2, 1, Layout.Outside.Size);
        case Where::Null:
            break;
    }
    return nullptr;
}

}  // namespace

CommunicationBuffer::CommunicationBuffer(Where Wanted, std::span<const std::uint8_t> Data, std::uint64_t Size) {
    Base = PlaceBuffer(Wanted, std::max<std::uint64_t>(Size, Data.size()), Place);
    if (Base == nullptr) {
        return;
    }
    const auto Room = static_cast<std::uint64_t>(Place.End() - Base);
    if (Data.size() > Room) {
        throw std::invalid_argument("the communication buffer is larger than the memory for it");
    }
    std::memset(Base, 0, Room);
    std::ranges::copy(Data, Base);
    const std::uint64_t Usable = std::min(Room, Size);
    ForbidAccess(Base + Usable, Room - Usable);
}

CommunicationBuffer::~CommunicationBuffer() {
    AllowAccess(Place.Base, Place.Size);
}

}  // namespace Simulator
