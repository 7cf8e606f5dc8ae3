#include "Library/VornElogPolicyLib/PolicyLib.h"

#include "Include/PlatformApeiData.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/PciSegment.h"
#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/CircularBuffer.h"
#include "Library/VornElogBaseLib/FiniteBuffer.h"
#include "Library/VornElogBaseLib/OperatingModes.h"
#include "Library/VornElogBaseLib/Queue.h"
#include "Library/VornElogChipsetLib/DimmLocation.h"
#include "Library/VornElogChipsetLib/SmiStormScaling.h"
#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/Notification/OsNotification.h"
#include "Library/VornElogPolicyLib/Notification/PostErrors.h"
#include "Library/VornElogPolicyLib/Pcie/DpcRecovery.h"
#include "Library/VornElogPolicyLib/Pcie/PciSlotData.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/SwDispatch.h"
#include "Platform/Protocol/VendorServices.h"
#include "Platform/State.h"

// Software SMI by which the OS asks for the DPC check after a recovery.
static constexpr UINTN DPC_ERROR_LOG_SWSMI = 0xD5;

// Scratch register of the root complex that hands SCI causes to the OS's ACPI code.
static constexpr UINT64 NBCFG_SCRATCH_3 = PciSegmentAddress(0, 0, 0, 0, 0x74);

// A source that raises this many SMIs within this many seconds keeps the processors in SMM.
static constexpr UINT32 SMI_STORM_STOP_COUNT = 10;
static constexpr UINT32 SMI_STORM_STOP_TIME_SECONDS = 10;

static constexpr UINT32 PCIE_UCE_LIMIT = 16;

// What the constructor must take back, besides the POST-errors handler.
struct POLICY_REGISTRATIONS {
    void* pSlotDataNotify;
    const EFI_SMM_SW_DISPATCH2_PROTOCOL* pSwDispatch;
    EFI_HANDLE DpcCheck;
};
KYR_STATE static POLICY_REGISTRATIONS mRegistrations{};

template <class Protocol>
static EFI_STATUS LocateSmm(const EFI_GUID& Guid, Protocol** ppProtocol,
                            TraceFormat<EFI_STATUS, const EFI_GUID*> FailureText, const CHAR8* Caller) {
    const EFI_STATUS Status = LocateSmmProtocol(Guid, ppProtocol);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, FailureText, Status, &Guid);
    }
    return Status;
}

static EFI_STATUS LocateRasAcpiSmmData(const CHAR8* Caller) {
    const KYR_PLATFORM_APEI_DATA* pPlatformApeiData = nullptr;
    const EFI_STATUS Status = LocateBootProtocol(gKyrPlatformApeiDataProtocolGuid, &pPlatformApeiData);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r locating protocol gKyrpPlatformApeiDataProtocolGuid %g, aborting...\n", Status,
                &gKyrPlatformApeiDataProtocolGuid);
        return Status;
    }
    mPrivateDataVornElogPolicyLib.pKyrRasAcpiSmmData = pPlatformApeiData->RasAcpiSmmData;
    return EFI_SUCCESS;
}

