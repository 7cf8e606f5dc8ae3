// Which bits of which register software can write, or clear by a one, and which survive a reset: by the capabilities
// that a function's bytes hold.
#include <set>

#include "Simulator/Machine/PcieFunction.h"

namespace Simulator {

namespace {

struct RegisterRule {
    unsigned Register;  // bytes from the capability's start
    unsigned Width;     // bytes
    std::uint32_t Writable;
    std::uint32_t WriteOneToClear;
};

enum CAPABILITY_ID : std::uint8_t { CapabilityMsi = 0x05, CapabilityMsix = 0x11 };
enum EXTENDED_CAPABILITY_ID : std::uint16_t {
    ExtendedAcs = 0x0D,
    ExtendedAri = 0x0E,
    ExtendedLtr = 0x18,
    ExtendedL1PmSubstates = 0x1E,
};

constexpr std::uint32_t UNCORRECTABLE_BITS = 0x07FFF030;
constexpr std::uint32_t CORRECTABLE_BITS = 0x0000F1C1;
constexpr std::uint32_t SECONDARY_BITS = 0x00003FFF;
constexpr std::uint32_t RP_PIO_BITS = 0x00070707;

constexpr RegisterRule POWER_MANAGEMENT[] = {{PM_CONTROL_STATUS, 2, 0x0103, 0x8000}};
constexpr RegisterRule MSIX[] = {{2, 2, 0xC000, 0}};
constexpr RegisterRule DEVICE[] = {{PCIE_DEVICE_CONTROL, 2, 0x7FFF, 0}, {PCIE_DEVICE_STATUS, 2, 0, 0x000F}};
constexpr RegisterRule DEVICE_2[] = {{PCIE_DEVICE_CONTROL_2, 2, 0x7FFF, 0}};
constexpr RegisterRule LINK[] = {{PCIE_LINK_CONTROL, 2, 0x03CB, 0}};
constexpr RegisterRule LINK_2[] = {{0x30, 2, 0xFFFF, 0}, {0x32, 2, 0, 0x0020}};
constexpr RegisterRule DOWNSTREAM_LINK[] = {{PCIE_LINK_CONTROL, 2, 0x0FDB, 0}, {PCIE_LINK_STATUS, 2, 0, 0xC000}};
constexpr RegisterRule SLOT[] = {
    {PCIE_SLOT_CAPABILITIES, 4, 0xFFFFFFFF, 0}, {PCIE_SLOT_CONTROL, 2, 0x1FFF, 0}, {PCIE_SLOT_STATUS, 2, 0, 0x011F}};
constexpr RegisterRule ROOT[] = {{PCIE_ROOT_CONTROL, 2, 0x001F, 0},
                                 {PCIE_ROOT_STATUS, 4, 0, PcieRootStatus::PmeStatus}};

constexpr RegisterRule AER[] = {{AER_UNCORRECTABLE_STATUS, 4, 0, UNCORRECTABLE_BITS},
                                {AER_UNCORRECTABLE_MASK, 4, UNCORRECTABLE_BITS, 0},
                                {AER_UNCORRECTABLE_SEVERITY, 4, UNCORRECTABLE_BITS, 0},
                                {AER_CORRECTABLE_STATUS, 4, 0, CORRECTABLE_BITS},
                                {AER_CORRECTABLE_MASK, 4, CORRECTABLE_BITS, 0}};
constexpr RegisterRule AER_ROOT[] = {{AER_ROOT_ERROR_COMMAND, 4, 0x7, 0},
                                     {AER_ROOT_ERROR_STATUS, 4, 0, AerRootErrorStatus::ErrorBits}};
constexpr RegisterRule AER_SECONDARY[] = {{AER_SECONDARY_UNCORRECTABLE_STATUS, 4, 0, SECONDARY_BITS},
                                          {AER_SECONDARY_UNCORRECTABLE_MASK, 4, SECONDARY_BITS, 0},
                                          {AER_SECONDARY_UNCORRECTABLE_SEVERITY, 4, SECONDARY_BITS, 0}};
constexpr RegisterRule DPC[] = {{DPC_CONTROL, 2, 0x01BF, 0}, {DPC_STATUS, 2, 0, 0x2009}};
constexpr RegisterRule RP_PIO[] = {{DPC_RP_PIO_STATUS, 4, 0, RP_PIO_BITS},
                                   {DPC_RP_PIO_MASK, 4, RP_PIO_BITS, 0},
                                   {DPC_RP_PIO_SEVERITY, 4, RP_PIO_BITS, 0},
                                   {DPC_RP_PIO_SYS_ERROR, 4, RP_PIO_BITS, 0},
                                   {DPC_RP_PIO_EXCEPTION, 4, RP_PIO_BITS, 0}};
constexpr RegisterRule SFI[] = {
    {SFI_CONTROL, 2, 0x00FF, 0}, {SFI_STATUS, 2, 0, 0x000C}, {SFI_CAM_ADDRESS, 4, 0xFFFFFFFF, 0}};
constexpr RegisterRule SECONDARY_PCIE[] = {{SECONDARY_PCIE_LINK_CONTROL_3, 4, 0x3, 0},
                                           {SECONDARY_PCIE_LANE_ERROR_STATUS, 4, 0, 0xFFFFFFFF}};
constexpr RegisterRule ACS[] = {{6, 2, 0x7F, 0}};
constexpr RegisterRule ARI[] = {{6, 2, 0x3, 0}};
constexpr RegisterRule LTR[] = {{4, 2, 0x1FFF, 0}, {6, 2, 0x1FFF, 0}};
constexpr RegisterRule L1_PM[] = {{8, 4, 0xFFFFFFFF, 0}, {12, 4, 0xFF, 0}};

constexpr RegisterRule HEADER[] = {
    {PCI_COMMAND, 2, 0x0547, 0}, {PCI_STATUS, 2, 0, PciStatus::ErrorBits}, {0x0C, 1, 0xFF, 0}, {0x3C, 1, 0xFF, 0}};
constexpr RegisterRule BRIDGE_HEADER[] = {{PCI_PRIMARY_BUS_NUMBER, 1, 0xFF, 0},
                                          {PCI_SECONDARY_BUS_NUMBER, 1, 0xFF, 0},
                                          {PCI_SUBORDINATE_BUS_NUMBER, 1, 0xFF, 0},
                                          {0x1C, 2, 0xF0F0, 0},
                                          {PCI_SECONDARY_STATUS, 2, 0, PciStatus::ErrorBits},
                                          {PCI_MEMORY_BASE, 4, 0xFFF0FFF0, 0},
                                          {PCI_PREFETCHABLE_MEMORY_BASE, 4, 0xFFF0FFF0, 0},
                                          {PCI_BRIDGE_CONTROL, 2, 0x005F, 0}};
constexpr RegisterRule BRIDGE_UPPER_HALVES[] = {{PCI_PREFETCHABLE_BASE_UPPER, 4, 0xFFFFFFFF, 0},
                                                {PCI_PREFETCHABLE_LIMIT_UPPER, 4, 0xFFFFFFFF, 0}};

template <std::size_t Count>
void Apply(PciFunction& To, unsigned Offset, const RegisterRule (&Rules)[Count]) {
    for (const RegisterRule& Rule : Rules) {
        if (Offset + Rule.Register + Rule.Width <= 4096) {
            To.SetWritable(Offset + Rule.Register, Rule.Width, Rule.Writable);
            To.SetWriteOneToClear(Offset + Rule.Register, Rule.Width, Rule.WriteOneToClear);
        }
    }
}

void ApplyMsi(PciFunction& To, unsigned Offset) {
    const std::uint32_t Control = To.Peek(Offset + 2, 2);
    const bool Is64 = (Control & 0x80) != 0, HasMasks = (Control & 0x100) != 0;
    const unsigned Data = Is64 ? 0xC : 0x8;
    To.SetWritable(Offset + 2, 2, 0x0071);
    To.SetWritable(Offset + 4, 4, 0xFFFFFFFC);
    if (Is64) {
        To.SetWritable(Offset + 8, 4, 0xFFFFFFFF);
    }
    To.SetWritable(Offset + Data, 2, 0xFFFF);
    if (HasMasks) {
        To.SetWritable(Offset + Data + 4, 4, 0xFFFFFFFF);
    }
}

// ECRC generation and checking can be switched on where the function can do them.
void ApplyAerControl(PciFunction& To, unsigned Offset) {
    const std::uint32_t Control = To.Peek(Offset + AER_CAPABILITIES_CONTROL, 4);
    To.SetWritable(Offset + AER_CAPABILITIES_CONTROL, 4, (Control & 0x2A0) << 1);
}

}  // namespace

void PcieFunction::DeriveHeaderRules() {
    Apply(*this, 0, HEADER);
    if (!IsBridge()) {
        return;
    }
    Apply(*this, 0, BRIDGE_HEADER);
    if (PciMemoryWindow::Kind::Get(static_cast<UINT16>(Peek(PCI_PREFETCHABLE_MEMORY_BASE, 2))) ==
        PciMemoryWindow::Kind64) {
        Apply(*this, 0, BRIDGE_UPPER_HALVES);
    }
}

void PcieFunction::DeriveCapabilityRules(unsigned Id, unsigned Offset) {
    switch (Id) {
        case PciCapabilityPowerManagement:
            At.PowerManagement = Offset;
            Apply(*this, Offset, POWER_MANAGEMENT);
            break;
        case PciCapabilitySubsystemVendorId:
            At.SubsystemId = Offset;
            break;
        case CapabilityMsi:
            ApplyMsi(*this, Offset);
            break;
        case CapabilityMsix:
            Apply(*this, Offset, MSIX);
            break;
        case PciCapabilityPciExpress: {
            At.Pcie = Offset;
            const auto Capabilities = static_cast<UINT16>(Pcie(PCIE_CAPABILITIES, 2));
            const bool HasSecondSet = PcieCapabilities::Version::Get(Capabilities) >= 2;
            const bool HasLink = PortType() != PcieRootComplexIntegratedEndpoint && !IsEventCollector();
            Apply(*this, Offset, DEVICE);
            if (HasLink) {
                Apply(*this, Offset, LINK);
            }
            if (IsDownstreamPort()) {
                Apply(*this, Offset, DOWNSTREAM_LINK);
            }
            if (IsDownstreamPort() && PcieCapabilities::SlotImplemented::Get(Capabilities) != 0) {
                Apply(*this, Offset, SLOT);
            }
            if (IsRootPort() || IsEventCollector()) {
                Apply(*this, Offset, ROOT);
            }
            if (HasSecondSet) {
                Apply(*this, Offset, DEVICE_2);
                if (HasLink) {
                    Apply(*this, Offset, LINK_2);
                }
            }
            break;
        }
        default:
            break;
    }
}

void PcieFunction::DeriveExtendedRules(unsigned Id, unsigned Offset) {
    switch (Id) {
        case PcieExtendedCapabilityAer:
            At.Aer = Offset;
            Apply(*this, Offset, AER);
            ApplyAerControl(*this, Offset);
            KeepThroughReset(Offset, 0x2C);
            if (IsRootPort() || IsEventCollector()) {
                Apply(*this, Offset, AER_ROOT);
                KeepThroughReset(Offset + AER_ROOT_ERROR_STATUS, 8);
            } else if (PortType() == PcieToPciBridge) {
                Apply(*this, Offset, AER_SECONDARY);
                KeepThroughReset(Offset + AER_SECONDARY_UNCORRECTABLE_STATUS, 0x20);
            }
            break;
        case PcieExtendedCapabilityDpc:
            At.Dpc = Offset;
            Apply(*this, Offset, DPC);
            KeepThroughReset(Offset + DPC_STATUS, 4);
            if (HasRootPortExtensions()) {
                Apply(*this, Offset, RP_PIO);
                KeepThroughReset(Offset + DPC_RP_PIO_STATUS, 0x3C);
            }
            break;
        case PcieExtendedCapabilitySfi:
            At.Sfi = Offset;
            Apply(*this, Offset, SFI);
            break;
        case PcieExtendedCapabilitySecondaryPcie:
            At.SecondaryPcie = Offset;
            Apply(*this, Offset, SECONDARY_PCIE);
            break;
        case PcieExtendedCapabilityDeviceSerialNumber:
            At.SerialNumber = Offset;
            break;
        case ExtendedAcs:
            Apply(*this, Offset, ACS);
            break;
        case ExtendedAri:
            Apply(*this, Offset, ARI);
            break;
        case ExtendedLtr:
            Apply(*this, Offset, LTR);
            break;
        case ExtendedL1PmSubstates:
            Apply(*this, Offset, L1_PM);
            break;
        default:
            break;
    }
}

void PcieFunction::DeriveRules() {
    At = {};
    DeriveHeaderRules();
    std::set<unsigned> Seen;
    if ((Peek(PCI_STATUS, 2) & PciStatus::CapabilitiesList) != 0) {
        unsigned Offset = Peek(PCI_CAPABILITIES_POINTER, 1) & 0xFC;
        while (Offset >= PciCapabilityHeader::LowestPointer && Seen.insert(Offset).second) {
            DeriveCapabilityRules(Peek(Offset, 1), Offset);
            Offset = Peek(Offset + 1, 1) & 0xFC;
        }
    }
    // Without the PCI Express capability a function has no extended configuration space.
    unsigned Offset = IsPcie() ? static_cast<unsigned>(PcieExtendedCapabilityHeader::FirstOffset) : 0;
    while (Offset >= PcieExtendedCapabilityHeader::FirstOffset && Seen.insert(Offset).second) {
        const std::uint32_t Header = Peek(Offset, 4);
        if (Header == 0 || Header == 0xFFFFFFFF) {
            break;
        }
        DeriveExtendedRules(PcieExtendedCapabilityHeader::Id::Get(Header), Offset);
        Offset = PcieExtendedCapabilityHeader::Next::Get(Header) & 0xFFC;
    }
}

}  // namespace Simulator
