#include "Library/VornElogBaseLib/PciConfiguration.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/OperatingModes.h"

namespace {

constexpr UINT16 CAPABILITY_ALIGNMENT = 4;
constexpr UINT16 EXTENDED_CAPABILITY_OFFSET_MASK = 0xFFF;
constexpr UINT16 NOT_KNOWN = 0xFFFF;

// False, and traced in the name of Caller, when one of an operation's pointers is NULL.
bool AreGiven(bool All, const CHAR8* Caller = __builtin_FUNCTION()) {
    if (!All) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
    }
    return All;
}

// The classic list from its first pointer on. Only that one is tested against the range of capabilities, and nothing
// counts the steps: both meant.
UINT8 WalkPciCapabilities(const PCI_SBDF& Where, UINT8 Pointer, UINT8 CapId) {
    if (Pointer % CAPABILITY_ALIGNMENT != 0 || Pointer < PciCapabilityHeader::LowestPointer ||
        Pointer > PciCapabilityHeader::HighestPointer) {
        TraceAs("VornGetPciCapabilityOffset", SerialDebugLevels().SerDbgLevel,
                "%a: SBDF %04X:%02X:%02X.%1X Capabilities Pointer 0x%02x invalid, aborting...\n", Where.Seg,
                Where.Bus, Where.Dev, Where.Func, Pointer);
        return 0;
    }
    while (true) {
        const UINT16 Header = PciSegmentRead16(PciFunctionAddress(Where, Pointer));
        if (PciCapabilityHeader::Id::Get(Header) == CapId) {
            return Pointer;
        }
        Pointer = static_cast<UINT8>(PciCapabilityHeader::Next::Get(Header));
        if (Pointer == 0 || Pointer % CAPABILITY_ALIGNMENT != 0) {
            return 0;
        }
    }
}

// The extended capabilities, one after the other. Nothing counts the steps here either.
class ExtendedCapabilityWalk {
 public:
    explicit ExtendedCapabilityWalk(const PCI_SBDF& Function) : Where(Function) {}

    // Reads the next header; false behind the last one.
    bool Step() {
        At = Next;
        if (At == 0) {
            return false;
        }
        const UINT32 Header = PciSegmentRead32(PciFunctionAddress(Where, At));
        HeaderId = static_cast<UINT16>(PcieExtendedCapabilityHeader::Id::Get(Header));
        Next = static_cast<UINT16>(PcieExtendedCapabilityHeader::Next::Get(Header));
        if (Next % CAPABILITY_ALIGNMENT != 0) {
            Next = 0;
        }
        return true;
    }
    UINT16 Offset() const {
        return At;
    }
    UINT16 Id() const {
        return HeaderId;
    }

 private:
    PCI_SBDF Where;
    UINT16 At = 0;
    UINT16 Next = PcieExtendedCapabilityHeader::FirstOffset;
    UINT16 HeaderId = 0;
};

// Device/port type of a PCIe function; false for any other.
bool ReadDevicePortType(const PCI_SBDF& Where, UINT8* pType) {
    const UINT8 Offset =
        VornGetPciCapabilityOffset(Where.Seg, Where.Bus, Where.Dev, Where.Func, PciCapabilityPciExpress);
    if (Offset == 0) {
        return false;
    }
    const UINT16 Capabilities =
        PciSegmentRead16(PciFunctionAddress(Where, static_cast<UINT16>(Offset + PCIE_CAPABILITIES)));
    *pType = static_cast<UINT8>(PcieCapabilities::DevicePortType::Get(Capabilities));
    return true;
}

void TraceCapability(const PCI_SBDF& Where, UINT16 Id, UINT16 Offset, const CHAR8* Caller) {
    TraceAs(Caller, SerialDebugLevels().SerDbgLevelDetailed,
            "%a: SBDF %04X:%02X:%02X.%1X capability 0x%04x at 0x%03x\n", Where.Seg, Where.Bus, Where.Dev, Where.Func,
            Id, Offset);
}

}  // namespace

BOOLEAN VornCheckDevicePresent(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func) {
    const UINT16 VendorId = PciSegmentRead16(PciSegmentAddress(Seg, Bus, Dev, Func, PCI_VENDOR_ID));
    return VendorId == PCI_VENDOR_ID_ABSENT ? FALSE : TRUE;
}

