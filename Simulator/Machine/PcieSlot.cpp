// Links and slots: what keeps a link down, what its going and coming does, and what software's writes set off.
#include <algorithm>

#include "Simulator/Machine/PcieFabric.h"

namespace Simulator {

namespace {

constexpr std::uint32_t LINK_DISABLE = 1 << 4;           // Link Control
constexpr std::uint32_t NO_COMMAND_COMPLETED = 1 << 18;  // Slot Capabilities
constexpr std::uint32_t PRESENCE_CHANGED = 1 << 3;       // Slot Status, as the next two
constexpr std::uint32_t COMMAND_COMPLETED = 1 << 4;
constexpr std::uint32_t LINK_STATE_CHANGED = 1 << 8;
constexpr std::uint32_t SECONDARY_BUS_RESET = 1 << 6;    // Bridge Control
constexpr std::uint32_t FUNCTION_LEVEL_RESET = 1 << 15;  // Device Control
constexpr std::uint32_t FUNCTION_LEVEL_RESET_CAPABLE = 1 << 28;
constexpr unsigned SURPRISE_DOWN = 5;

bool HasSlot(const PcieFunction& Port) {
    return Port.IsDownstreamPort() &&
           PcieCapabilities::SlotImplemented::Get(static_cast<UINT16>(Port.Pcie(PCIE_CAPABILITIES, 2))) != 0;
}

bool IsSwitchedOff(const PcieFunction& Port) {
    return PcieFabric::HasPowerController(Port) &&
           (Port.Pcie(PCIE_SLOT_CONTROL, 2) & PcieSlotControl::PowerControllerControl) != 0;
}

// One write access to a function's registers.
struct Access {
    unsigned Offset;
    unsigned Width;
    std::uint32_t Value;

