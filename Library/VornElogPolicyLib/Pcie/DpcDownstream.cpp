#include "Library/VornElogPolicyLib/Pcie/DpcDownstream.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/PciePortMap.h"
#include "Library/VornCperCreateLib/PcieSection.h"
#include "Library/VornElogChipsetLib/ActiveRootPorts.h"
#include "Library/VornElogPolicyLib/Pcie/AerLogging.h"
#include "Library/VornElogPolicyLib/Pcie/BusScan.h"
#include "Library/VornElogPolicyLib/Pcie/CaptureDeviceState.h"
#include "Library/VornElogPolicyLib/Pcie/ClearStatus.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/Pcie/PciSlotData.h"
#include "Library/VornElogPolicyLib/Pcie/PostProcessPcie.h"
#include "Library/VornElogPolicyLib/Pcie/UnsupportedRequest.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

// One look at all that is below a port. Too large for the stack.
struct DOWNSTREAM_WALK {
    IO_HUB_DATA IoHubData;
    const KYR_PCIE_PORT_MAP_ENTRY* pPortMapEntry;
    PCI_DEVICE_STATE RootPort;
    PCI_DEVICE_STATE Function;  // the one that is looked at
    struct {
        CPER_RECORD Front;
        CPER_PCIE_SECTION Section;
    } Record;
    KYR_CHIPSET_SUPPORT_DATA ChipsetSupportData;
    PCIE_ALREADY_LOGGED* pAlreadyLogged;
    EFI_STATUS SelStatus;  // EFI_SUCCESS once an event went out
};
static_assert(sizeof(DOWNSTREAM_WALK::Record) == sizeof(CPER_RECORD) + sizeof(CPER_PCIE_SECTION));

// *pState: zeroed.
bool Capture(const DOWNSTREAM_WALK& Walk, const PCI_SBDF& At, PCI_DEVICE_STATE* pState, const CHAR8* Caller) {
    pState->PciAddress = PackPciAddress(At.Seg, At.Bus, At.Dev, At.Func);
    const EFI_STATUS Status = VornElogGetPciDeviceState(&Walk.IoHubData, Walk.pPortMapEntry, pState);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from VornElogGetPciDeviceState for SBDF %04X:%02X:%02X.%1X, aborting...\n", Status,
                At.Seg, At.Bus, At.Dev, At.Func);
    }
    return !EFI_ERROR(Status);
}

// Whether the function's registers show an uncorrectable error that it reports.
bool HasUncorrectableError(const PCI_SBDF& At) {
    const UINT16 Aer =
        VornGetPcieExtendedCapabilityOffset(At.Seg, At.Bus, At.Dev, At.Func, PcieExtendedCapabilityAer);
    if (Aer == 0) {
        return false;
    }
    const UINT64 Address = PciFunctionAddress(At, Aer);
    return (PciSegmentRead32(Address + AER_UNCORRECTABLE_STATUS) &
            ~PciSegmentRead32(Address + AER_UNCORRECTABLE_MASK)) != 0;
}

// Marks the captured errors by their severity. The screens of a scan are not for them: the port was contained.
void MarkErrors(PCI_DEVICE_STATE* pState) {
    PCIE_ERROR_STATUS& Errors = pState->Pcie.ErrorStatus;
    const UINT32 Unmasked = CapturedRegister32(pState->AerCapability, AER_UNCORRECTABLE_STATUS) &
                            ~CapturedRegister32(pState->AerCapability, AER_UNCORRECTABLE_MASK);
    const UINT32 Severity = CapturedRegister32(pState->AerCapability, AER_UNCORRECTABLE_SEVERITY);
    const BOOLEAN IsFatal = (Unmasked & Severity) != 0 ? TRUE : FALSE;
    const BOOLEAN IsNonFatal = (Unmasked & ~Severity) != 0 ? TRUE : FALSE;
    Errors.DetectedFatal = Errors.ClearFatal = Errors.HandleFatal = IsFatal;
    Errors.DetectedNonFatal = Errors.ClearNonFatal = Errors.HandleNonFatal = IsNonFatal;
}

void LogFunction(DOWNSTREAM_WALK* pWalk, const PCI_SBDF& At, const CHAR8* Caller) {
    const UINT64 Level = mPrivateDataVornElogPolicyLib.SerDbgLevel;
    const PCI_SLOT_NUMBER_DATA SlotNumberData = SlotDataOf(At, Caller);
    pWalk->Record = {};
    const EFI_STATUS Status =
        VornCperCreatePcie(Level, At.Seg, At.Bus, At.Dev, At.Func, &SlotNumberData, &pWalk->Function, FALSE,
                           sizeof(pWalk->Record), &pWalk->Record.Front);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornCperCreatePcie\n", Status);
        return;
    }
    PCIE_SEL_DATA SelData{};
    BOOLEAN IsPostProcessingRequired = FALSE;
    VornElogSmmPostProcessErrorRecordPcieOrCxlDsDevice(&pWalk->Record.Front, &pWalk->ChipsetSupportData,
                                                       &pWalk->Function, &SelData, &SlotNumberData, &pWalk->SelStatus,
                                                       pWalk->pAlreadyLogged, &IsPostProcessingRequired);
    VornElogSmmCheckAndLogPcieAerRegs(&pWalk->Record.Front, &pWalk->Function, &SelData);
}

