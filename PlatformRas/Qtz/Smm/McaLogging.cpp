#include "PlatformRas/Qtz/Smm/McaLogging.h"

#include "Include/ChipsetSupportData.h"
#include "Include/CperNodes.h"
#include "Include/PolicyPrivateData.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/ProcessorAccess.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornCperCreateLib/MemorySection.h"
#include "Library/VornCperCreateLib/ProcessorSection.h"
#include "Library/VornElogBaseLib/OperatingModes.h"
#include "Library/VornElogChipsetLib/AddressTranslation.h"
#include "Library/VornElogPolicyLib/ProcessErrorRecord.h"
#include "Platform/Protocol/RasService.h"
#include "PlatformRas/Qtz/Smm/DriverInit.h"
#include "PlatformRas/Qtz/Smm/McaRegisterTrace.h"
#include "PlatformRas/Qtz/Smm/UmcCounters.h"

namespace {

// Every builder of records traces under this level.
constexpr UINT64 CPER_DEBUG_LEVEL = DEBUG_VERBOSE;

constexpr UINT16 CONTEXT_REGISTERS = MCA_REGISTERS_PER_BANK;
constexpr UINT16 CONTEXT_REGISTER_BYTES = CONTEXT_REGISTERS * sizeof(UINT64);
constexpr UINT16 CONTEXT_SIZE = sizeof(EFI_IA32_X64_PROCESSOR_CONTEXT_INFO) + CONTEXT_REGISTER_BYTES;

// Where a bank's error lies in memory.
struct DIMM_ISOLATION {
    bool Isolated;
    UINT64 SystemAddress;
    NORMALIZED_ADDRESS NormalizedAddress;
    DIMM_INFO DimmInfo;
};

// Steps of VornLogMCAError that stand in functions of their own trace under its name.
constexpr const CHAR8* Logger = "VornLogMCAError";

// The chip select that the syndrome names, for an address that does not translate. False without a syndrome.
bool ChipSelectFromSyndrome(const MCA_BANK_ERROR_INFO& Bank, DIMM_INFO* DimmInfo) {
    ZeroMem(DimmInfo, sizeof(*DimmInfo));
    if (!McaStatus::SyndV::Get(Bank.McaStatus)) {
        return false;
    }
    DimmInfo->ValidBits |= DimmInfoValid::ChipSelectFromSyndrome::Mask;
    DimmInfo->ChipSelect = static_cast<UINT8>(McaSynd::ChipSelect::Get(Bank.McaSynd));
    DimmInfo->DimmOnCh = static_cast<UINT8>(McaSynd::Dimm::Get(Bank.McaSynd));
    return true;
}

// Finds the failing DIMM of a memory controller's bank and, in production mode, what its counters say.
void IsolateDimm(const RasMcaErrorInfo& Info, UINT8 BankIndex, UINT32 LoggingMode,
                 KYR_CHIPSET_SUPPORT_DATA* ChipsetData, DIMM_ISOLATION* Dimm) {
    const MCA_BANK_ERROR_INFO& Bank = Info.McaBankErrorInfo[BankIndex];
    if (!McaStatus::AddrV::Get(Bank.McaStatus) || !McaIpid::IsUmc(Bank.McaIpid)) {
        return;
    }
    EFI_STATUS Status = TranslateToNormalizedAddress(&Info, BankIndex, mKyrRasServiceSmmProtocol->DramToNormalized,
                                                     &Dimm->NormalizedAddress);
    if (EFI_ERROR(Status)) {
        return;
    }
    VornUmcDisplayNormalizedAddressInfo(&Dimm->NormalizedAddress);
    ChipsetData->MachineCheck.ValidNormalizedAddressInfoPsp = TRUE;
    ChipsetData->MachineCheck.NormalizedAddressInfo = Dimm->NormalizedAddress;

    Status = mKyrRasServiceSmmProtocol->NormalizedToDimmAddress(&Dimm->NormalizedAddress, &Dimm->SystemAddress,
                                                                &Dimm->DimmInfo);
    if (!EFI_ERROR(Status)) {
        TraceAs(Logger, mSerDbgLevel, "%a: Address Translation successful\n");
        Dimm->DimmInfo.ValidBits |= DimmInfoValid::AddressTranslationData::Mask;
        Dimm->Isolated = true;
    } else {
        TraceAs(Logger, DEBUG_ERROR,
                "%a: ERROR %r during address translation, retrieve ChipSelect from MCA_SYND data\n", Status);
        Dimm->SystemAddress = 0;
        Dimm->Isolated = ChipSelectFromSyndrome(Bank, &Dimm->DimmInfo);
    }
    ChipsetData->MachineCheck.DimmInfo = Dimm->DimmInfo;

    if (Dimm->Isolated && McaStatus::CECC::Get(Bank.McaStatus) && LoggingMode == RasProductionMode) {
        Status = VornGetUmcCeccErrorCounterDelta(mSerDbgLevel, ChipsetData,
                                                 &ChipsetData->MachineCheck.UmcCeccPfaThresholdData);
        if (EFI_ERROR(Status)) {
            TraceAs(Logger, DEBUG_ERROR, "%a: ERROR %r returned by VornGetUmcCeccErrorCounterDelta\n", Status);
        }
    }
}

void FreeReporting(void* Block, const CHAR8* What) {
    const EFI_STATUS Status = FreeRuntimeData(Block);
    if (EFI_ERROR(Status)) {
        TraceAs(Logger, DEBUG_ERROR, "%a: ERROR %r from SmmFreePool for %a\n", Status, What);
    }
}

// A finished memory record, or NULL.
CPER_RECORD* CreateMemoryRecord(const RasMcaErrorInfo& Info, UINT32 BankIndex, const DIMM_ISOLATION& Dimm) {
    const UINT64 Length = VornCperGetMemoryRecordLength();
    CPER_RECORD* Cper = nullptr;
    EFI_STATUS Status = AllocateZeroedRuntimeData(Length, &Cper);
    if (!EFI_ERROR(Status)) {
        Status = VornCperCreateMemory(CPER_DEBUG_LEVEL, &Info, BankIndex, Dimm.SystemAddress, &Dimm.NormalizedAddress,
                                      &Dimm.DimmInfo, FALSE, Length, Cper);
    }
    if (EFI_ERROR(Status)) {
        TraceAs(Logger, DEBUG_ERROR, "%a: ERROR %r from VornCperCreateMemory\n", Status);
        if (Cper != nullptr) {
            FreeReporting(Cper, "CPER");
        }
        return nullptr;
    }
    return Cper;
}

// Appends the bank's error information structure to its list; nothing when it cannot be built.
void AppendErrorInformation(const RasMcaErrorInfo& Info, UINT32 BankIndex) {
    PROCESSOR_ERROR_INFO_DATA_NODE* Node = nullptr;
    EFI_STATUS Status = AllocateZeroedRuntimeData(sizeof(*Node), &Node);
    if (EFI_ERROR(Status)) {
        TraceAs(Logger, DEBUG_ERROR, "%a: ERROR %r allocating PROCESSOR_ERROR_INFO_DATA_NODE, skipping...\n", Status);
        return;
    }
    EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION* ErrorInfo = nullptr;
    Status = AllocateZeroedRuntimeData(sizeof(*ErrorInfo), &ErrorInfo);
    if (EFI_ERROR(Status)) {
        TraceAs(Logger, DEBUG_ERROR,
                "%a: ERROR %r allocating EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION, skipping...\n", Status);
        FreeReporting(Node, "PROCESSOR_ERROR_INFO_DATA_NODE");
        return;
    }
    Status = VornCperCreateProcessorErrorInformationStructure(CPER_DEBUG_LEVEL, &Info, BankIndex, FALSE, ErrorInfo);
    if (EFI_ERROR(Status)) {
        TraceAs(Logger, DEBUG_ERROR, "%a: ERROR %r from VornCperCreateProcessorErrorInformationStructure\n", Status);
        FreeReporting(ErrorInfo, "EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION");
        FreeReporting(Node, "PROCESSOR_ERROR_INFO_DATA_NODE");
        return;
    }
    Node->pErrorInfo = ErrorInfo;
    InsertTailList(mCperProcErrInfoListHead, &Node->Link);
}

// A finished processor record over what the two lists hold, or NULL.
CPER_RECORD* CreateProcessorRecord(const RasMcaErrorInfo& Info, UINT32 BankIndex) {
    if (mCperProcErrInfoListHead == nullptr || mCperProcCtxInfoListHead == nullptr) {
        TraceAs(Logger, DEBUG_ERROR, "%a: ERROR CPER processor list heads not allocated, skipping HEST logging...\n");
        return nullptr;
    }
    AppendErrorInformation(Info, BankIndex);
    EFI_STATUS Status = VornGetCperProcessorContextInformationStructureData(
        CPER_DEBUG_LEVEL, Info.CpuInfo.ProcessorNumber, &Info, BankIndex, FALSE);
    if (EFI_ERROR(Status)) {
        TraceAs(Logger, DEBUG_ERROR, "%a: ERROR %r from VornGetCperProcessorContextInformationStructureData\n",
                Status);
    }
    const UINT64 Length = VornCperGetProcessorSpecificRecordLength(CPER_DEBUG_LEVEL, mCperProcErrInfoListHead,
                                                                   mCperProcCtxInfoListHead);
    CPER_RECORD* Cper = nullptr;
    Status = AllocateZeroedRuntimeData(Length, &Cper);
    if (EFI_ERROR(Status)) {
        TraceAs(Logger, DEBUG_ERROR,
                "%a: ERROR %r unable to allocate memory for UEFI CPER error record, skipping HEST logging...\n",
                Status);
        return nullptr;
    }
    Status = VornCperCreateProcessorSpecific(CPER_DEBUG_LEVEL, &Info, BankIndex, FALSE, FALSE,
                                             mCperProcErrInfoListHead, mCperProcCtxInfoListHead, Length, Cper);
    if (EFI_ERROR(Status)) {
        TraceAs(Logger, DEBUG_ERROR, "%a: ERROR %r from VornCperCreateProcessorSpecific\n", Status);
        FreeReporting(Cper, "CPER");
        return nullptr;
    }
    return Cper;
}

// Hands the record over. The policy engine may take the overflow mark off a threshold counter; the scan's record
// follows it, so that such a counter is not re-armed.
void ProcessRecord(CPER_RECORD* Cper, KYR_CHIPSET_SUPPORT_DATA* ChipsetData, MCA_BANK_ERROR_INFO* Bank,
                   BOOLEAN* pIsPostProcessingRequired) {
    const EFI_STATUS Status = VornElogSmmProcessErrorRecord(Cper, ChipsetData);
    if (EFI_ERROR(Status)) {
        TraceAs(Logger, DEBUG_ERROR, "%a: ERROR %r returned by VornElogSmmProcessErrorRecord\n", Status);
        return;
    }
    *pIsPostProcessingRequired = TRUE;
    const MCA_BANK_ERROR_INFO& Processed = RecordBank(*ChipsetData);
    Bank->McaMisc0 = McaMisc::Ovrflw::Set(Bank->McaMisc0, McaMisc::Ovrflw::Get(Processed.McaMisc0));
    Bank->McaMisc1 = McaMisc::Ovrflw::Set(Bank->McaMisc1, McaMisc::Ovrflw::Get(Processed.McaMisc1));
}

void ReleaseLists() {
    if (mCperProcErrInfoListHead != nullptr) {
        while (!IsListEmpty(mCperProcErrInfoListHead)) {
            auto* Node = reinterpret_cast<PROCESSOR_ERROR_INFO_DATA_NODE*>(mCperProcErrInfoListHead->ForwardLink);
            FreeReporting(Node->pErrorInfo, "EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION");
            RemoveEntryList(&Node->Link);
            FreeReporting(Node, "PROCESSOR_ERROR_INFO_DATA_NODE");
        }
        InitializeListHead(mCperProcErrInfoListHead);
    }
    if (mCperProcCtxInfoListHead != nullptr) {
        while (!IsListEmpty(mCperProcCtxInfoListHead)) {
            auto* Node = reinterpret_cast<PROCESSOR_CONTEXT_INFO_DATA_NODE*>(mCperProcCtxInfoListHead->ForwardLink);
            FreeReporting(Node->pContextInfo, "EFI_IA32_X64_PROCESSOR_CONTEXT_INFO");
            RemoveEntryList(&Node->Link);
            FreeReporting(Node, "PROCESSOR_CONTEXT_INFO_DATA_NODE");
        }
        InitializeListHead(mCperProcCtxInfoListHead);
    }
}

// The bank's block: zeros but for the whole scan, which is copied over nothing: it is 10 KB.
void StartChipsetData(const RasMcaErrorInfo& Info, UINT8 BankIndex, KYR_CHIPSET_SUPPORT_DATA* ChipsetData) {
    constexpr UINTN ScanBegins = offsetof(MACHINE_CHECK_SUPPORT_DATA, RasMcaErrorInfo);
    constexpr UINTN ScanEnds = ScanBegins + sizeof(RasMcaErrorInfo);
    auto* const Bytes = reinterpret_cast<UINT8*>(ChipsetData);
    ZeroMem(Bytes, ScanBegins);
    CopyMem(Bytes + ScanBegins, &Info, sizeof(Info));
    ZeroMem(Bytes + ScanEnds, sizeof(*ChipsetData) - ScanEnds);
    ChipsetData->MachineCheck.ValidRasMcaErrorInfo = TRUE;
    ChipsetData->MachineCheck.McaBankIndex = BankIndex;
}

void LogBank(RasMcaErrorInfo* Info, UINT8 BankIndex, UINT32 LoggingMode, BOOLEAN* pIsPostProcessingRequired) {
    MCA_BANK_ERROR_INFO& Bank = Info->McaBankErrorInfo[BankIndex];
    RasSmmReadMcgIpOnProcessor(Info->CpuInfo.ProcessorNumber, &Info->McgIp);
    TraceMcaBank(mSerDbgLevelDetailed, *Info, Bank);

    KYR_CHIPSET_SUPPORT_DATA ChipsetData;
    StartChipsetData(*Info, BankIndex, &ChipsetData);
    DIMM_ISOLATION Dimm = {};
    IsolateDimm(*Info, BankIndex, LoggingMode, &ChipsetData, &Dimm);
    CPER_RECORD* Cper = Dimm.Isolated ? CreateMemoryRecord(*Info, BankIndex, Dimm) : nullptr;
    if (Cper == nullptr) {
        Cper = CreateProcessorRecord(*Info, BankIndex);
    }
    if (Cper != nullptr) {
        ProcessRecord(Cper, &ChipsetData, &Bank, pIsPostProcessingRequired);
    }
    ReleaseLists();
    if (Cper != nullptr) {
        FreeReporting(Cper, "CPER");
    }
}

}  // namespace

