#include "Library/VornElogBaseLib/NvmeSwitch.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/OperatingModes.h"
#include "Library/VornElogBaseLib/PciConfiguration.h"
#include "Platform/Constants.h"

namespace {

// Switch ID registers of the switch's upstream port: a vendor-specific extended capability.
constexpr UINT16 VSEC_ID_SWITCH_ID = 0x0001;
constexpr UINT16 SWITCH_ID_LENGTH = 0x10;
constexpr UINTN SWITCH_ID_HARDWIRED_VENDOR_ID = 0x08;
constexpr UINTN SWITCH_ID_HARDWIRED_REVISION_ID = 0x0C;
using SwitchOperatingMode = Field<UINT32, 15, 14>;  // of the hardwired revision ID

constexpr UINT32 CLASS_PCI_BRIDGE =
    PciClass::Base::Of(PciClass::BRIDGE) | PciClass::Subclass::Of(PciClass::BRIDGE_PCI_TO_PCI);
constexpr UINT32 CLASS_PCI_BRIDGE_SUBTRACTIVE =
    CLASS_PCI_BRIDGE | PciClass::Interface::Of(PciClass::BRIDGE_PCI_TO_PCI_SUBTRACTIVE);
static_assert(CLASS_PCI_BRIDGE == 0x06040000 && CLASS_PCI_BRIDGE_SUBTRACTIVE == 0x06040100);

// Offset of the PCI Express capability of a Broadcom bridge of that port type, 0 for any other function.
UINT8 BroadcomPort(const PCI_SBDF& Where, UINT8 DevicePortType) {
    const UINT32 ClassAndRevision = PciSegmentRead32(PciFunctionAddress(Where, PCI_REVISION_ID));
    const UINT32 Class = PciClass::Revision::Set(ClassAndRevision, 0);
    if (Class != CLASS_PCI_BRIDGE && Class != CLASS_PCI_BRIDGE_SUBTRACTIVE) {
        return 0;
    }
    const UINT8 Offset =
        VornGetPciCapabilityOffset(Where.Seg, Where.Bus, Where.Dev, Where.Func, PciCapabilityPciExpress);
    if (Offset == 0) {
        return 0;
    }
    const UINT16 Capabilities =
        PciSegmentRead16(PciFunctionAddress(Where, static_cast<UINT16>(Offset + PCIE_CAPABILITIES)));
    if (PcieCapabilities::DevicePortType::Get(Capabilities) != DevicePortType) {
        return 0;
    }
    return PciSegmentRead16(PciFunctionAddress(Where, PCI_VENDOR_ID)) == PCI_VENDOR_ID_BROADCOM ? Offset : UINT8{0};
}

bool HasVornSubsystemVendorId(const PCI_SBDF& Where) {
    UINT8 Captured[SSVID_CAPABILITY_SIZE] = {};
    UINT8 Offset = 0;
    const EFI_STATUS Status =
        VornGetPciCapabilityStructure(Where.Seg, Where.Bus, Where.Dev, Where.Func, PciCapabilitySubsystemVendorId,
                                      SSVID_CAPABILITY_SIZE, &Offset, Captured);
    return !EFI_ERROR(Status) &&
           CapturedRegister16(Captured, SSVID_SUBSYSTEM_VENDOR_ID) == VORN_PCI_SUBSYSTEM_VENDOR_ID;
}

// The end of both checks, for a Broadcom port of the right kind.
EFI_STATUS CheckBrand(const PCI_SBDF& Where, BOOLEAN* pIsVornBrandedNvmeSwitch, UINT32* pNvmeSwitchOperatingMode,
                      const CHAR8* Caller) {
    if (!HasVornSubsystemVendorId(Where)) {
        return EFI_SUCCESS;
    }
    *pIsVornBrandedNvmeSwitch = TRUE;
    TraceAs(Caller, SerialDebugLevels().SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X Vorn branded Broadcom PEX89000 Atlas 2 NVMe switch detected\n", Where.Seg,
            Where.Bus, Where.Dev, Where.Func);
    const EFI_STATUS Status =
        VornGetNvmePcieSwitchOperatingMode(Where.Seg, Where.Bus, Where.Dev, Where.Func, pNvmeSwitchOperatingMode);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from VornGetNvmePcieSwitchOperatingMode for SBDF %04X:%02X:%02X.%1X, aborting...\n",
                Status, Where.Seg, Where.Bus, Where.Dev, Where.Func);
    }
    return Status;
}

