#include "PlatformRas/Qtz/Smm/DriverInit.h"

#include "Include/PlatformApeiData.h"
#include "Library/RasLib/ConfigurationBuffer.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Pcd.h"
#include "Library/RasLib/ProcessorAccess.h"
#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/OperatingModes.h"
#include "Library/VornElogPolicyLib/Memory/RuntimePpr.h"
#include "Platform/Constants.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/SiliconServices.h"
#include "Platform/Protocol/SwDispatch.h"
#include "Platform/State.h"
#include "PlatformRas/Qtz/Smm/DpcConfiguration.h"
#include "PlatformRas/Qtz/Smm/ReadyToBoot.h"
#include "PlatformRas/Qtz/Smm/Registration.h"

KYR_STATE LIST_ENTRY* mCperProcErrInfoListHead = nullptr;
KYR_STATE LIST_ENTRY* mCperProcCtxInfoListHead = nullptr;
KYR_STATE UINT64 mSerDbgLevelConstructor = 0;
KYR_STATE UINT64 mSerDbgLevel = 0;
KYR_STATE UINT64 mSerDbgLevelDetailed = 0;

namespace {

constexpr UINT32 SCI_EVENT_22 = Field<UINT32, 22>::Mask;
constexpr UINT32 TALVO_UID_PSP_EINJ_SUPPORT = 0x70E48CB1;

// The steps that stand in functions of their own trace under the initialiser's name.
constexpr const CHAR8* Initialiser = "KyrPlatformRasQtzSmmInit";

EFI_STATUS AllocateListHead(LIST_ENTRY** Head) {
    const EFI_STATUS Status = AllocateRuntimeData(sizeof(LIST_ENTRY), Head);
    if (!EFI_ERROR(Status)) {
        InitializeListHead(*Head);
    }
    return Status;
}

}  // namespace

EFI_STATUS PatchCpuInfoWithApThreadData() {
    if (mpKyrRasPolicy == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR mpKyrRasPolicy == NULL, aborting...\n");
        return EFI_NOT_FOUND;
    }
    for (UINT64 Processor = 0; Processor < mpKyrRasPolicy->TotalNumberOfProcessors; Processor++) {
        CPU_INFO& CpuInfo = mpKyrRasPolicy->RasCpuMap[Processor].CpuInfo;
        CpuInfo.LocalApicId = RasSmmGetApicIdOnProcessor(Processor);
        RAS_CPUID_REQUEST Request = {};
        Request.Leaf = 1;
        RasSmmCpuidOnProcessor(Processor, &Request);
        CpuInfo.CpuIdLeaf1Eax = Request.Eax;
        CpuInfo.CpuIdLeaf1Ebx = Request.Ebx;
        CpuInfo.CpuIdLeaf1Ecx = Request.Ecx;
        CpuInfo.CpuIdLeaf1Edx = Request.Edx;
    }
    return EFI_SUCCESS;
}

void RasSciInit() {
    MmioWrite32(FCH_SMI_SOFTWARE_SCI_DATA, MmioRead32(FCH_SMI_SOFTWARE_SCI_DATA) & ~SCI_EVENT_22);
    MmioWrite32(FCH_SMI_SOFTWARE_SCI_EN, MmioRead32(FCH_SMI_SOFTWARE_SCI_EN) | SCI_EVENT_22);
}

EFI_STATUS RasEnablePspEinj() {
    const BOOLEAN Supported = LibPcdGetBool(PCD_TOKEN_PSP_EINJ_SUPPORT);
    SetTalvoCfg8(TALVO_UID_PSP_EINJ_SUPPORT, Supported);
    if (!Supported) {
        Trace(DEBUG_INIT, "%a: PSP error injection support is disabled\n");
        return EFI_SUCCESS;
    }
    if (mPspMboxSmmBuffer == nullptr || mPspMboxSmmFlagAddr == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR missing PSP Mbox SMM parameters, aborting...\n");
        return EFI_NOT_FOUND;
    }
    const UINT8 PcdJrvRasEinjMode = LibPcdGet8(PCD_TOKEN_JRV_RAS_EINJ_MODE);
    if (PcdJrvRasEinjMode == 0) {
        // Reported, but deliberately no failure.
        Trace(DEBUG_ERROR, "%a: ERROR unable to enable PSP EINJ feature. PcdJrvRasEinjMode = 0x%x, \n",
              PcdJrvRasEinjMode);
        return EFI_SUCCESS;
    }
    KYR_PSP_RAS_EINJ_PROTOCOL* PspRasEinj = nullptr;
    EFI_STATUS Status = LocateSmmProtocol(gKyrPspRasEinjSmmProtocolGuid, &PspRasEinj);
    if (!EFI_ERROR(Status)) {
        Status = PspRasEinj->PspMboxRasEinj(RAS_ACPI_EINJ_ENABLE_INJECTION, nullptr, mPspMboxSmmBuffer,
                                            mPspMboxSmmFlagAddr);
    }
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from RAS_ACPI_EINJ_ENABLE_INJECTION command, aborting...\n", Status);
    }
    return Status;
}

