#include "Library/VornCperCreateLib/PcieSection.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornCperCreateLib/CperRecord.h"

namespace {

constexpr UINT32 PCIE_SECTION_VERSION = 0x0300;

// The flag that marks a class for handling, and what its record says. The first one that is set counts.
struct HANDLED_CLASS {
    UINT8 PCIE_ERROR_STATUS::*Handle;
    CPER_IO_CLASS Class;
};
constexpr HANDLED_CLASS HandledClasses[] = {
    {&PCIE_ERROR_STATUS::HandleDpcEvent, {CperSeverityRecoverable, CperSeverityRecoverable, "PCIe DPC Event"}},
    {&PCIE_ERROR_STATUS::HandleFatal, {CperSeverityRecoverable, CperSeverityFatal, "PCIe Fatal"}},
    {&PCIE_ERROR_STATUS::HandleUnsupportedRequest, {CperSeverityRecoverable, CperSeverityRecoverable, "PCIe UR"}},
    {&PCIE_ERROR_STATUS::HandleNonFatal, {CperSeverityRecoverable, CperSeverityRecoverable, "PCIe Non-Fatal"}},
    {&PCIE_ERROR_STATUS::HandleCorrectable, {CperSeverityCorrected, CperSeverityCorrected, "PCIe Correctable"}},
    {&PCIE_ERROR_STATUS::HandleRpPioFatal, {CperSeverityRecoverable, CperSeverityFatal, "PCIe RpPio Fatal"}},
};

constexpr CPER_IO_CLASS LegacyPciClass{CperSeverityFatal, CperSeverityFatal, nullptr};

// NULL for a PCIe function that marks nothing for handling.
const CPER_IO_CLASS* ClassOf(const PCI_DEVICE_STATE& State) {
    if (State.PcieCapabilityOffset == 0) {
        return &LegacyPciClass;
    }
    for (const HANDLED_CLASS& Row : HandledClasses) {
        if (State.Pcie.ErrorStatus.*Row.Handle != FALSE) {
            return &Row.Class;
        }
    }
    return nullptr;
}

void FillDeviceId(const PCI_DEVICE_STATE& State, PCI_SBDF Sbdf, const PCI_SLOT_NUMBER_DATA& SlotNumberData,
                  bool IsBridge, CPER_PCIE_DEVICE_ID* Id) {
    Id->VendorId = CapturedRegister16(State.PciHeader, PCI_VENDOR_ID);
    Id->DeviceId = CapturedRegister16(State.PciHeader, PCI_DEVICE_ID);
    CopyMem(Id->ClassCode, State.PciHeader + PCI_CLASS_INTERFACE, sizeof(Id->ClassCode));
    Id->Function = Sbdf.Func;
    Id->Device = Sbdf.Dev;
    Id->Segment = Sbdf.Seg;
    Id->Bus = Sbdf.Bus;
    if (IsBridge) {
        Id->SecondaryBus = State.PciHeader[PCI_SECONDARY_BUS_NUMBER];
    }
    const UINT16 Slot = VornCperGetSlotNumber(SlotNumberData);
    CopyMem(Id->SlotNumber, &Slot, sizeof(Slot));
}

void FillCapabilities(const PCI_DEVICE_STATE& State, CPER_PCIE_SECTION* Section) {
    if (State.PcieCapabilityOffset == 0) {
        return;
    }
    static_assert(sizeof(Section->CapabilityStructure) == sizeof(State.PcieCapability));
    CopyMem(Section->CapabilityStructure, State.PcieCapability, sizeof(State.PcieCapability));
    Section->ValidationBits |= CperPcieValid::CapabilityStructure::Mask;
    if (State.AerOffset != 0) {
        static_assert(sizeof(Section->AerInfo) >= sizeof(State.AerCapability));
        CopyMem(Section->AerInfo, State.AerCapability, sizeof(State.AerCapability));
        Section->ValidationBits |= CperPcieValid::AerInfo::Mask;
    }
}

void FillSection(const PCI_DEVICE_STATE& State, PCI_SBDF Sbdf, const PCI_SLOT_NUMBER_DATA& SlotNumberData,
                 BOOLEAN PreviousError, CPER_PCIE_SECTION* Section) {
    const UINT8* Header = State.PciHeader;
    const bool IsBridge = (Header[PCI_HEADER_TYPE] & PciHeaderType::Type1) != 0;
    Section->PortType = DevicePortTypeOf(State);
    Section->Version = PCIE_SECTION_VERSION;
    Section->ValidationBits = CperPcieValid::PortType::Mask | CperPcieValid::Version::Mask;
    if (PreviousError == FALSE) {
        Section->CommandStatus = CapturedRegister32(Header, PCI_COMMAND);
        Section->ValidationBits |= CperPcieValid::CommandStatus::Mask;
    }
    FillDeviceId(State, Sbdf, SlotNumberData, IsBridge, &Section->DeviceId);
    Section->ValidationBits |= CperPcieValid::DeviceId::Mask;
    if (IsBridge && PreviousError == FALSE) {
        Section->BridgeControlStatus = static_cast<UINT32>(CapturedRegister16(Header, PCI_BRIDGE_CONTROL)) << 16 |
                                       CapturedRegister16(Header, PCI_SECONDARY_STATUS);
        Section->ValidationBits |= CperPcieValid::BridgeControlStatus::Mask;
    }
    FillCapabilities(State, Section);
}

}  // namespace