// Gives the answers of any other function. False, and traced, for a NULL pointer.
bool StartAnswers(BOOLEAN* pIsVornBrandedNvmeSwitch, UINT32* pNvmeSwitchOperatingMode, const CHAR8* Caller) {
    if (pIsVornBrandedNvmeSwitch == nullptr || pNvmeSwitchOperatingMode == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return false;
    }
    *pIsVornBrandedNvmeSwitch = FALSE;
    *pNvmeSwitchOperatingMode = NVME_SWITCH_MODE_UNKNOWN;
    return true;
}

}  // namespace

EFI_STATUS VornCheckNvmePcieSwitchUpstreamPort(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                               BOOLEAN* pIsVornBrandedNvmeSwitch, UINT32* pNvmeSwitchOperatingMode) {
    if (!StartAnswers(pIsVornBrandedNvmeSwitch, pNvmeSwitchOperatingMode, __func__)) {
        return EFI_INVALID_PARAMETER;
    }
    const PCI_SBDF Where = {Seg, Bus, Dev, Func};
    if (BroadcomPort(Where, PcieSwitchUpstreamPort) == 0) {
        return EFI_SUCCESS;
    }
    return CheckBrand(Where, pIsVornBrandedNvmeSwitch, pNvmeSwitchOperatingMode, __func__);
}

EFI_STATUS VornCheckNvmePcieSwitchDownstreamPort(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                                 BOOLEAN* pIsVornBrandedNvmeSwitch,
                                                 UINT32* pNvmeSwitchOperatingMode) {
    if (!StartAnswers(pIsVornBrandedNvmeSwitch, pNvmeSwitchOperatingMode, __func__)) {
        return EFI_INVALID_PARAMETER;
    }
    const PCI_SBDF Where = {Seg, Bus, Dev, Func};
    const UINT8 PcieOffset = BroadcomPort(Where, PcieSwitchDownstreamPort);
    if (PcieOffset == 0) {
        return EFI_SUCCESS;
    }
    const UINT32 SlotCapabilities =
        PciSegmentRead32(PciFunctionAddress(Where, static_cast<UINT16>(PcieOffset + PCIE_SLOT_CAPABILITIES)));
    if ((SlotCapabilities & PcieSlotCapabilities::HotPlugCapable) == 0) {
        Trace(SerialDebugLevels().SerDbgLevel,
              "%a: SBDF %04X:%02X:%02X.%1X Broadcom PCIe Switch DSP is not HPC, exiting...\n", Seg, Bus, Dev, Func);
        return EFI_SUCCESS;
    }
    return CheckBrand(Where, pIsVornBrandedNvmeSwitch, pNvmeSwitchOperatingMode, __func__);
}

EFI_STATUS VornGetNvmePcieSwitchOperatingMode(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT32* pMode) {
    if (pMode == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pMode = NVME_SWITCH_MODE_UNKNOWN;
    UINT16 Offset = 0;
    UINT16 Revision = 0;
    UINT16 Length = 0;
    const EFI_STATUS Status = VornGetPcieExtendedCapabilityOffsetVendorSpecific(
        Seg, Bus, Dev, Func, VSEC_ID_SWITCH_ID, &Offset, &Revision, &Length);
    UINT8 SwitchId[SWITCH_ID_LENGTH] = {};
    if (EFI_ERROR(Status) || Length != SWITCH_ID_LENGTH ||
        EFI_ERROR(ReadPciStructure({Seg, Bus, Dev, Func}, Offset, SWITCH_ID_LENGTH, SwitchId)) ||
        CapturedRegister16(SwitchId, SWITCH_ID_HARDWIRED_VENDOR_ID) != PCI_VENDOR_ID_BROADCOM) {
        Trace(DEBUG_ERROR,
              "%a: ERROR SBDF %04X:%02X:%02X.%1X Switch ID registers not found, VSEC length 0x%x, aborting...\n", Seg,
              Bus, Dev, Func, Length);
        return EFI_NOT_FOUND;
    }
    const UINT32 Mode = SwitchOperatingMode::Get(CapturedRegister32(SwitchId, SWITCH_ID_HARDWIRED_REVISION_ID));
    if (Mode != NVME_SWITCH_MODE_BSW && Mode != NVME_SWITCH_MODE_ISSW) {
        Trace(DEBUG_ERROR,
              "%a: ERROR SBDF %04X:%02X:%02X.%1X NVMe PCIe Broadcom Atlas 2 switch operating mode value undefined\n",
              Seg, Bus, Dev, Func);
        return EFI_UNSUPPORTED;
    }
    *pMode = Mode;
    Trace(SerialDebugLevels().SerDbgLevel,
          "%a: SBDF %04X:%02X:%02X.%1X NVMe PCIe Broadcom Atlas 2 switch operating in %a mode\n", Seg, Bus, Dev, Func,
          Mode == NVME_SWITCH_MODE_BSW ? "BSW" : "iSSW");
    return EFI_SUCCESS;
}
