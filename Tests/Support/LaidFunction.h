// A PCI function whose configuration space a test lays out byte for byte.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>

#include "Simulator/Machine/Machine.h"
#include "Simulator/Simulation.h"

class LaidFunction {
 public:
    LaidFunction(Simulator::Simulation& Simulation, const Simulator::PciAddress& Where, std::uint32_t VendorDevice)
        : Function(Simulation.Machine().Pci().Add(Where, std::make_unique<Simulator::PciFunction>())) {
        Put(0x00, 4, VendorDevice);
    }
    LaidFunction& Put(unsigned Offset, unsigned Width, std::uint32_t Value) {
        Function.Poke(Offset, Width, Value);
        return *this;
    }
    // The classic list exists and begins there.
    LaidFunction& List(std::uint8_t Pointer) {
        return Put(0x06, 2, Function.Peek(0x06, 2) | 0x10).Put(0x34, 1, Pointer);
    }
    LaidFunction& Capability(unsigned Offset, std::uint8_t Id, std::uint8_t Next) {
        return Put(Offset, 2, static_cast<std::uint32_t>(Next << 8 | Id));
    }
    LaidFunction& Extended(unsigned Offset, std::uint16_t Id, unsigned Next, unsigned Version = 1) {
        return Put(Offset, 4, Next << 20 | Version << 16 | Id);
    }
    // The PCI Express capability alone, at 0x40. Type: device/port type.
    LaidFunction& Express(unsigned Type) {
        return List(0x40).Capability(0x40, 0x10, 0).Put(0x42, 2, Type << 4 | 2);
    }
    std::uint32_t Get(unsigned Offset, unsigned Width) const {
        return Function.Peek(Offset, Width);
    }

    Simulator::PciFunction& Function;
};
