// PCI functions and their configuration space, with the SMN register space behind a root complex.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Simulator {

struct PciAddress {
    unsigned Segment = 0;
    unsigned Bus = 0;
    unsigned Device = 0;
    unsigned Function = 0;

    auto operator<=>(const PciAddress&) const = default;
};

class RootComplexFunction;

// Configuration space of 4096 bytes. Bits are read-only but where a mask makes them writable or cleared by a one.
class PciFunction {
 public:
    virtual ~PciFunction() = default;

    // The function itself where it is a root complex's, else nullptr.
    virtual RootComplexFunction* AsRootComplex() {
        return nullptr;
    }

    // Width in bytes; Offset is a multiple of it.
    virtual std::uint32_t Read(unsigned Offset, unsigned Width);
    virtual void Write(unsigned Offset, unsigned Width, std::uint32_t Value);

    // Past the rules for software.
    std::uint32_t Peek(unsigned Offset, unsigned Width) const;
    void Poke(unsigned Offset, unsigned Width, std::uint32_t Value);
    void SetWritable(unsigned Offset, unsigned Width, std::uint32_t Mask);
    void SetWriteOneToClear(unsigned Offset, unsigned Width, std::uint32_t Mask);
    std::uint32_t Writable(unsigned Offset, unsigned Width) const;
    std::uint32_t WriteOneToClear(unsigned Offset, unsigned Width) const;
    // Single bits, past the rules for software.
    void SetBits(unsigned Offset, unsigned Width, std::uint32_t Mask) {
        Poke(Offset, Width, Peek(Offset, Width) | Mask);
    }
    void ClearBits(unsigned Offset, unsigned Width, std::uint32_t Mask) {
        Poke(Offset, Width, Peek(Offset, Width) & ~Mask);
    }

 private:
    using Space = std::array<std::uint8_t, 4096>;
    static std::uint32_t Take(const Space& From, unsigned Offset, unsigned Width);
    static void Put(Space& Into, unsigned Offset, unsigned Width, std::uint32_t Value);

    Space Bytes{};
    Space WriteMask{};
    Space ClearMask{};
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

    RootComplexFunction* AsRootComplex() override {
        return this;
    }

    SmnSpace Smn;
};

// Who leads configuration requests to functions below bridges.
class PciRouter {
 public:
    virtual ~PciRouter() = default;
    // Bridges decode other buses than before, or links came up or went down: publishes every function that can be
    // reached, and who claims a bus.
    virtual void Route() = 0;
    // No function answers a request to a bus that Claimed claims. Register: bytes.
    virtual void NobodyAnswers(PciFunction& Claimed, const PciAddress& Where, unsigned Register, bool IsWrite) = 0;
};

// Functions by address: those that stand where they are whatever bridges decode, and those that bridges lead to.
class PciSpace {
 public:
    static constexpr unsigned MAXIMUM_SEGMENTS = 16;

    PciSpace() : Buses(MAXIMUM_SEGMENTS * 256) {}

    // A function that stands where it is; it hides one that bridges lead to.
    PciFunction& Add(const PciAddress& Where, std::unique_ptr<PciFunction> Function);
    // nullptr for an absent function.
    PciFunction* Find(const PciAddress& Where);
    // Configuration requests of software; an absent function answers all ones. Width in bytes.
    std::uint32_t Read(const PciAddress& Where, unsigned Register, unsigned Width);
    void Write(const PciAddress& Where, unsigned Register, unsigned Width, std::uint32_t Value);
    // In the order of their addresses.
    std::vector<std::pair<PciAddress, PciFunction*>> Functions();

    // The router's side. It must outlive the space's use.
    void SetRouter(PciRouter* Leads) {
        Router = Leads;
        IsStale = true;
    }
    void Invalidate() {
        IsStale = true;
    }
    void Publish(const PciAddress& Where, PciFunction& Function);
    void Claim(unsigned Segment, unsigned FirstBus, unsigned LastBus, PciFunction& By);

 private:
    struct Bus {
        std::array<PciFunction*, 256> Fixed{};
        std::array<PciFunction*, 256> Routed{};
        PciFunction* Claimed = nullptr;
    };
    Bus& Make(unsigned Segment, unsigned Number);
    Bus* Look(const PciAddress& Where);
    static PciFunction* At(const Bus& Here, const PciAddress& Where);

    std::vector<std::unique_ptr<Bus>> Buses;  // by segment, then number; nullptr: nothing was ever there
    std::vector<std::unique_ptr<PciFunction>> Owned;
    PciRouter* Router = nullptr;
    bool IsStale = false;
};

}  // namespace Simulator
