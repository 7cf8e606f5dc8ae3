// What a simulation is made of.
#pragma once

#include <span>

#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/MemoryLayout.h"
#include "Simulator/Machine/Machine.h"
#include "Simulator/Simulation.h"

namespace Simulator {

struct Simulation::State {
    explicit State(const Configuration& Settings) : Hardware(Settings, Events), Platform(Settings, Hardware) {}

    Journal Events;
    Simulator::Machine Hardware;
    Simulator::Firmware Platform;
    std::uint64_t BlocksAtBoot = 0;
};

// A communication buffer where a call wants it, with nothing to read or write behind it.
class CommunicationBuffer {
 public:
    // Size: the bytes that the call will claim; the buffer holds at least that many, as far as its place has room.
    CommunicationBuffer(Simulation::CommunicationCall::Place Where, std::span<const std::uint8_t> Data,
                        std::uint64_t Size);
    ~CommunicationBuffer();
    CommunicationBuffer(const CommunicationBuffer&) = delete;
    CommunicationBuffer& operator=(const CommunicationBuffer&) = delete;

    void* Address() const {
        return Base;
    }

 private:
    std::uint8_t* Base = nullptr;
    MemoryArea Place;
};

}  // namespace Simulator