void LogAndClearFunction(DOWNSTREAM_WALK* pWalk, const PCI_SBDF& At, const CHAR8* Caller) {
    if (!HasUncorrectableError(At)) {
        return;
    }
    pWalk->Function = {};
    if (!Capture(*pWalk, At, &pWalk->Function, Caller)) {
        return;
    }
    const UINT64 Level = mPrivateDataVornElogPolicyLib.SerDbgLevel;
    TraceAs(Caller, Level, "%a: SBDF %04X:%02X:%02X.%1X uncorrectable error below DPC port\n", At.Seg, At.Bus, At.Dev,
            At.Func);
    pWalk->Function.PcieRootPortData.pPciDeviceStateUpstreamRootPort = &pWalk->RootPort;
    MarkErrors(&pWalk->Function);
    LogFunction(pWalk, At, Caller);
    const EFI_STATUS Status = VornElogClearPcieDeviceStatus(&pWalk->Function, Level);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornElogClearPcieDeviceStatus SBDF %04X:%02X:%02X.%1X\n",
                Status, At.Seg, At.Bus, At.Dev, At.Func);
    }
}

// Absent functions are probed: what that makes the root port see is not to be reported.
void WalkBuses(DOWNSTREAM_WALK* pWalk, UINT8 Seg, UINT8 FirstBus, UINT8 LastBus, const CHAR8* Caller) {
    BOOLEAN IsUrReportingEnabled = FALSE;
    BOOLEAN IsUrUnmasked = FALSE;
    BOOLEAN IsAdvisoryUnmasked = FALSE;
    EFI_STATUS Status = VornElogSuppressUnsupportedRequest(&pWalk->RootPort, &IsUrReportingEnabled, &IsUrUnmasked,
                                                           &IsAdvisoryUnmasked);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornElogSuppressUnsupportedRequest\n", Status);
    }
    AnyFunctionOnBuses(Seg, FirstBus, LastBus, [&](const PCI_SBDF& At) {
        LogAndClearFunction(pWalk, At, Caller);
        return false;
    });
    Status =
        VornElogRestoreUnsupportedRequest(&pWalk->RootPort, IsUrReportingEnabled, IsUrUnmasked, IsAdvisoryUnmasked);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from VornElogRestoreUnsupportedRequest\n", Status);
    }
}

}  // namespace

BOOLEAN VornElogSmmCheckAndLogPcieDpcDownstream(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                                BOOLEAN IsSoftwareDpcRequested, PCIE_ALREADY_LOGGED* pAlreadyLogged) {
    if (pAlreadyLogged == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pAlreadyLogged == NULL, aborting...\n");
        return FALSE;
    }
    const PCI_SBDF Port{Seg, Bus, Dev, Func};
    const UINT8 FirstBus = PciSegmentRead8(PciFunctionAddress(Port, PCI_SECONDARY_BUS_NUMBER));
    const UINT8 LastBus = PciSegmentRead8(PciFunctionAddress(Port, PCI_SUBORDINATE_BUS_NUMBER));
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
          "%a: SBDF %04X:%02X:%02X.%1X SecBus 0x%02x SubBus 0x%02x IsSoftwareDpcRequested %d\n", Seg, Bus, Dev, Func,
          FirstBus, LastBus, IsSoftwareDpcRequested);
    if (FirstBus == 0 || LastBus == 0) {
        return FALSE;
    }
    PCI_SBDF Rp{Seg, 0xFF, 0xFF, 0xFF};
    VornGetRootPortBDF(Seg, Bus, Dev, Func, &Rp.Bus, &Rp.Dev, &Rp.Func);
    const UINT32 RpPciAddr = PackPciAddress(Rp.Seg, Rp.Bus, Rp.Dev, Rp.Func);
    IO_HUB_DATA IoHubData{};
    const KYR_PCIE_PORT_MAP_ENTRY* const pPortMapEntry = FindPciePortMapEntry(RpPciAddr);
    if (pPortMapEntry == nullptr || !FindIoHubOfRootPort(RpPciAddr, &IoHubData)) {
        Trace(DEBUG_ERROR, "%a: ERROR no root port above SBDF %04X:%02X:%02X.%1X, aborting...\n", Seg, Bus, Dev,
              Func);
        return FALSE;
    }
    DOWNSTREAM_WALK* pWalk = nullptr;
    const EFI_STATUS Status = AllocateZeroedRuntimeData(sizeof(DOWNSTREAM_WALK), &pWalk);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r allocating EfiRuntimeServicesData memory for PCIe DPC downstream check, aborting...\n",
              Status);
        return FALSE;
    }
    pWalk->IoHubData = IoHubData;
    pWalk->pPortMapEntry = pPortMapEntry;
    pWalk->pAlreadyLogged = pAlreadyLogged;
    pWalk->SelStatus = EFI_NOT_FOUND;
    if (Capture(*pWalk, Rp, &pWalk->RootPort, __func__)) {
        pWalk->RootPort.PcieRootPortData.pPciDeviceStateUpstreamRootPort = &pWalk->RootPort;
        WalkBuses(pWalk, Seg, FirstBus, LastBus, __func__);
    }
    const BOOLEAN IsLogged = EFI_ERROR(pWalk->SelStatus) ? FALSE : TRUE;
    FreeRuntimeData(pWalk);
    return IsLogged;
}