EFI_STATUS VornGetPciHeader(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT8* pPciHeaderPtr) {
    if (pPciHeaderPtr == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pPciHeaderPtr == NULL on entry, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    PciSegmentReadBuffer(PciSegmentAddress(Seg, Bus, Dev, Func, 0), PCI_HEADER_SIZE, pPciHeaderPtr);
    Trace(SerialDebugLevels().SerDbgLevelDetailed,
          "%a: SBDF %04X:%02X:%02X.%1X VendorId 0x%04x DeviceId 0x%04x Status 0x%04x\n", Seg, Bus, Dev, Func,
          CapturedRegister16(pPciHeaderPtr, PCI_VENDOR_ID), CapturedRegister16(pPciHeaderPtr, PCI_DEVICE_ID),
          CapturedRegister16(pPciHeaderPtr, PCI_STATUS));
    return EFI_SUCCESS;
}

UINT8 VornGetPciCapabilityOffset(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT8 CapId) {
    const PCI_SBDF Where = {Seg, Bus, Dev, Func};
    if ((PciSegmentRead16(PciFunctionAddress(Where, PCI_STATUS)) & PciStatus::CapabilitiesList) == 0) {
        return 0;
    }
    const UINT8 Pointer = PciSegmentRead8(PciFunctionAddress(Where, PCI_CAPABILITIES_POINTER));
    const UINT8 Offset = WalkPciCapabilities(Where, Pointer, CapId);
    TraceCapability(Where, CapId, Offset, __func__);
    return Offset;
}

UINT8 PciCapabilityOffsetByHeader(const PCI_SBDF& Where, const UINT8* pPciHeader, UINT8 CapId) {
    return (CapturedRegister16(pPciHeader, PCI_STATUS) & PciStatus::CapabilitiesList) == 0
               ? UINT8{0}
               : WalkPciCapabilities(Where, pPciHeader[PCI_CAPABILITIES_POINTER], CapId);
}

EFI_STATUS VornGetPciCapabilityStructure(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT8 CapId, UINT16 Length,
                                         UINT8* pOffset, void* Buffer) {
    if (!AreGiven(pOffset != nullptr && Buffer != nullptr)) {
        return EFI_INVALID_PARAMETER;
    }
    const UINT8 Offset = VornGetPciCapabilityOffset(Seg, Bus, Dev, Func, CapId);
    if (Offset == 0) {
        Trace(SerialDebugLevels().SerDbgLevelDetailed,
              "%a: SBDF %04X:%02X:%02X.%1X capability 0x%02x not supported, exiting...\n", Seg, Bus, Dev, Func,
              CapId);
        return EFI_UNSUPPORTED;
    }
    const EFI_STATUS Status = ReadPciStructure({Seg, Bus, Dev, Func}, Offset, Length, Buffer);
    if (!EFI_ERROR(Status)) {
        *pOffset = Offset;
    }
    return Status;
}

UINT16 VornGetPcieExtendedCapabilityOffset(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT16 ExtCapId) {
    const PCI_SBDF Where = {Seg, Bus, Dev, Func};
    PCIE_EXTENDED_CAPABILITY_SEARCH Search = {ExtCapId, 0};
    FindPcieExtendedCapabilities(Where, &Search, 1);
    TraceCapability(Where, ExtCapId, Search.Offset, __func__);
    return Search.Offset;
}

void FindPcieExtendedCapabilities(const PCI_SBDF& Where, PCIE_EXTENDED_CAPABILITY_SEARCH* pSearches, UINTN Count) {
    UINTN Missing = Count;
    ExtendedCapabilityWalk Walk(Where);
    while (Missing != 0 && Walk.Step()) {
        for (UINTN At = 0; At < Count; At++) {
            if (pSearches[At].Offset == 0 && pSearches[At].ExtCapId == Walk.Id()) {
                pSearches[At].Offset = Walk.Offset();
                Missing--;
            }
        }
    }
}

EFI_STATUS VornGetPcieExtendedCapabilityOffsetVendorSpecific(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                                             UINT16 VsecId, UINT16* pOffset, UINT16* pRevision,
                                                             UINT16* pLength) {
    if (!AreGiven(pOffset != nullptr && pRevision != nullptr && pLength != nullptr)) {
        return EFI_INVALID_PARAMETER;
    }
    *pOffset = 0;
    *pRevision = NOT_KNOWN;
    *pLength = NOT_KNOWN;
    const PCI_SBDF Where = {Seg, Bus, Dev, Func};
    ExtendedCapabilityWalk Walk(Where);
    while (Walk.Step()) {
        if (Walk.Id() != PcieExtendedCapabilityVendorSpecific) {
            continue;
        }
        const UINT32 Header =
            PciSegmentRead32(PciFunctionAddress(Where, static_cast<UINT16>(Walk.Offset() + VSEC_HEADER)));
        if (VsecHeader::Id::Get(Header) == VsecId) {
            *pOffset = Walk.Offset();
            *pRevision = static_cast<UINT16>(VsecHeader::Revision::Get(Header));
            *pLength = static_cast<UINT16>(VsecHeader::Length::Get(Header));
            return EFI_SUCCESS;
        }
    }
    Trace(SerialDebugLevels().SerDbgLevelDetailed, "%a: SBDF %04X:%02X:%02X.%1X VSEC 0x%04x not found, exiting...\n",
          Seg, Bus, Dev, Func, VsecId);
    return EFI_NOT_FOUND;
}

EFI_STATUS VornGetPcieExtendedCapabilityStructure(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT16 ExtCapId,
                                                  UINT16 Length, UINT16* pOffset, void* Buffer) {
    if (!AreGiven(pOffset != nullptr && Buffer != nullptr)) {
        return EFI_INVALID_PARAMETER;
    }
    const UINT16 Offset = VornGetPcieExtendedCapabilityOffset(Seg, Bus, Dev, Func, ExtCapId);
    if (Offset == 0) {
        Trace(SerialDebugLevels().SerDbgLevelDetailed,
              "%a: SBDF %04X:%02X:%02X.%1X extended capability 0x%04x not supported, exiting...\n", Seg, Bus, Dev,
              Func, ExtCapId);
        return EFI_UNSUPPORTED;
    }
    const EFI_STATUS Status = ReadPciStructure({Seg, Bus, Dev, Func}, Offset, Length, Buffer);
    if (!EFI_ERROR(Status)) {
        *pOffset = Offset;
    }
    return Status;
}

EFI_STATUS ReadPciStructure(const PCI_SBDF& Where, UINT16 Offset, UINT16 Length, void* Buffer) {
    const UINT16 Start = Offset & EXTENDED_CAPABILITY_OFFSET_MASK;
    if (Length > PCI_CONFIGURATION_SPACE_SIZE - Start) {
        Trace(DEBUG_ERROR,
              "%a: ERROR SBDF %04X:%02X:%02X.%1X structure at 0x%03x of 0x%x bytes ends beyond configuration space, "
              "aborting...\n",
              Where.Seg, Where.Bus, Where.Dev, Where.Func, Start, Length);
        return EFI_UNSUPPORTED;
    }
    ZeroMem(Buffer, Length);
    PciSegmentReadBuffer(PciFunctionAddress(Where, Start), Length, Buffer);
    return EFI_SUCCESS;
}

EFI_STATUS VornGetPcieExtendedCapabilityStructureLengthAer(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                                           UINT16* pLength) {
    if (!AreGiven(pLength != nullptr)) {
        return EFI_INVALID_PARAMETER;
    }
    *pLength = NOT_KNOWN;
    UINT8 DevicePortType = 0;
    if (!ReadDevicePortType({Seg, Bus, Dev, Func}, &DevicePortType)) {
        Trace(SerialDebugLevels().SerDbgLevelDetailed,
              "%a: SBDF %04X:%02X:%02X.%1X PCIe capability structure not supported, exiting...\n", Seg, Bus, Dev,
              Func);
        return EFI_UNSUPPORTED;
    }
    *pLength = AerCopyLength(DevicePortType);
    return EFI_SUCCESS;
}

EFI_STATUS VornGetPcieExtendedCapabilityStructureLengthDpc(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                                           UINT16* pLength) {
    if (!AreGiven(pLength != nullptr)) {
        return EFI_INVALID_PARAMETER;
    }
    *pLength = NOT_KNOWN;
    const PCI_SBDF Where = {Seg, Bus, Dev, Func};
    UINT8 DevicePortType = 0;
    if (!ReadDevicePortType(Where, &DevicePortType)) {
        Trace(SerialDebugLevels().SerDbgLevelDetailed,
              "%a: SBDF %04X:%02X:%02X.%1X PCIe capability structure not supported, exiting...\n", Seg, Bus, Dev,
              Func);
        return EFI_UNSUPPORTED;
    }
    if (DevicePortType != PcieRootPort && DevicePortType != PcieSwitchDownstreamPort &&
        DevicePortType != PcieRootComplexEventCollector) {
        Trace(SerialDebugLevels().SerDbgLevel,
              "%a: SBDF %04X:%02X:%02X.%1X PCIe Capability Device Port Type %d does not support DPC, exiting...\n",
              Seg, Bus, Dev, Func, DevicePortType);
        return EFI_UNSUPPORTED;
    }
    const UINT16 Offset = VornGetPcieExtendedCapabilityOffset(Seg, Bus, Dev, Func, PcieExtendedCapabilityDpc);
    if (Offset == 0) {
        Trace(SerialDebugLevels().SerDbgLevelDetailed,
              "%a: SBDF %04X:%02X:%02X.%1X DPC capability not supported, exiting...\n", Seg, Bus, Dev, Func);
        return EFI_UNSUPPORTED;
    }
    *pLength =
        DpcCopyLength(PciSegmentRead16(PciFunctionAddress(Where, static_cast<UINT16>(Offset + DPC_CAPABILITY))));
    return EFI_SUCCESS;
}