    bool Touches(unsigned Register, unsigned Size) const {
        return Offset < Register + Size && Register < Offset + Width;
    }
    // The bits that were written of the register (of 16 bits); others 0.
    std::uint32_t BitsOf(unsigned Register) const {
        const std::uint64_t Placed = std::uint64_t{Value} << 32;
        const int Shift = 32 - 8 * (static_cast<int>(Offset) - static_cast<int>(Register));
        return Touches(Register, 2) ? static_cast<std::uint32_t>(Placed >> Shift & 0xFFFF) : 0;
    }
};

}  // namespace

void PcieFabric::SetLinkActive(PcieFunction& Port, bool Active) {
    const unsigned Pcie = Port.Has().Pcie;
    if ((Port.Pcie(PCIE_LINK_CAPABILITIES, 4) & PcieLinkCapabilities::DataLinkLayerLinkActiveReportingCapable) == 0) {
        return;
    }
    const std::uint32_t Before = Port.Pcie(PCIE_LINK_STATUS, 2) & PcieLinkStatus::DataLinkLayerLinkActive;
    if (Active) {
        Port.SetBits(Pcie + PCIE_LINK_STATUS, 2, PcieLinkStatus::DataLinkLayerLinkActive);
    } else {
        Port.ClearBits(Pcie + PCIE_LINK_STATUS, 2, PcieLinkStatus::DataLinkLayerLinkActive);
    }
    if (HasSlot(Port) && (Before != 0) != Active) {
        Port.SetBits(Pcie + PCIE_SLOT_STATUS, 2, LINK_STATE_CHANGED);
    }
}

bool PcieFabric::IsHeldDown(const PcieFunction& Port) const {
    return !Port.Wire.IsPresent || Port.Wire.IsForcedDown || Port.Wire.NeverTrains || Port.IsContained() ||
           (Port.Pcie(PCIE_LINK_CONTROL, 2) & LINK_DISABLE) != 0 || IsSwitchedOff(Port);
}

void PcieFabric::UpdateLink(PcieFunction& Port, bool IsSurprise) {
    if (!Port.IsDownstreamPort()) {
        return;
    }
    if (IsHeldDown(Port)) {
        std::erase(Training, &Port);
        if (Port.Wire.IsUp) {
            LinkWentDown(Port, IsSurprise);
        }
    } else if (!Port.Wire.IsUp && std::ranges::find(Training, &Port) == Training.end()) {
        Port.Wire.UpAt = Now + Port.Wire.Training;
        if (Port.Wire.Training == 0) {
            LinkCameUp(Port);
        } else {
            Training.push_back(&Port);
        }
    }
}

// A link that goes without anybody asking for it is an error, unless the slot expects surprises.
void PcieFabric::LinkWentDown(PcieFunction& Port, bool IsSurprise) {
    Port.Wire.IsUp = false;
    SetLinkActive(Port, false);
    RoutesChanged();
    const bool Expects =
        HasSlot(Port) && (Port.Pcie(PCIE_SLOT_CAPABILITIES, 4) & PcieSlotCapabilities::HotPlugSurprise) != 0;
    if (IsSurprise && !Expects &&
        (Port.Pcie(PCIE_LINK_CAPABILITIES, 4) & PcieLinkCapabilities::SurpriseDownErrorReportingCapable) != 0) {
        ReportUncorrectable(Port, {PcieError::Source::Uncorrectable, SURPRISE_DOWN});
    }
}

void PcieFabric::LinkCameUp(PcieFunction& Port) {
    Port.Wire.IsUp = true;
    SetLinkActive(Port, true);
    ResetBelow(Port);
    RoutesChanged();
}

void PcieFabric::ResetBelow(PcieFunction& Bridge) {
    for (const auto& One : Bridge.Below) {
        One->Reset(SoftwareRestores);
        ResetBelow(*One);
    }
    RoutesChanged();
}

void PcieFabric::AdvanceTo(std::uint64_t Time) {
    Now = Time;
    for (std::size_t Index = 0; Index < Training.size();) {
        PcieFunction& Port = *Training[Index];
        if (Port.Wire.UpAt <= Now) {
            Training.erase(Training.begin() + static_cast<std::ptrdiff_t>(Index));
            LinkCameUp(Port);
        } else {
            Index++;
        }
    }
}

void PcieFabric::Remove(PcieFunction& Port, bool IsSurprise) {
    Port.Wire.IsPresent = false;
    UpdateLink(Port, IsSurprise);
    if (HasSlot(Port)) {
        Port.ClearBits(Port.Has().Pcie + PCIE_SLOT_STATUS, 2, PcieSlotStatus::PresenceDetectState);
        Port.SetBits(Port.Has().Pcie + PCIE_SLOT_STATUS, 2, PRESENCE_CHANGED);
    }
}

void PcieFabric::Insert(PcieFunction& Port) {
    Port.Wire.IsPresent = true;
    if (HasSlot(Port)) {
        Port.SetBits(Port.Has().Pcie + PCIE_SLOT_STATUS, 2, PcieSlotStatus::PresenceDetectState | PRESENCE_CHANGED);
    }
    UpdateLink(Port);
}

bool PcieFabric::HasPowerController(const PcieFunction& Port) {
    return HasSlot(Port) &&
           (Port.Pcie(PCIE_SLOT_CAPABILITIES, 4) & PcieSlotCapabilities::PowerControllerPresent) != 0;
}

void PcieFabric::SetPower(PcieFunction& Port, bool On) {
    const unsigned Register = Port.Has().Pcie + PCIE_SLOT_CONTROL;
    const std::uint32_t Control = Port.Peek(Register, 2);
    Port.Write(Register, 2,
               On ? Control & ~std::uint32_t{PcieSlotControl::PowerControllerControl}
                  : Control | PcieSlotControl::PowerControllerControl);
}

void PcieFabric::SetLink(PcieFunction& Port, bool Up) {
    Port.Wire.IsForcedDown = !Up;
    UpdateLink(Port, !Up);
}

void PcieFabric::ApplyStrap(PcieFunction& Port) {
    const unsigned Register = Port.Has().Pcie + PCIE_LINK_CAPABILITIES;
    if (Port.Hub->ReportsSurpriseDown(Port.HubPort)) {
        Port.SetBits(Register, 4, PcieLinkCapabilities::SurpriseDownErrorReportingCapable);
    } else {
        Port.ClearBits(Register, 4, PcieLinkCapabilities::SurpriseDownErrorReportingCapable);
    }
}

void PcieFabric::Written(PcieFunction& Function, unsigned Offset, unsigned Width, std::uint32_t Value) {
    const Access Write{Offset, Width, Value};
    if (Function.IsBridge()) {
        if (Write.Touches(PCI_PRIMARY_BUS_NUMBER, 3)) {
            RoutesChanged();
        }
        if ((Write.BitsOf(PCI_BRIDGE_CONTROL) & SECONDARY_BUS_RESET) != 0) {
            ResetBelow(Function);
        }
        if (Function.Has().PowerManagement != 0 &&
            Write.Touches(Function.Has().PowerManagement + PM_CONTROL_STATUS, 2)) {
            RoutesChanged();
        }
    }
    if (!Function.IsPcie() || Offset < Function.Has().Pcie) {
        return;
    }
    const unsigned Pcie = Function.Has().Pcie;
    if ((Write.BitsOf(Pcie + PCIE_DEVICE_CONTROL) & FUNCTION_LEVEL_RESET) != 0 &&
        (Function.Pcie(PCIE_DEVICE_CAPABILITIES, 4) & FUNCTION_LEVEL_RESET_CAPABLE) != 0) {
        Function.Reset(SoftwareRestores);
    }
    if (!Function.IsDownstreamPort()) {
        return;
    }
    if (HasSlot(Function) && Write.Touches(Pcie + PCIE_SLOT_CONTROL, 2) &&
        (Function.Pcie(PCIE_SLOT_CAPABILITIES, 4) & NO_COMMAND_COMPLETED) == 0) {
        Function.SetBits(Pcie + PCIE_SLOT_STATUS, 2, COMMAND_COMPLETED);
    }
    if (Write.Touches(Pcie + PCIE_LINK_CONTROL, 2) || Write.Touches(Pcie + PCIE_SLOT_CONTROL, 2)) {
        UpdateLink(Function);
    }
    if (Function.Has().Dpc != 0) {
        const unsigned Dpc = Function.Has().Dpc;
        ContainmentWritten(Function, Write.Touches(Dpc + DPC_STATUS, 2), Write.BitsOf(Dpc + DPC_CONTROL));
    }
}

// Clearing the trigger status lets the link train again; the software trigger bit contains the port at once.
void PcieFabric::ContainmentWritten(PcieFunction& Port, bool TouchesStatus, std::uint32_t Control) {
    if (TouchesStatus) {
        UpdateLink(Port);
    }
    const auto Capability = static_cast<UINT16>(Port.Dpc(DPC_CAPABILITY, 2));
    if (DpcControl::SoftwareTrigger::Get(static_cast<UINT16>(Control)) != 0 &&
        DpcCapability::SoftwareTriggeringSupported::Get(Capability) != 0 && CanTrigger(Port, Severity::Fatal)) {
        Trigger(Port, DpcReasonSeeExtension, DpcReasonExtensionSoftwareTrigger, 0);
    }
}

}  // namespace Simulator
