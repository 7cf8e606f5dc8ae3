#include "Simulator/Machine/PcieFunction.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "Simulator/Machine/IoHub.h"

namespace Simulator {

namespace {

constexpr unsigned SPACE_SIZE = 4096;
constexpr unsigned NO_PORT_TYPE = 0x100;

constexpr unsigned AlignUp(unsigned Value, unsigned To) {
    return (Value + To - 1) / To * To;
}

}  // namespace

std::uint32_t PcieFunction::Read(unsigned Offset, unsigned Width) {
    if (Observer.ReadsUntilDeath != 0 && --Observer.ReadsUntilDeath == 0) {
        DieAfter(0);
    }
    if (IsDying) {
        if (ReadsLeft == 0) {
            return UINT32_MAX >> (32 - 8 * Width);
        }
        ReadsLeft--;
    }
    return Peek(Offset, Width);
}

void PcieFunction::Write(unsigned Offset, unsigned Width, std::uint32_t Value) {
    if (IsDead() || !TakesWrites(Offset)) {
        return;
    }
    PciFunction::Write(Offset, Width, Value);
    Observer.Written(*this, Offset, Width, Value);
}

// Slot Capabilities are hardware-initialised: the core's lock keeps software out.
bool PcieFunction::TakesWrites(unsigned Offset) const {
    const bool IsSlotCapabilities =
        IsPcie() && IsDownstreamPort() && Offset / 4 * 4 == At.Pcie + PCIE_SLOT_CAPABILITIES;
    return !IsSlotCapabilities || (IsRootPort() && Hub != nullptr && !Hub->IsHwInitLocked(HubPort));
}

unsigned PcieFunction::AddCapability(std::uint8_t Id, unsigned Size) {
    const unsigned Offset = AlignUp(NextCapability, 4);
    if (Offset + Size > 0x100) {
        throw std::invalid_argument("the capabilities of \"" + Name + "\" do not fit");
    }
    NextCapability = Offset + Size;
    SetBits(PCI_STATUS, 2, PciStatus::CapabilitiesList);
    Poke(LastCapability == 0 ? static_cast<unsigned>(PCI_CAPABILITIES_POINTER) : LastCapability + 1, 1, Offset);
    LastCapability = Offset;
    Poke(Offset, 1, Id);
    return Offset;
}

unsigned PcieFunction::AddExtendedCapability(std::uint16_t Id, unsigned Version, unsigned Size) {
    const unsigned Offset = AlignUp(NextExtended, 4);
    if (Offset + Size > SPACE_SIZE) {
        throw std::invalid_argument("the extended capabilities of \"" + Name + "\" do not fit");
    }
    if (LastExtended != 0) {
        Poke(LastExtended, 4, PcieExtendedCapabilityHeader::Next::Set(Peek(LastExtended, 4), Offset));
    }
    LastExtended = Offset;
    NextExtended = Offset + Size;
    Poke(Offset, 4, PcieExtendedCapabilityHeader::Version::Of(Version) | PcieExtendedCapabilityHeader::Id::Of(Id));
    return Offset;
}

void PcieFunction::RememberReset() {
    AtReset.resize(SPACE_SIZE);
    for (unsigned Offset = 0; Offset < SPACE_SIZE; Offset += 4) {
        const std::uint32_t Value = Peek(Offset, 4);
        std::memcpy(AtReset.data() + Offset, &Value, sizeof(Value));
    }
}

void PcieFunction::Reset(bool KeepsConfiguration) {
    const auto IsSticky = [this](unsigned Offset) {
        return std::ranges::any_of(Sticky,
                                   [Offset](const auto& Range) { return Offset - Range.first < Range.second; });
    };
    for (unsigned Offset = 0; Offset < SPACE_SIZE; Offset++) {
        if (IsSticky(Offset)) {
            continue;
        }
        ClearBits(Offset, 1, WriteOneToClear(Offset, 1));
        if (!KeepsConfiguration && !AtReset.empty()) {
            const std::uint32_t Mask = Writable(Offset, 1);
            Poke(Offset, 1, (Peek(Offset, 1) & ~Mask) | (AtReset[Offset] & Mask));
        }
    }
    if (At.PowerManagement != 0) {
        ClearBits(At.PowerManagement + PM_CONTROL_STATUS, 2, PmControlStatus::PowerState::Mask);
    }
}

unsigned PcieFunction::PortType() const {
    return IsPcie() ? PcieCapabilities::DevicePortType::Get(static_cast<UINT16>(Pcie(PCIE_CAPABILITIES, 2)))
                    : NO_PORT_TYPE;
}

bool PcieFunction::IsRoleBased() const {
    return IsPcie() && (Pcie(PCIE_DEVICE_CAPABILITIES, 4) & PcieDeviceCapabilities::RoleBasedErrorReporting) != 0;
}

bool PcieFunction::HasRootPortExtensions() const {
    return At.Dpc != 0 && IsRootPort() &&
           DpcCapability::RpExtensions::Get(static_cast<UINT16>(Dpc(DPC_CAPABILITY, 2))) != 0;
}

bool PcieFunction::IsInD3Hot() const {
    return At.PowerManagement != 0 &&
           PmControlStatus::PowerState::Get(static_cast<UINT16>(Peek(At.PowerManagement + PM_CONTROL_STATUS, 2))) ==
               PmControlStatus::D3Hot;
}

bool PcieFunction::IsContained() const {
    return At.Dpc != 0 && DpcStatus::TriggerStatus::Get(static_cast<UINT16>(Dpc(DPC_STATUS, 2))) != 0;
}

PciAddress PcieFunction::Where() const {
    return {Segment, Above == nullptr ? RootBus : Above->SecondaryBus(), Device, Function};
}

std::uint16_t PcieFunction::RequesterId() const {
    const PciAddress Here = Where();
    return static_cast<std::uint16_t>(Here.Bus << 8 | Here.Device << 3 | Here.Function);
}

std::uint64_t PcieFunction::BarBase(unsigned Index) const {
    const unsigned Register = PCI_BASE_ADDRESS_0 + 4 * Index;
    const std::uint32_t Low = Peek(Register, 4);
    std::uint64_t Base = Low & ~PciBar::MemoryAttributes;
    if (PciBar::Type::Get(Low) == PciBar::Type64) {
        Base |= std::uint64_t{Peek(Register + 4, 4)} << 32;
    }
    return Base;
}

void PcieFunction::SetBar(unsigned Index, std::uint64_t Base, std::uint64_t Size, std::uint32_t Flags) {
    const unsigned Register = PCI_BASE_ADDRESS_0 + 4 * Index;
    const std::uint32_t Attributes = (Flags & 1) != 0 ? 0x3 : PciBar::MemoryAttributes;
    const std::uint64_t Mask = Size == 0 ? 0 : ~(Size - 1) & ~std::uint64_t{Attributes};
    Poke(Register, 4, static_cast<std::uint32_t>(Base) | Flags);
    SetWritable(Register, 4, static_cast<std::uint32_t>(Mask));
    if ((Flags & 1) == 0 && PciBar::Type::Get(Flags) == PciBar::Type64) {
        Poke(Register + 4, 4, static_cast<std::uint32_t>(Base >> 32));
        SetWritable(Register + 4, 4, static_cast<std::uint32_t>(Mask >> 32));
    }
}

}  // namespace Simulator
