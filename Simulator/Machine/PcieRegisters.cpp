#include "Simulator/Machine/PcieRegisters.h"

#include <algorithm>
#include <bit>

#include "Platform/Constants.h"

namespace Simulator {

namespace {

struct KindRow {
    PcieKind Kind;
    unsigned PortType;
    bool IsBridge;
    std::uint16_t VendorId, DeviceId;
    std::uint32_t ClassCode;
};

constexpr unsigned CONVENTIONAL = 0x100;
constexpr KindRow KINDS[] = {
    {PcieKind::RootPort, PcieRootPort, true, PROCESSOR_PCI_VENDOR_ID, 0x4B10, 0x060400},
    {PcieKind::EventCollector, PcieRootComplexEventCollector, false, PROCESSOR_PCI_VENDOR_ID, 0x4B16, 0x080700},
    {PcieKind::IntegratedEndpoint, PcieRootComplexIntegratedEndpoint, false, PROCESSOR_PCI_VENDOR_ID, 0x4B18,
     0x088000},
    {PcieKind::Endpoint, PcieEndpoint, false, 0x1D9B, 0x0021, 0x020000},
    {PcieKind::LegacyEndpoint, PcieLegacyEndpoint, false, 0x1D9B, 0x0010, 0x0C0330},
    {PcieKind::SwitchUpstreamPort, PcieSwitchUpstreamPort, true, 0x1D9B, 0x0501, 0x060400},
    {PcieKind::SwitchDownstreamPort, PcieSwitchDownstreamPort, true, 0x1D9B, 0x0502, 0x060400},
    {PcieKind::PcieToPciBridge, PcieToPciBridge, true, 0x1D9B, 0x0503, 0x060400},
    {PcieKind::Pci, CONVENTIONAL, false, 0x1D9B, 0x0030, 0x030000},
    {PcieKind::PciBridge, CONVENTIONAL, true, 0x1D9B, 0x0504, 0x060400},
};

constexpr std::uint16_t NVME_SWITCH_VENDOR = 0x1000, NVME_SWITCH_DEVICE = 0xC030;

const KindRow& RowOf(PcieKind Kind) {
    return *std::ranges::find(KINDS, Kind, &KindRow::Kind);
}

// Reset values of error masks and severities.
constexpr std::uint32_t UNCORRECTABLE_MASK =
    AerUncorrectable::UncorrectableInternalError | AerUncorrectable::PoisonedTlpEgressBlocked;
constexpr std::uint32_t UNCORRECTABLE_SEVERITY = 0x00462030;
constexpr std::uint32_t CORRECTABLE_MASK = AerCorrectable::AdvisoryNonFatalError |
                                           AerCorrectable::CorrectedInternalError | AerCorrectable::HeaderLogOverflow;
constexpr std::uint32_t ECRC_CAPABLE = 0xA0;
constexpr std::uint32_t SECONDARY_MASK = 0x17A8, SECONDARY_SEVERITY = 0x1340;
// Failed programmed IO: configuration and IO requests are how the firmware looks for devices.
constexpr std::uint32_t RP_PIO_MASK = 0x00000707;
constexpr std::uint32_t RP_PIO_SYS_ERROR = 0x00070000;

constexpr unsigned X16 = 16, GEN4 = 4;

void AddHeader(PcieFunction& Into, const PcieFunctionSetting& Setting) {
    const KindRow& Row = RowOf(Setting.Kind);
    const bool IsNvmeSwitch = Setting.NvmeSwitchMode.has_value();
    Into.Poke(PCI_VENDOR_ID, 2, Setting.VendorId.value_or(IsNvmeSwitch ? NVME_SWITCH_VENDOR : Row.VendorId));
    Into.Poke(PCI_DEVICE_ID, 2, Setting.DeviceId.value_or(IsNvmeSwitch ? NVME_SWITCH_DEVICE : Row.DeviceId));
    const std::uint32_t Class = Setting.ClassCode.value_or(Row.ClassCode);
    Into.Poke(PCI_CLASS_INTERFACE, 1, Class & 0xFF);
    Into.Poke(PCI_CLASS_SUBCLASS, 1, Class >> 8 & 0xFF);
    Into.Poke(PCI_CLASS_BASE, 1, Class >> 16);
    Into.Poke(PCI_HEADER_TYPE, 1, Row.IsBridge ? PciHeaderType::Type1 : PciHeaderType::Type0);
    if (Row.IsBridge) {
        // No window is open; prefetchable memory may lie anywhere.
        Into.Poke(PCI_MEMORY_BASE, 4, 0x0000FFF0);
        Into.Poke(PCI_PREFETCHABLE_MEMORY_BASE, 4, 0x0001FFF1);
    } else {
        Into.Poke(PCI_SUBSYSTEM_VENDOR_ID, 2, Setting.SubsystemVendorId.value_or(VORN_PCI_SUBSYSTEM_VENDOR_ID));
        Into.Poke(PCI_SUBSYSTEM_ID, 2, Setting.SubsystemId.value_or(0x0100));
    }
}

void AddPcieCapability(PcieFunction& Into, const PcieFunctionSetting& Setting) {
    const KindRow& Row = RowOf(Setting.Kind);
    const bool IsDownstream = Row.PortType == PcieRootPort || Row.PortType == PcieSwitchDownstreamPort;
    const bool HasLink =
        Row.PortType != PcieRootComplexIntegratedEndpoint && Setting.Kind != PcieKind::EventCollector;
    const unsigned At = Into.AddCapability(PciCapabilityPciExpress, PCIE_CAPABILITY_SIZE);
    const bool HasSlot = IsDownstream && Setting.Slot.has_value();
    Into.Poke(At + PCIE_CAPABILITIES, 2,
              PcieCapabilities::SlotImplemented::Of(HasSlot) |
                  PcieCapabilities::DevicePortType::Of(static_cast<UINT16>(Row.PortType)) |
                  PcieCapabilities::Version::Of(static_cast<UINT16>(Setting.Version)));
    const bool HasFunctionReset = !Row.IsBridge && Setting.Version >= 2 && HasLink;
    Into.Poke(At + PCIE_DEVICE_CAPABILITIES, 4,
              2 | (Setting.RoleBased ? PcieDeviceCapabilities::RoleBasedErrorReporting : 0) |
                  (HasFunctionReset ? 1u << 28 : 0));
    Into.Poke(At + PCIE_DEVICE_CONTROL, 2,
              0x2810 | PcieDeviceControl::MaxPayloadSize::Of(static_cast<UINT16>(Setting.MaxPayload)));
    if (HasLink) {
        Into.Poke(At + PCIE_LINK_CAPABILITIES, 4,
                  X16 << 4 | GEN4 |
                      (IsDownstream && Setting.LinkActiveReporting
                           ? PcieLinkCapabilities::DataLinkLayerLinkActiveReportingCapable
                           : 0));
        Into.Poke(At + PCIE_LINK_STATUS, 2, X16 << 4 | GEN4);
    }
    if (HasSlot) {
        const PcieSlotSetting& Slot = *Setting.Slot;
        Into.Poke(At + PCIE_SLOT_CAPABILITIES, 4,
                  (Slot.PowerController ? PcieSlotCapabilities::PowerControllerPresent : 0) |
                      (Slot.HotPlugSurprise ? PcieSlotCapabilities::HotPlugSurprise : 0) |
                      (Slot.HotPlugCapable ? PcieSlotCapabilities::HotPlugCapable : 0) | Slot.Number << 19);
        Into.Poke(At + PCIE_SLOT_STATUS, 2, Slot.Occupied ? PcieSlotStatus::PresenceDetectState : 0);
    }
    if (Setting.Version >= 2) {
        Into.Poke(At + PCIE_DEVICE_CAPABILITIES_2, 4, 0x1F);
        Into.Poke(At + 0x2C, 4, HasLink ? 0x1E : 0);
        Into.Poke(At + 0x30, 2, HasLink ? GEN4 : 0);
    }
}

void AddAer(PcieFunction& Into, const PcieFunctionSetting& Setting) {
    const bool IsPciBridge = Setting.Kind == PcieKind::PcieToPciBridge;
    const unsigned At = Into.AddExtendedCapability(PcieExtendedCapabilityAer, Setting.Version >= 2 ? 2 : 1,
                                                   IsPciBridge ? 0x4C : 0x48);
    Into.Poke(At + AER_UNCORRECTABLE_MASK, 4, Setting.Version >= 2 ? UNCORRECTABLE_MASK : 0);
    Into.Poke(At + AER_UNCORRECTABLE_SEVERITY, 4, UNCORRECTABLE_SEVERITY);
    Into.Poke(At + AER_CORRECTABLE_MASK, 4, Setting.RoleBased ? CORRECTABLE_MASK : 0);
    Into.Poke(At + AER_CAPABILITIES_CONTROL, 4, ECRC_CAPABLE);
    if (IsPciBridge) {
        Into.Poke(At + AER_SECONDARY_UNCORRECTABLE_MASK, 4, SECONDARY_MASK);
        Into.Poke(At + AER_SECONDARY_UNCORRECTABLE_SEVERITY, 4, SECONDARY_SEVERITY);
    }
}

void AddDpc(PcieFunction& Into, const PcieFunctionSetting& Setting) {
    const DpcSetting& Dpc = *Setting.Dpc;
    const bool HasExtensions = Dpc.RootPortExtensions && Setting.Kind == PcieKind::RootPort;
    const unsigned Size = HasExtensions ? std::max(0x34u, 0x20 + 4 * Dpc.LogSize + 0x14) : 0x0C;
    const unsigned At = Into.AddExtendedCapability(PcieExtendedCapabilityDpc, 1, Size);
    const auto LogSize = static_cast<UINT16>(HasExtensions ? Dpc.LogSize : 0);
    Into.Poke(At + DPC_CAPABILITY, 2,
              DpcCapability::RpPioLogSize::Of(LogSize) | DpcCapability::SoftwareTriggeringSupported::Of(1) |
                  DpcCapability::RpExtensions::Of(HasExtensions));
    Into.Poke(At + DPC_CONTROL, 2,
              DpcControl::TriggerEnable::Of(static_cast<UINT16>(Dpc.Trigger)) |
                  DpcControl::ErrCorEnable::Of(Dpc.ErrCor) | DpcControl::InterruptEnable::Of(Dpc.Interrupt));
    if (HasExtensions) {
        Into.Poke(At + DPC_RP_PIO_MASK, 4, RP_PIO_MASK);
        Into.Poke(At + DPC_RP_PIO_SYS_ERROR, 4, RP_PIO_SYS_ERROR);
    }
}

// Switch ID registers of the platform's NVMe switch.
void AddSwitchId(PcieFunction& Into, unsigned Mode) {
    constexpr unsigned SIZE = 0x10, SWITCH_ID = 1;
    const unsigned At = Into.AddExtendedCapability(PcieExtendedCapabilityVendorSpecific, 1, SIZE);
    Into.Poke(At + VSEC_HEADER, 4,
              VsecHeader::Length::Of(SIZE) | VsecHeader::Revision::Of(1) | VsecHeader::Id::Of(SWITCH_ID));
    Into.Poke(At + 8, 4, std::uint32_t{NVME_SWITCH_DEVICE} << 16 | NVME_SWITCH_VENDOR);
    Into.Poke(At + 12, 4, Mode << 14 | 0xB0);
}

void AddPowerManagement(PcieFunction& Into) {
    const unsigned At = Into.AddCapability(PciCapabilityPowerManagement, 8);
    Into.Poke(At + 2, 2, 0xC803);
    Into.Poke(At + PM_CONTROL_STATUS, 2, 0x0008);  // no soft reset
}

void AddExtended(PcieFunction& Into, const PcieFunctionSetting& Setting) {
    if (Setting.Aer) {
        AddAer(Into, Setting);
    }
    if (Setting.SerialNumber) {
        const unsigned At = Into.AddExtendedCapability(PcieExtendedCapabilityDeviceSerialNumber, 1, 12);
        Into.Poke(At + SERIAL_NUMBER_LOWER, 4, static_cast<std::uint32_t>(*Setting.SerialNumber));
        Into.Poke(At + SERIAL_NUMBER_UPPER, 4, static_cast<std::uint32_t>(*Setting.SerialNumber >> 32));
    }
    const unsigned PortType = RowOf(Setting.Kind).PortType;
    const bool HasLink = PortType != PcieRootComplexIntegratedEndpoint && Setting.Kind != PcieKind::EventCollector;
    if (Setting.SecondaryPcie && Setting.Version >= 2 && HasLink) {
        Into.AddExtendedCapability(PcieExtendedCapabilitySecondaryPcie, 1, 0xC + 2 * X16);
    }
    if (Setting.Dpc && (PortType == PcieRootPort || PortType == PcieSwitchDownstreamPort)) {
        AddDpc(Into, Setting);
    }
    if (Setting.Sfi) {
        Into.AddExtendedCapability(PcieExtendedCapabilitySfi, 1, SFI_CAPABILITY_SIZE);
    }
    if (Setting.NvmeSwitchMode) {
        AddSwitchId(Into, *Setting.NvmeSwitchMode);
    }
}

}  // namespace

bool IsBridgeKind(PcieKind Kind) {
    return RowOf(Kind).IsBridge;
}

void LayOutRegisters(PcieFunction& Into, const PcieFunctionSetting& Setting) {
    AddHeader(Into, Setting);
    const bool IsPcie = RowOf(Setting.Kind).PortType != CONVENTIONAL;
    if (Setting.PowerManagement) {
        AddPowerManagement(Into);
    }
    if (IsPcie) {
        AddPcieCapability(Into, Setting);
        const unsigned Msi = Into.AddCapability(0x05, 0x10);
        Into.Poke(Msi + 2, 2, 0x0080);
    }
    if (IsBridgeKind(Setting.Kind)) {
        const unsigned At = Into.AddCapability(PciCapabilitySubsystemVendorId, SSVID_CAPABILITY_SIZE);
        Into.Poke(At + 4, 2, Setting.SubsystemVendorId.value_or(VORN_PCI_SUBSYSTEM_VENDOR_ID));
        Into.Poke(At + 6, 2, Setting.SubsystemId.value_or(0x0100));
    }
    if (IsPcie) {
        AddExtended(Into, Setting);
    }
    for (const CapabilitySetting& One : Setting.Capabilities) {
        const unsigned Header = One.IsExtended ? 4 : 2;
        const auto Size = static_cast<unsigned>(Header + One.Bytes.size());
        const unsigned At = One.IsExtended
                                ? Into.AddExtendedCapability(static_cast<std::uint16_t>(One.Id), One.Version, Size)
                                : Into.AddCapability(static_cast<std::uint8_t>(One.Id), Size);
        for (unsigned Index = 0; Index < One.Bytes.size(); Index++) {
            Into.Poke(At + Header + Index, 1, One.Bytes[Index]);
        }
    }
}

void GuessBars(PcieFunction& Function) {
    constexpr std::uint64_t LARGEST = 0x10000;
    const unsigned Count = Function.IsBridge() ? PCI_TYPE1_BASE_ADDRESSES : PCI_TYPE0_BASE_ADDRESSES;
    for (unsigned Index = 0; Index < Count; Index++) {
        const std::uint32_t Low = Function.Peek(PCI_BASE_ADDRESS_0 + 4 * Index, 4);
        const bool IsIo = PciBar::SpaceIsIo::Get(Low) != 0;
        const bool Is64 = !IsIo && PciBar::Type::Get(Low) == PciBar::Type64 && Index + 1 < Count;
        const std::uint32_t Flags = Low & (IsIo ? 0x3 : PciBar::MemoryAttributes);
        const std::uint64_t Base = IsIo ? Low & ~std::uint64_t{3} : Function.BarBase(Index);
        const std::uint64_t Size = Base == 0 ? (Is64 ? LARGEST : 0) : std::min(LARGEST, Base & (~Base + 1));
        Function.SetBar(Index, Base, Size, Flags);
        Index += Is64 ? 1 : 0;
    }
}

}  // namespace Simulator
