// PCI functions and their configuration space, with the SMN register space behind a root complex.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>

namespace Simulator {

struct PciAddress {
    unsigned Segment = 0;
    unsigned Bus = 0;
    unsigned Device = 0;
    unsigned Function = 0;

    auto operator<=>(const PciAddress&) const = default;
};

// Configuration space of 4096 bytes. Bits are read-only but where a mask makes them writable.
class PciFunction {
 public:
    virtual ~PciFunction() = default;

    // Width in bytes; Offset is a multiple of it.
    virtual std::uint32_t Read(unsigned Offset, unsigned Width);
    virtual void Write(unsigned Offset, unsigned Width, std::uint32_t Value);

    // Past the rules for software.
    std::uint32_t Peek(unsigned Offset, unsigned Width) const;
    void Poke(unsigned Offset, unsigned Width, std::uint32_t Value);
    void SetWritable(unsigned Offset, unsigned Width, std::uint32_t Mask);

 private:
    std::array<std::uint8_t, 4096> Bytes{};
    std::array<std::uint8_t, 4096> WriteMask{};
};

// A block of registers that does more than remember. Register: bytes from the block's start.
class SmnDevice {
 public:
    virtual ~SmnDevice() = default;
    // Nothing, or false, for a register that does not exist.
    virtual std::optional<std::uint32_t> Read(std::uint32_t Register) const = 0;
    virtual bool Write(std::uint32_t Register, std::uint32_t Value) = 0;
};

// Registers on the system management network of one root complex; only those that were mapped exist.
class SmnSpace {
 public:
    // The device must outlive the space.
    void MapDevice(std::uint32_t Base, std::uint32_t Size, SmnDevice& Device) {
        Devices[Base] = {Size, &Device};
    }
    void Map(std::uint32_t Address, std::uint32_t Value) {
        Registers[Address] = Value;
    }
    std::optional<std::uint32_t> Read(std::uint32_t Address) const;
    // False where nothing is mapped.
    bool Write(std::uint32_t Address, std::uint32_t Value);

 private:
    struct DeviceRange {
        std::uint32_t Size = 0;
        SmnDevice* Device = nullptr;
    };
    struct DeviceRegister {
        SmnDevice* Device = nullptr;  // nullptr where no device lies
        std::uint32_t Register = 0;
    };
    DeviceRegister FindDevice(std::uint32_t Address) const;

    std::unordered_map<std::uint32_t, std::uint32_t> Registers;
    std::map<std::uint32_t, DeviceRange> Devices;  // by base
};

// Device 0, function 0 of a root complex's base bus. The machine serves its SMN data register: an access there is
// an SMN access at the address in the index register.
class RootComplexFunction : public PciFunction {
 public:
    RootComplexFunction();

    SmnSpace Smn;
};

class PciSpace {
 public:
    PciFunction& Add(const PciAddress& Where, std::unique_ptr<PciFunction> Function);
    // nullptr for an absent function.
    PciFunction* Find(const PciAddress& Where);

 private:
    std::map<PciAddress, std::unique_ptr<PciFunction>> Functions;
};

}  // namespace Simulator