EFI_STATUS VornGetCperProcessorContextInformationStructureData(UINT64 Level, UINT64, const RasMcaErrorInfo* Info,
                                                               UINT32 BankIndex, BOOLEAN) {
    if (Info == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    // Of the five kinds of context only the bank's registers have a structure here.
    EFI_IA32_X64_PROCESSOR_CONTEXT_INFO* Context = nullptr;
    EFI_STATUS Status = AllocateZeroedRuntimeData(CONTEXT_SIZE, &Context);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r allocating EFI_IA32_X64_PROCESSOR_CONTEXT_INFO\n", Status);
        return EFI_SUCCESS;
    }
    BOOLEAN IsValid = FALSE;
    VornCperCreateProcessorContextInfoStrucMcBank(Level, Info, BankIndex, CONTEXT_REGISTERS, CONTEXT_SIZE, &IsValid,
                                                  Context);
    PROCESSOR_CONTEXT_INFO_DATA_NODE* Node = nullptr;
    if (IsValid) {
        Status = AllocateZeroedRuntimeData(sizeof(*Node), &Node);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r allocating PROCESSOR_CONTEXT_INFO_DATA_NODE\n", Status);
        }
    }
    if (Node == nullptr) {
        FreeReporting(Context, "EFI_IA32_X64_PROCESSOR_CONTEXT_INFO");
        return EFI_SUCCESS;
    }
    Node->pContextInfo = Context;
    Node->RegisterArrayLength = CONTEXT_REGISTER_BYTES;
    Node->pRegisterArray = reinterpret_cast<UINT8*>(Context + 1);
    InsertTailList(mCperProcCtxInfoListHead, &Node->Link);
    return EFI_SUCCESS;
}

void VornLogMCAError(RasMcaErrorInfo* Info, BOOLEAN* pIsPostProcessingRequired) {
    const UINT32 LoggingMode = VornGetRasErrorLoggingMode(mSerDbgLevel);
    for (UINTN BankIndex = 0; BankIndex < McaBankCount(*Info); BankIndex++) {
        if (McaStatus::Val::Get(Info->McaBankErrorInfo[BankIndex].McaStatus)) {
            LogBank(Info, static_cast<UINT8>(BankIndex), LoggingMode, pIsPostProcessingRequired);
        }
    }
}
