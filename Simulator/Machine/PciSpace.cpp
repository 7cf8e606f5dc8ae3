#include "Simulator/Machine/PciSpace.h"

#include <cstring>
#include <iterator>

#include "Platform/Constants.h"

namespace Simulator {

namespace {

constexpr std::uint32_t ROOT_COMPLEX_DEVICE_ID = 0x4B01;
constexpr std::uint32_t HOST_BRIDGE_CLASS = 0x06000000;
constexpr unsigned CLASS_REVISION_REGISTER = 0x08;
constexpr unsigned SCRATCH_3_REGISTER = 0x74;  // NBCFG_SCRATCH_3

}  // namespace

std::uint32_t PciFunction::Read(unsigned Offset, unsigned Width) {
    return Peek(Offset, Width);
}

void PciFunction::Write(unsigned Offset, unsigned Width, std::uint32_t Value) {
    for (unsigned Index = 0; Index < Width; Index++) {
        const std::uint8_t Mask = WriteMask[Offset + Index];
        const auto Byte = static_cast<std::uint8_t>(Value >> 8 * Index);
        std::uint8_t& Target = Bytes[Offset + Index];
        Target = static_cast<std::uint8_t>((Target & ~Mask) | (Byte & Mask));
    }
}

std::uint32_t PciFunction::Peek(unsigned Offset, unsigned Width) const {
    std::uint32_t Value = 0;
    std::memcpy(&Value, Bytes.data() + Offset, Width);
    return Value;
}

void PciFunction::Poke(unsigned Offset, unsigned Width, std::uint32_t Value) {
    std::memcpy(Bytes.data() + Offset, &Value, Width);
}

void PciFunction::SetWritable(unsigned Offset, unsigned Width, std::uint32_t Mask) {
    std::memcpy(WriteMask.data() + Offset, &Mask, Width);
}

SmnSpace::DeviceRegister SmnSpace::FindDevice(std::uint32_t Address) const {
    const auto Next = Devices.upper_bound(Address);
    if (Next == Devices.begin()) {
        return {};
    }
    const auto& [Base, Range] = *std::prev(Next);
    return Address - Base < Range.Size ? DeviceRegister{Range.Device, Address - Base} : DeviceRegister{};
}

std::optional<std::uint32_t> SmnSpace::Read(std::uint32_t Address) const {
    if (const DeviceRegister Target = FindDevice(Address); Target.Device != nullptr) {
        return Target.Device->Read(Target.Register);
    }
    const auto Found = Registers.find(Address);
    return Found == Registers.end() ? std::nullopt : std::optional(Found->second);
}

bool SmnSpace::Write(std::uint32_t Address, std::uint32_t Value) {
    if (const DeviceRegister Target = FindDevice(Address); Target.Device != nullptr) {
        return Target.Device->Write(Target.Register, Value);
    }
    const auto Found = Registers.find(Address);
    if (Found == Registers.end()) {
        return false;
    }
    Found->second = Value;
    return true;
}

RootComplexFunction::RootComplexFunction() {
    Poke(0, 4, ROOT_COMPLEX_DEVICE_ID << 16 | PROCESSOR_PCI_VENDOR_ID);
    Poke(CLASS_REVISION_REGISTER, 4, HOST_BRIDGE_CLASS);
    SetWritable(SCRATCH_3_REGISTER, 4, 0xFFFFFFFF);
    SetWritable(SMN_INDEX_REGISTER, 4, 0xFFFFFFFF);
}

PciFunction& PciSpace::Add(const PciAddress& Where, std::unique_ptr<PciFunction> Function) {
    auto& Slot = Functions[Where];
    Slot = std::move(Function);
    return *Slot;
}

PciFunction* PciSpace::Find(const PciAddress& Where) {
    const auto Found = Functions.find(Where);
    return Found == Functions.end() ? nullptr : Found->second.get();
}

}  // namespace Simulator
