#include "PlatformRas/Qtz/Smm/MceSwSmi.h"

#include "Include/McaErrorInfo.h"
#include "Include/PlatformApeiData.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/SelTransport.h"
#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/MachineCheck/PostProcessCorrected.h"
#include "Library/VornElogPolicyLib/MachineCheck/PostProcessDeferred.h"
#include "Library/VornElogPolicyLib/MachineCheck/PostProcessUncorrected.h"
#include "Library/VornElogPolicyLib/Notification/Cleanup.h"
#include "Platform/Protocol/RasService.h"
#include "Platform/State.h"
#include "PlatformRas/Qtz/Smm/McaLogging.h"
#include "PlatformRas/Qtz/Smm/ReCloak.h"

KYR_STATE UINT32 mMcaThresholdRearmOnRecloak = 1;

namespace {

// MISC1 is re-armed with these whatever the policy says; only MISC0 follows the policy, which is meant.
constexpr UINT8 MISC1_THRESHOLD_CONTROL = 1;
constexpr UINT16 MISC1_THRESHOLD_COUNT = 0xFFE;

// MISC0 half of a threshold request as the platform's policy wants it.
RasThresholdConfig Misc0FromPolicy() {
    RasThresholdConfig Config = {};
    Config.McaMisc0DataValid = 1;
    Config.ThresholdControl = mPlatformApeiData->McaErrThreshEn;
    Config.ThresholdCount = mPlatformApeiData->McaErrThreshCount;
    Config.ThresholdIntType = mPlatformApeiData->McaErrThreshEn ? THRESHOLD_INT_TYPE_SMI : THRESHOLD_INT_TYPE_NONE;
    return Config;
}

// Both halves as the policy wants them.
RasThresholdConfig BothFromPolicy() {
    RasThresholdConfig Config = Misc0FromPolicy();
    Config.McaMisc1DataValid = 1;
    Config.McaMisc1ThresholdControl = Config.ThresholdControl;
    Config.McaMisc1ThresholdCount = Config.ThresholdCount;
    Config.McaMisc1ThresholdIntType = Config.ThresholdIntType;
    return Config;
}

RasThresholdConfig Misc1Fixed() {
    RasThresholdConfig Config = {};
    Config.McaMisc1DataValid = 1;
    Config.McaMisc1ThresholdControl = MISC1_THRESHOLD_CONTROL;
    Config.McaMisc1ThresholdCount = MISC1_THRESHOLD_COUNT;
    Config.McaMisc1ThresholdIntType = THRESHOLD_INT_TYPE_SMI;
    return Config;
}

void RearmThreshold(UINTN Processor, UINTN Bank, const RasThresholdConfig& Config, const CHAR8* Caller) {
    const EFI_STATUS Status = mKyrRasServiceSmmProtocol->SetMcaThreshold(&Processor, &Bank, &Config, TRUE);
    if (EFI_ERROR(Status)) {
        TraceAs(
            Caller, DEBUG_ERROR,
            "%a: ERROR %r from SetMcaThreshold on Processor %d Bank %d to reprogram MCA_MISCx threshold counter\n",
            Status, Processor, Bank);
    }
}

// The OS wrote a register of an uncloaked bank: hide the bank again unless an error in it is still unread.
void ReCloak(UINTN Processor, const RasThresholdConfig& Threshold, const CHAR8* Caller) {
    UINT64 Bank = 0;
    if (ReCloakCheck(Processor, &Bank)) {
        const EFI_STATUS Status = mKyrRasServiceSmmProtocol->SetMcaCloakCfg(Processor, McaBankMask(Bank), 0);
        if (EFI_ERROR(Status)) {
            TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from SetMcaCloakCfg to recloak Processor %d Bank %d\n", Status,
                    Processor, Bank);
        }
        if (mMcaThresholdRearmOnRecloak == 1) {
            RearmThreshold(Processor, Bank, Threshold, Caller);
        }
    }
    if (Bank == MCA_BANK_UNKNOWN) {
        return;
    }
    // Always, also when the bank stays visible: the trapped write is completed on the OS's behalf.
    const EFI_STATUS Status = mKyrRasServiceSmmProtocol->ClrMcaStatus(Processor, Bank, TRUE);
    if (EFI_ERROR(Status)) {
        TraceAs(
            Caller, DEBUG_ERROR,
            "%a: ERROR %r from ClrMcaStatus on Processor %d Bank %d to clear bank registers, bank remains cloaked\n",
            Status, Processor, Bank);
    }
}

