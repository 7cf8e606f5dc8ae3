// The memory controllers of one socket as registers behind an SMN index/data pair: counters behind their index, and a
// patrol scrubber that walks while somebody looks.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "Include/Topology.h"
#include "Library/RasLib/Globals.h"
#include "Simulator/Machine/Machine.h"
#include "Simulator/Simulation.h"

class FakeUmc : public Simulator::PciFunction {
 public:
    static constexpr std::uint32_t SCRUB_CTRL = 0x50174, SCRUB_LO = 0x50180, SCRUB_HI = 0x50184;
    static constexpr std::uint32_t CNT_SEL = 0x50D80, CNT = 0x50D84, CNT_CTRL = 0x50D88;
    static constexpr std::uint32_t CHANNEL = 0x100000;

    static constexpr std::uint8_t BUS = 0x7D;

    // Stands behind IO hub 0 of sockets 0 and 1, in the driver's bus map too, for as long as the machine lives.
    static FakeUmc& Install(Simulator::Simulation& Machine) {
        auto Made = std::make_unique<FakeUmc>();
        FakeUmc& Umc = *Made;
        Machine.Machine().Pci().Add({0, BUS, 0, 0}, std::move(Made));
        Umc.Map.Count.RbCount = 2;
        for (unsigned Socket = 0; Socket < 2; Socket++) {
            Umc.Map.Entries[Socket].Socket = static_cast<std::uint8_t>(Socket);
            Umc.Map.Entries[Socket].RbBusBase = BUS;
            Machine.Machine().Fabric().Set(Socket, 0, 0xC04, 0x20, BUS);
        }
        mRbBusMap = &Umc.Map.Count;
        return Umc;
    }

    std::uint32_t Read(unsigned Offset, unsigned) override {
        return Offset == 0xBC ? ReadRegister(Index) : 0xFFFFFFFF;
    }
    void Write(unsigned Offset, unsigned, std::uint32_t Value) override {
        if (Offset == 0xB8) {
            Index = Value;
        } else if (Offset == 0xBC) {
            WriteRegister(Index, Value);
        }
    }

    // The counter of a channel behind index (sub-channel << 5 | chip select << 3 | rank multiplier).
    std::uint16_t& Counter(unsigned Channel, unsigned CounterIndex) {
        return Counters[Channel << 6 | CounterIndex];
    }
    std::uint32_t& Register(std::uint32_t Address, unsigned Channel) {
        return Registers[Address + Channel * CHANNEL];
    }

    static constexpr std::uint64_t SCRUB_STEP = 0x1000;  // bytes between two looks at its address
    bool IsScrubberStuck = false;                        // the enable bit does not take

 private:
    std::uint32_t ReadRegister(std::uint32_t Address) {
        const std::uint32_t Base = Address % CHANNEL, Channel = Address / CHANNEL;
        if (Base == CNT) {
            return 0xABCD0000 | Counter(Channel, Register(CNT_SEL, Channel) & 0x3F);
        }
        const std::uint32_t Value = Register(Base, Channel);
        if (Base == SCRUB_HI && (Register(SCRUB_CTRL, Channel) & 0x100) != 0) {
            const std::uint64_t From = std::uint64_t{Value} << 32 | Register(SCRUB_LO, Channel);
            const std::uint64_t To = From + SCRUB_STEP;
            Register(SCRUB_LO, Channel) = static_cast<std::uint32_t>(To);
            Register(SCRUB_HI, Channel) = static_cast<std::uint32_t>(To >> 32);
        }
        return Value;
    }
    void WriteRegister(std::uint32_t Address, std::uint32_t Value) {
        const std::uint32_t Base = Address % CHANNEL, Channel = Address / CHANNEL;
        if (Base == CNT) {
            Counter(Channel, Register(CNT_SEL, Channel) & 0x3F) = static_cast<std::uint16_t>(Value);
        } else if (Base == SCRUB_CTRL && IsScrubberStuck) {
            Register(Base, Channel) = (Value & ~0x100u) | (Register(Base, Channel) & 0x100);
        } else {
            Register(Base, Channel) = Value;
        }
    }

    struct {
        RB_BUS_MAP Count;
        RB_BUS_ENTRY Entries[2];
    } Map{};
    std::uint32_t Index = 0;
    std::map<std::uint32_t, std::uint32_t> Registers;
    std::map<unsigned, std::uint16_t> Counters;
};