namespace {

void LocatePspMailbox() {
    PSP_MBOX_SMM_BUFFER_ADDRESS_PROTOCOL* PspMbox = nullptr;
    const EFI_STATUS Status = LocateSmmProtocol(gPspMboxSmmBufferAddressProtocolGuid, &PspMbox);
    if (EFI_ERROR(Status)) {
        // The text says that it aborts; nothing does: error injection reports the missing mailbox itself.
        TraceAs(Initialiser, DEBUG_ERROR,
                "%a: ERROR %r from locate protocol gPspMboxSmmBufferAddressProtocolGuid, aborting...\n", Status);
        return;
    }
    mPspMboxSmmBuffer = PspMbox->PspMboxSmmBuffer;
    mPspMboxSmmFlagAddr = PspMbox->PspMboxSmmFlagAddr;
}

// Firmware first: the OS asks for the DPC configuration of a port through a software SMI. Only a refused
// registration is a failure; a missing dispatcher is not.
EFI_STATUS RegisterDpcConfiguration() {
    EFI_SMM_SW_DISPATCH2_PROTOCOL* SwDispatch = nullptr;
    EFI_STATUS Status = LocateSmmProtocol(gEfiSmmSwDispatch2ProtocolGuid, &SwDispatch);
    if (EFI_ERROR(Status)) {
        TraceAs(Initialiser, DEBUG_ERROR, "%a: ERROR %r locating protocol gEfiSmmSwDispatch2ProtocolGuid\n", Status);
        return EFI_SUCCESS;
    }
    EFI_SMM_SW_REGISTER_CONTEXT Context = {DPC_CFG_IIO_PCIE_ERRCOR_SWSMI};
    EFI_HANDLE DispatchHandle = nullptr;
    Status = SwDispatch->Register(SwDispatch, VornSmmHandlerPcieDpcConfigIioSmiGeneration, &Context, &DispatchHandle);
    if (EFI_ERROR(Status)) {
        TraceAs(Initialiser, DEBUG_ERROR,
                "%a: ERROR %r from pSwDispatch->Register to register S/W SMI handler "
                "VornSmmHandlerPcieDpcConfigIioSmiGeneration for SwSmiInputValue 0x%016lx "
                "(DPC_CFG_IIO_PCIE_ERRCOR_SWSMI)\n",
                Status, Context.SwSmiInputValue);
    }
    return Status;
}

}  // namespace

EFI_STATUS KyrPlatformRasQtzSmmInit(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    Trace(DEBUG_INIT, "%a: JRV RAS SMM driver entry\n");
    VornElogGetSerialDebugLevels(&mSerDbgLevelConstructor, &mSerDbgLevel, &mSerDbgLevelDetailed);

    EFI_STATUS Status = LocateBootProtocol(gKyrPlatformApeiDataProtocolGuid, &mPlatformApeiData);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gKyrPlatformApeiDataProtocolGuid, aborting...\n", Status);
        return Status;
    }
    mRbBusMap = mPlatformApeiData->RbBusMap;

    Status = LocateSmmProtocol(gKyrRasServiceSmmProtocolGuid, &mKyrRasServiceSmmProtocol);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gKyrRasServiceSmmProtocolGuid, aborting...\n", Status);
        return Status;
    }
    Status = LocateSmmProtocol(gKyrRasInitDataSmmProtocolGuid, &mpKyrRasPolicy);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gKyrRasInitDataSmmProtocolGuid, aborting...\n", Status);
        return Status;
    }

    Status = PatchCpuInfoWithApThreadData();
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from PatchCpuInfoWithApThreadData\n", Status);
    }
    Status = AllocateListHead(&mCperProcErrInfoListHead);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r allocating EfiRuntimeServicesData memory for CPER Processor Error Information structure "
              "linked list\n",
              Status);
    }
    Status = AllocateListHead(&mCperProcCtxInfoListHead);
    if (EFI_ERROR(Status)) {
        Trace(
            DEBUG_ERROR,
            "%a: ERROR %r allocating EfiRuntimeServicesData memory for CPER Processor Context Information structure "
            "linked list\n",
            Status);
    }
    LocatePspMailbox();

    Status = RasSmmRegistrationCenter();
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from RasSmmRegistrationCenter\n", Status);
    }
    if (IsPcieFirmwareFirst(mPlatformApeiData->PcieErrorHandlingMode)) {
        Trace(DEBUG_INIT, "%a: System running in FW First Mode\n");
        Status = RegisterDpcConfiguration();
        if (EFI_ERROR(Status)) {
            // Error injection, SCI, runtime repair and ready-to-boot are skipped then, which is meant.
            return Status;
        }
    } else {
        Trace(DEBUG_INIT, "%a: System running in OS First Mode. Skip registering SMI Handlers for DPC Support.\n");
    }

    Status = RasEnablePspEinj();
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from RasEnablePspEinj\n", Status);
    }
    RasSciInit();
    Status = RuntimePprInit();
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from RuntimePprInit, initialization failure...\n", Status);
    }

    void* Registration = nullptr;
    Status = gSmst->SmmRegisterProtocolNotify(&gEdkiiSmmReadyToBootProtocolGuid, VornRasSmmReadyToBootCallback,
                                              &Registration);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r registering VornRasSmmReadyToBootCallback callback for protocol notification on "
              "gEdkiiSmmReadyToBootProtocolGuid %g\n",
              Status, &gEdkiiSmmReadyToBootProtocolGuid);
    }
    return Status;
}