// In this order; what follows a protocol that is missing is not looked for.
static EFI_STATUS LocateProtocols(const CHAR8* Caller) {
    VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    EFI_STATUS Status =
        LocateSmm(gKyrRasInitDataSmmProtocolGuid, &Data.pKyrRasPolicy,
                  "%a: ERROR %r locating protocol gKyrRasInitDataSmmProtocolGuid %g, aborting...\n", Caller);
    if (!EFI_ERROR(Status)) {
        Status = LocateRasAcpiSmmData(Caller);
    }
    if (!EFI_ERROR(Status)) {
        Status = LocateSmm(gKyrRasServiceSmmProtocolGuid, &Data.pKyrRasServiceSmmProtocol,
                           "%a: ERROR %r locating protocol gKyrRasServiceSmmProtocolGuid %g, aborting...\n", Caller);
    }
    if (!EFI_ERROR(Status)) {
        Status = LocateSmm(gEfiSmmCpuServiceProtocolGuid, &Data.pSmmCpuServiceProtocol,
                           "%a: ERROR %r locating protocol gEfiSmmCpuServiceProtocolGuid %g, aborting...\n", Caller);
    }
    if (!EFI_ERROR(Status)) {
        Status = LocateSmm(gEfiSmmVariableProtocolGuid, &Data.pSmmVariableProtocol,
                           "%a: ERROR %r locating protocol gEfiSmmVariableProtocolGuid %g, aborting...\n", Caller);
    }
    if (!EFI_ERROR(Status)) {
        Status =
            LocateSmm(gEfiVornApeiLoggingSmmProtocolGuid, &Data.pVornApeiLoggingSmmProtocol,
                      "%a: ERROR %r locating protocol gEfiVornApeiLoggingSmmProtocolGuid %g, aborting...\n", Caller);
    }
    if (!EFI_ERROR(Status)) {
        Status =
            LocateSmm(gVornKyrMemoryPPRSmmProtocolGuid, &Data.pVornKyrMemoryPPRSmmProtocol,
                      "%a: ERROR %r locating protocol gVornKyrMemoryPPRSmmProtocolGuid %g, aborting...\n", Caller);
    }
    if (!EFI_ERROR(Status)) {
        Status = LocateSmm(
            gVornMemoryInterfaceMemorySmmProtocolGuid, &Data.pVornMemoryInterfaceProtocol,
            "%a: ERROR %r locating protocol gVornMemoryInterfaceMemorySmmProtocolGuid %g, aborting...\n", Caller);
    }
    return Status;
}

static void ReadErrorLoggingMode(const CHAR8* Caller) {
    VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    Data.RasErrorLoggingMode = VornGetRasErrorLoggingMode(Data.SerDbgLevelConstructor);
    if (Data.RasErrorLoggingMode == RasDiagnosticMode) {
        TraceAs(Caller, Data.SerDbgLevelConstructor,
                "%a: System configured for diagnostic mode, enable detailed error logging\n");
        VornElogSmmSetKyrRasPolicyDataForDiagnosticMode();
    }
}

template <class Block>
static bool Allocate(UINTN Bytes, Block** ppBlock, TraceFormat<EFI_STATUS> FailureText, const CHAR8* Caller) {
    const EFI_STATUS Status = AllocateZeroedRuntimeData(Bytes, ppBlock);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, FailureText, Status);
    }
    return !EFI_ERROR(Status);
}

template <class Buffer>
static void MakeRecordBuffer(UINT64 Elements, Buffer** ppBuffer, void (*Clear)(Buffer*),
                             TraceFormat<EFI_STATUS> FailureText, const CHAR8* Caller) {
    constexpr UINT64 ElementSize = sizeof(ERROR_RECORD_BUFFER_ENTRY);
    if (Allocate(sizeof(Buffer) + Elements * ElementSize, ppBuffer, FailureText, Caller)) {
        (*ppBuffer)->MaxElements = Elements;
        (*ppBuffer)->ElementSize = ElementSize;
        Clear(*ppBuffer);
    }
}

static void MakeQueue(QUEUE** ppQueue, TraceFormat<EFI_STATUS> FailureText, const CHAR8* Caller) {
    if (Allocate(sizeof(QUEUE), ppQueue, FailureText, Caller)) {
        QueueInit(*ppQueue);
    }
}