UINT64 VornCperGetPcieSectionLength() {
    return sizeof(CPER_PCIE_SECTION);
}

UINT64 VornCperGetPcieRecordLength() {
    return sizeof(CPER_RECORD) + VornCperGetPcieSectionLength();
}

UINT16 VornCperGetSlotNumber(const PCI_SLOT_NUMBER_DATA& SlotNumberData) {
    if (SlotNumberData.Valid == FALSE) {
        return 0;
    }
    const UINT32 Slot = SlotNumberData.DeviceType == PciSlotDeviceNvmeDrive
                            ? static_cast<UINT32>(SlotNumberData.Drive.BayId << 8 | SlotNumberData.Drive.SlotId)
                            : SlotNumberData.SlotNumber;
    return CperSlotNumber::Slot::Of(static_cast<UINT16>(Slot));
}

EFI_STATUS VornCperCreatePcie(UINT64 Level, UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                              const PCI_SLOT_NUMBER_DATA* pSlotNumberData, const PCI_DEVICE_STATE* pPciDeviceState,
                              BOOLEAN PreviousError, UINT32 CperLength, CPER_RECORD* pCper) {
    if (pCper == nullptr || pSlotNumberData == nullptr || pPciDeviceState == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input pointers are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const CPER_IO_CLASS* Class = ClassOf(*pPciDeviceState);
    if (Class == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR PCIe device not requiring error reporting, aborting...\n");
        return EFI_UNSUPPORTED;
    }
    if (CperLength < VornCperGetPcieRecordLength()) {
        Trace(DEBUG_ERROR, "%a: ERROR CperLength %d < %d, aborting...\n", CperLength, VornCperGetPcieRecordLength());
        return EFI_BUFFER_TOO_SMALL;
    }
    FillCperRecordFrontIo(Level, *Class, gCperSectionPcieGuid, VornCperGetPcieSectionLength(), CperLength,
                          PreviousError, pCper);
    auto* Section = CperSection<CPER_PCIE_SECTION>(pCper);
    FillSection(*pPciDeviceState, {Seg, Bus, Dev, Func}, *pSlotNumberData, PreviousError, Section);
    Trace(Level, "%a: SBDF %04X:%02X:%02X.%1X port type %d slot 0x%04x valid 0x%lx\n", Seg, Bus, Dev, Func,
          Section->PortType, VornCperGetSlotNumber(*pSlotNumberData), Section->ValidationBits);
    return EFI_SUCCESS;
}
