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

// A capability that a description puts at the end of the space would have registers behind it: they do not exist.
std::uint32_t PciFunction::Take(const Space& From, unsigned Offset, unsigned Width) {
    std::uint32_t Value = 0;
    if (Offset + Width <= From.size()) {
        std::memcpy(&Value, From.data() + Offset, Width);
    }
    return Value;
}

void PciFunction::Put(Space& Into, unsigned Offset, unsigned Width, std::uint32_t Value) {
    if (Offset + Width <= Into.size()) {
        std::memcpy(Into.data() + Offset, &Value, Width);
    }
}

std::uint32_t PciFunction::Read(unsigned Offset, unsigned Width) {
    return Peek(Offset, Width);
}

void PciFunction::Write(unsigned Offset, unsigned Width, std::uint32_t Value) {
    for (unsigned Index = 0; Index < Width; Index++) {
        const std::uint8_t Mask = WriteMask[Offset + Index];
        const auto Byte = static_cast<std::uint8_t>(Value >> 8 * Index);
        const auto Cleared = static_cast<std::uint8_t>(Byte & ClearMask[Offset + Index]);
        std::uint8_t& Target = Bytes[Offset + Index];
        Target = static_cast<std::uint8_t>(((Target & ~Mask) | (Byte & Mask)) & ~Cleared);
    }
}

std::uint32_t PciFunction::Peek(unsigned Offset, unsigned Width) const {
    return Take(Bytes, Offset, Width);
}

void PciFunction::Poke(unsigned Offset, unsigned Width, std::uint32_t Value) {
    Put(Bytes, Offset, Width, Value);
}

void PciFunction::SetWritable(unsigned Offset, unsigned Width, std::uint32_t Mask) {
    Put(WriteMask, Offset, Width, Mask);
}

void PciFunction::SetWriteOneToClear(unsigned Offset, unsigned Width, std::uint32_t Mask) {
    Put(ClearMask, Offset, Width, Mask);
}

std::uint32_t PciFunction::Writable(unsigned Offset, unsigned Width) const {
    return Take(WriteMask, Offset, Width);
}

std::uint32_t PciFunction::WriteOneToClear(unsigned Offset, unsigned Width) const {
    return Take(ClearMask, Offset, Width);
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

PciSpace::Bus& PciSpace::Make(unsigned Segment, unsigned Number) {
    auto& Slot = Buses.at(Segment << 8 | Number);
    if (Slot == nullptr) {
        Slot = std::make_unique<Bus>();
    }
    return *Slot;
}

PciSpace::Bus* PciSpace::Look(const PciAddress& Where) {
    if (IsStale && Router != nullptr) {
        IsStale = false;
        for (const auto& One : Buses) {
            if (One != nullptr) {
                One->Routed.fill(nullptr);
                One->Claimed = nullptr;
            }
        }
        Router->Route();
    }
    const std::size_t Index = Where.Segment << 8 | Where.Bus;
    return Index < Buses.size() ? Buses[Index].get() : nullptr;
}

PciFunction* PciSpace::At(const Bus& Here, const PciAddress& Where) {
    const unsigned Index = Where.Device << 3 | Where.Function;
    return Here.Fixed[Index] != nullptr ? Here.Fixed[Index] : Here.Routed[Index];
}

PciFunction& PciSpace::Add(const PciAddress& Where, std::unique_ptr<PciFunction> Function) {
    Owned.push_back(std::move(Function));
    Make(Where.Segment, Where.Bus).Fixed[Where.Device << 3 | Where.Function] = Owned.back().get();
    return *Owned.back();
}

PciFunction* PciSpace::Find(const PciAddress& Where) {
    const Bus* Here = Look(Where);
    return Here == nullptr ? nullptr : At(*Here, Where);
}

std::uint32_t PciSpace::Read(const PciAddress& Where, unsigned Register, unsigned Width) {
    if (const Bus* Here = Look(Where); Here != nullptr) {
        if (PciFunction* Function = At(*Here, Where); Function != nullptr) {
            return Function->Read(Register, Width);
        }
        if (Here->Claimed != nullptr) {
            Router->NobodyAnswers(*Here->Claimed, Where, Register, false);
        }
    }
    return UINT32_MAX >> (32 - 8 * Width);
}

void PciSpace::Write(const PciAddress& Where, unsigned Register, unsigned Width, std::uint32_t Value) {
    if (const Bus* Here = Look(Where); Here != nullptr) {
        if (PciFunction* Function = At(*Here, Where); Function != nullptr) {
            Function->Write(Register, Width, Value);
        } else if (Here->Claimed != nullptr) {
            Router->NobodyAnswers(*Here->Claimed, Where, Register, true);
        }
    }
}

std::vector<std::pair<PciAddress, PciFunction*>> PciSpace::Functions() {
    std::vector<std::pair<PciAddress, PciFunction*>> All;
    Look({});
    for (unsigned Index = 0; Index < Buses.size(); Index++) {
        for (unsigned Number = 0; Buses[Index] != nullptr && Number < 256; Number++) {
            const PciAddress Where{Index >> 8, Index & 0xFF, Number >> 3, Number & 7};
            if (PciFunction* Function = At(*Buses[Index], Where); Function != nullptr) {
                All.emplace_back(Where, Function);
            }
        }
    }
    return All;
}

void PciSpace::Publish(const PciAddress& Where, PciFunction& Function) {
    PciFunction*& Place = Make(Where.Segment, Where.Bus).Routed[Where.Device << 3 | Where.Function];
    if (Place == nullptr) {
        Place = &Function;
    }
}

void PciSpace::Claim(unsigned Segment, unsigned FirstBus, unsigned LastBus, PciFunction& By) {
    for (unsigned Number = FirstBus; Number <= LastBus; Number++) {
        Make(Segment, Number).Claimed = &By;
    }
}

}  // namespace Simulator