void TraceLocalSmiStatus(UINTN Processor, UINT64 Value) {
    Trace(DEBUG_VERBOSE,
          "Processor %d local SMI status 0x%016lx IoTrapSts 0x%x MceRedirSts %d WrMsr %d SmiSrcLvtLgcy %d "
          "SmiSrcLvtExt %d SmiSrcMca %d\n",
          Processor, Value, LocalSmiStatus::IoTrapSts::Get(Value), LocalSmiStatus::MceRedirSts::Get(Value),
          LocalSmiStatus::WrMsr::Get(Value), LocalSmiStatus::SmiSrcLvtLgcy::Get(Value),
          LocalSmiStatus::SmiSrcLvtExt::Get(Value), LocalSmiStatus::SmiSrcMca::Get(Value));
}

// Visits every processor with a source. True when any scan asks for post-processing.
bool ScanProcessors(const LOCAL_SMI_STATUS* StatusList, const CHAR8* Caller) {
    const RasThresholdConfig RecloakThreshold = BothFromPolicy();
    bool IsPostProcessingRequired = false;
    for (UINTN Processor = 0; Processor < gSmst->NumberOfCpus; Processor++) {
        const UINT64 Value = StatusList[Processor].Value;
        if (Value == 0) {
            continue;
        }
        TraceLocalSmiStatus(Processor, Value);
        if (Value & (LocalSmiStatus::MceRedirSts::Mask | LocalSmiStatus::SmiSrcMca::Mask)) {
            BOOLEAN Flag = FALSE;
            VornMcaErrorHandle(Processor, &Flag);
            IsPostProcessingRequired = IsPostProcessingRequired || Flag;
        }
        if (Value & LocalSmiStatus::WrMsr::Mask) {
            ReCloak(Processor, RecloakThreshold, Caller);
        }
    }
    return IsPostProcessingRequired;
}

void PostProcess() {
    VornElogSmmPostProcessErrorRecordsCorrected();
    VornElogSmmPostProcessErrorRecordsDeferred();
    VornElogSmmPostProcessErrorRecordsUncorrected();
    VornElogSmmClearErrorRecordBuffersMca();
    ElogSendSelLog();
    VornElogSmmPostProcessCleanup();
}

// What becomes of one valid error in a cloaked bank: the OS sees it as a machine check, or the firmware consumes
// it. An uncorrected error that is not enabled gets neither.
void ForwardOrConsume(UINTN Processor, UINTN Bank, UINT64 Status, const CHAR8* Caller) {
    if (McaStatus::UC::Get(Status) && McaStatus::En::Get(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: Processor %d Bank %d MCE detected\n", Processor, Bank);
        EFI_STATUS Result = mKyrRasServiceSmmProtocol->SetMcaCloakCfg(Processor, 0, McaBankMask(Bank));
        if (EFI_ERROR(Result)) {
            TraceAs(Caller, DEBUG_ERROR,
                    "%a: ERROR %r from SetMcaCloakCfg to uncloak Processor %d Bank %d for OS MCE visibility\n",
                    Result, Processor, Bank);
        }
        Result = mKyrRasServiceSmmProtocol->RasSmmExitType(Processor, GENERATE_MCE_ON_EXIT);
        if (EFI_ERROR(Result)) {
            TraceAs(Caller, DEBUG_ERROR,
                    "%a: ERROR %r from RasSmmExitType GENERATE_MCE_ON_EXIT on Processor %d for OS MCE visibility\n",
                    Result, Processor);
        }
    }
    if (!McaStatus::UC::Get(Status)) {
        const EFI_STATUS Result = mKyrRasServiceSmmProtocol->ClrMcaStatus(Processor, Bank, FALSE);
        if (EFI_ERROR(Result)) {
            TraceAs(Caller, DEBUG_ERROR,
                    "%a: ERROR %r from ClrMcaStatus on Processor %d Bank %d deferred or corrected machine check to "
                    "clear MCAX registers\n",
                    Result, Processor, Bank);
        }
    }
}

}  // namespace