static void MakeBuffers(const CHAR8* Caller) {
    VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    MakeRecordBuffer(CORRECTED_BUFFER_ELEMENTS, &Data.pMcaCorrectedFiniteBuffer, FiniteBufferClear,
                     "%a: ERROR %r allocating EfiRuntimeServicesData memory for corrected error buffer\n", Caller);
    MakeRecordBuffer(DEFERRED_BUFFER_ELEMENTS, &Data.pMcaDeferredCircularBuffer, CircularBufferClear,
                     "%a: ERROR %r allocating EfiRuntimeServicesData memory for deferred error buffer\n", Caller);
    MakeRecordBuffer(UNCORRECTED_BUFFER_ELEMENTS, &Data.pMcaUncorrectedFiniteBuffer, FiniteBufferClear,
                     "%a: ERROR %r allocating EfiRuntimeServicesData memory for uncorrected error buffer\n", Caller);
    MakeRecordBuffer(PCI_BUFFER_ELEMENTS, &Data.pPciFiniteBuffer, FiniteBufferClear,
                     "%a: ERROR %r allocating EfiRuntimeServicesData memory for PCI error buffer\n", Caller);
    MakeQueue(&Data.SmiStormQueue, "%a: ERROR %r allocating EfiRuntimeServicesData memory for SMI storm queue\n",
              Caller);
    MakeQueue(&Data.pQueuePciDeviceData,
              "%a: ERROR %r allocating EfiRuntimeServicesData memory for PCI device data queue\n", Caller);
    Allocate(ESXI_PAGE_RETIRE_ENTRIES * sizeof(ESXI_PAGE_RETIRE_ENTRY), &Data.pOsEsxiPageRetireInfo,
             "%a: ERROR %r allocating EfiRuntimeServicesData memory for ESXi memory page retire data\n", Caller);
}

static void ClearSciCauses() {
    PciSegmentWrite32(NBCFG_SCRATCH_3, PciSegmentRead32(NBCFG_SCRATCH_3) & ~SCI_CAUSE_MASK);
}

static void ScanDimmSlots() {
    for (UINT8 Socket = 0; Socket < MAX_SOCKETS; Socket++) {
        for (UINT8 UmcChannel = 0; UmcChannel < MAX_UMC_CHANNELS; UmcChannel++) {
            for (UINT8 Dimm = 0; Dimm < MAX_DIMMS_PER_CHANNEL; Dimm++) {
                VORN_MEMORY_SLOT_INFO* pSlotInfo = nullptr;
                UINT8 DimmIndex = 0;
                const EFI_STATUS Status =
                    VornElogGetDimmSlotInfoPointer(Socket, UmcChannel, Dimm, &pSlotInfo, &DimmIndex);
                if (!EFI_ERROR(Status) && pSlotInfo != nullptr) {
                    VornElogSmmSeedDimmData(Socket, UmcChannel, Dimm, pSlotInfo, DimmIndex);
                    VornElogSmmDisplayPrivateDataPerDimmData(DEBUG_VERBOSE, Socket, UmcChannel, Dimm);
                }
            }
        }
    }
}

static void SetLimits() {
    VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    Data.SmiStormMcaStopCountThreshold = SMI_STORM_STOP_COUNT;
    Data.SmiStormMcaStopTimeThresholdInSeconds = SMI_STORM_STOP_TIME_SECONDS;
    Data.SmiStormMcaStopTimeThresholdScalingFactor = 1;
    Data.SmiStormPciStopCountThreshold = SMI_STORM_STOP_COUNT;
    Data.SmiStormPcieStopTimeThresholdInSeconds = SMI_STORM_STOP_TIME_SECONDS;
    Data.SmiStormPciStopTimeThresholdScalingFactor = 0;  // looked up when it is needed first
    Data.PcieUceLimit = PCIE_UCE_LIMIT;
    Data.pPcieUceCounterList = &Data.PcieUceCounterList;
    InitializeListHead(Data.pPcieUceCounterList);
}

static EFI_STATUS RegisterDpcCheck(const CHAR8* Caller) {
    const EFI_SMM_SW_DISPATCH2_PROTOCOL* pSwDispatch = nullptr;
    EFI_STATUS Status = LocateSmmProtocol(gEfiSmmSwDispatch2ProtocolGuid, &pSwDispatch);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r locating protocol gEfiSmmSwDispatch2ProtocolGuid %g\n", Status,
                &gEfiSmmSwDispatch2ProtocolGuid);
        return Status;
    }
    EFI_SMM_SW_REGISTER_CONTEXT Context{DPC_ERROR_LOG_SWSMI};
    Status = pSwDispatch->Register(pSwDispatch, VornElogSmmHandlerPcieDpcCheckDownstream, &Context,
                                   &mRegistrations.DpcCheck);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from pSwDispatch->Register to register S/W SMI handler "
                "VornElogSmmHandlerPcieDpcCheckDownstream for SwSmiInputValue 0x%016lx (DPC_ERROR_LOG_SWSMI)\n",
                Status, Context.SwSmiInputValue);
        return Status;
    }
    mRegistrations.pSwDispatch = pSwDispatch;
    return EFI_SUCCESS;
}