EFI_STATUS KyrMcetoSmiCallback(EFI_HANDLE, const FCH_SMM_SW_REGISTER_CONTEXT*, void*, UINTN*) {
    const UINTN ListSize = gSmst->NumberOfCpus * sizeof(LOCAL_SMI_STATUS);
    LOCAL_SMI_STATUS* StatusList = nullptr;
    EFI_STATUS Status = AllocateZeroedRuntimeData(ListSize, &StatusList);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r allocating SMM EfiRuntimeServicesData memory length 0x%016lx for pLocalSmiStatusList SMI "
              "MCE scan data structure, aborting...\n",
              Status, ListSize);
        return Status;
    }
    Status = mKyrRasServiceSmmProtocol->GetAllLocalSmiStatus(StatusList);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r returned from machine check bank error scan, aborting...\n", Status);
    } else if (ScanProcessors(StatusList, __func__)) {
        PostProcess();
    }
    Status = FreeRuntimeData(StatusList);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r returned by SmmFreePool\n", Status);
    }
    return EFI_SUCCESS;
}

UINT8 VornMcaErrorHandle(UINT64 ProcessorNumber, BOOLEAN* pIsPostProcessingRequired) {
    if (pIsPostProcessingRequired == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pIsPostProcessingRequired is NULL, aborting...\n");
        return MCA_ERROR_NULL_FLAG;
    }
    *pIsPostProcessingRequired = FALSE;

    RasMcaErrorInfo Info;
    ZeroMem(&Info, sizeof(Info));
    Info.CpuInfo.ProcessorNumber = ProcessorNumber;
    const EFI_STATUS Status = mKyrRasServiceSmmProtocol->SearchMcaError(&Info);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r returned from SearchMcaError on Processor %d, aborting...\n", Status,
              ProcessorNumber);
        return MCA_ERROR_HANDLED;
    }
    if (Info.McaBankCount == 0) {
        return MCA_ERROR_HANDLED;
    }
    VornLogMCAError(&Info, pIsPostProcessingRequired);

    for (UINTN BankIndex = 0; BankIndex < McaBankCount(Info); BankIndex++) {
        const MCA_BANK_ERROR_INFO& BankInfo = Info.McaBankErrorInfo[BankIndex];
        const UINTN Bank = BankInfo.McaBankNumber;
        if (!McaStatus::Val::Get(BankInfo.McaStatus)) {
            continue;
        }
        if (!IsMcaBankCloaked(ProcessorNumber, Bank)) {
            Trace(DEBUG_INFO, "%a: Processor %d Bank %d is uncloaked, skip further SMM firmware first processing\n",
                  ProcessorNumber, Bank);
            continue;
        }
        ForwardOrConsume(ProcessorNumber, Bank, BankInfo.McaStatus, __func__);
        if (McaMisc::Ovrflw::Get(BankInfo.McaMisc0)) {
            RearmThreshold(ProcessorNumber, Bank, Misc0FromPolicy(), __func__);
        }
        if (McaMisc::Ovrflw::Get(BankInfo.McaMisc1)) {
            RearmThreshold(ProcessorNumber, Bank, Misc1Fixed(), __func__);
        }
    }
    return MCA_ERROR_HANDLED;
}