EFI_STATUS VornElogPolicyLibConstructorSmm(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    VornElogGetSerialDebugLevels(&Data.SerDbgLevelConstructor, &Data.SerDbgLevel, &Data.SerDbgLevelDetailed);
    EFI_STATUS Status = LocateProtocols(__func__);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    ReadErrorLoggingMode(__func__);
    Data.PciePostCompleteForCper = FALSE;
    Data.CxlPostCompleteForCper = TRUE;
    MakeBuffers(__func__);
    ClearSciCauses();
    Status = VornElogSmmRegisterPostErrorsHandler();
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r registering VornElogSmmProcessPostErrors for gElogLogPOSTErrorToBMCGuid %g\n", Status,
              &gElogLogPOSTErrorToBMCGuid);
    }
    ScanDimmSlots();
    SetLimits();
    Status = gSmst->SmmRegisterProtocolNotify(&gVornPciSlotDataSmmProtocolGuid, RetrieveVornPciSlotDataSmmProtocol,
                                              &mRegistrations.pSlotDataNotify);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r registering RetrieveVornPciSlotDataSmmProtocol callback for protocol notification on "
              "gVornPciSlotDataSmmProtocolGuid %g\n",
              Status, &gVornPciSlotDataSmmProtocolGuid);
    }
    return RegisterDpcCheck(__func__);
}

// Frees the block and forgets it, also where the pool refuses: a second try would be no better.
template <class Block>
static EFI_STATUS Free(Block** ppBlock, const CHAR8* Caller) {
    if (*ppBlock == nullptr) {
        return EFI_SUCCESS;
    }
    const EFI_STATUS Status = FreeRuntimeData(*ppBlock);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from SmmFreePool\n", Status);
    }
    *ppBlock = nullptr;
    return Status;
}

static EFI_STATUS FreeBuffers(const CHAR8* Caller) {
    VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    EFI_STATUS Status = Free(&Data.pMcaCorrectedFiniteBuffer, Caller);
    Status |= Free(&Data.pMcaDeferredCircularBuffer, Caller);
    Status |= Free(&Data.pMcaUncorrectedFiniteBuffer, Caller);
    Status |= Free(&Data.pPciFiniteBuffer, Caller);
    Status |= Free(&Data.SmiStormQueue, Caller);
    Status |= Free(&Data.pQueuePciDeviceData, Caller);
    Status |= Free(&Data.pOsEsxiPageRetireInfo, Caller);
    for (auto& Channels : Data.DimmData) {
        for (auto& Dimms : Channels) {
            for (DIMM_DATA& Dimm : Dimms) {
                Status |= Free(&Dimm.pUniqueRowIdentifierList, Caller);
            }
        }
    }
    return Status;
}

EFI_STATUS VornElogPolicyLibDestructorSmm(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    EFI_STATUS Status = EFI_SUCCESS;
    if (mRegistrations.pSwDispatch != nullptr) {
        Status |= mRegistrations.pSwDispatch->UnRegister(mRegistrations.pSwDispatch, mRegistrations.DpcCheck);
    }
    if (mRegistrations.pSlotDataNotify != nullptr) {
        Status |= gSmst->SmmRegisterProtocolNotify(&gVornPciSlotDataSmmProtocolGuid, nullptr,
                                                   &mRegistrations.pSlotDataNotify);
    }
    mRegistrations = {};
    Status |= VornElogSmmUnregisterPostErrorsHandler();
    // The chipset library registered it for the storm check, and has no destructor of its own.
    Status |= UnregisterSmiStormScalingHandler(__func__);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r taking registrations back\n", Status);
    }
    // No SMI was handled: a start that fails leaves the buffers and lists empty, so that nothing hangs on them.
    return Status | FreeBuffers(__func__);
}
