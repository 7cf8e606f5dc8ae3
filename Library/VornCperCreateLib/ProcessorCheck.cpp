#include "Library/VornCperCreateLib/ProcessorCheck.h"

#include "Include/CperProcessorCheck.h"
#include "Library/RasLib/BankIndex.h"

namespace {

// An MCA error code is of a kind when its bits under Mask are Pattern.
struct ERROR_CODE_KIND {
    UINT16 Mask;
    UINT16 Pattern;
};

constexpr ERROR_CODE_KIND CACHE_ERROR_CODE{0xFF00, 0x0100};
constexpr ERROR_CODE_KIND TLB_ERROR_CODE{0xFFF0, 0x0010};
constexpr ERROR_CODE_KIND BUS_ERROR_CODE{0xF800, 0x0800};
constexpr ERROR_CODE_KIND INTERNAL_ERROR_CODE{0xFC00, 0x0400};

EFI_STATUS SetDetected(UINT64 Level, UINT16 ErrorCode, BOOLEAN IsDeferred, bool Detected,
                       BOOLEAN* pIsErrorCheckTypeDetected, const CHAR8* Caller) {
    if (pIsErrorCheckTypeDetected == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR pIsErrorCheckTypeDetected == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pIsErrorCheckTypeDetected = Detected ? TRUE : FALSE;
    TraceAs(Caller, Level, "%a: ErrorCode 0x%04x IsDeferred %d => detected %d\n", ErrorCode, IsDeferred,
            *pIsErrorCheckTypeDetected);
    return EFI_SUCCESS;
}

EFI_STATUS DetectErrorCode(UINT64 Level, UINT16 ErrorCode, BOOLEAN IsDeferred, const ERROR_CODE_KIND& Kind,
                           BOOLEAN* pIsErrorCheckTypeDetected, const CHAR8* Caller = __builtin_FUNCTION()) {
    const bool Detected = IsDeferred == FALSE && (ErrorCode & Kind.Mask) == Kind.Pattern;
    return SetDetected(Level, ErrorCode, IsDeferred, Detected, pIsErrorCheckTypeDetected, Caller);
}

}  // namespace

EFI_STATUS VornCperDetectCacheCheck(UINT64 Level, UINT16 ErrorCode, BOOLEAN IsDeferred,
                                    BOOLEAN* pIsErrorCheckTypeDetected) {
    return DetectErrorCode(Level, ErrorCode, IsDeferred, CACHE_ERROR_CODE, pIsErrorCheckTypeDetected);
}

EFI_STATUS VornCperDetectTlbCheck(UINT64 Level, UINT16 ErrorCode, BOOLEAN IsDeferred,
                                  BOOLEAN* pIsErrorCheckTypeDetected) {
    return DetectErrorCode(Level, ErrorCode, IsDeferred, TLB_ERROR_CODE, pIsErrorCheckTypeDetected);
}

EFI_STATUS VornCperDetectBusCheck(UINT64 Level, UINT16 ErrorCode, BOOLEAN IsDeferred,
                                  BOOLEAN* pIsErrorCheckTypeDetected) {
    return DetectErrorCode(Level, ErrorCode, IsDeferred, BUS_ERROR_CODE, pIsErrorCheckTypeDetected);
}

EFI_STATUS VornCperDetectMsCheck(UINT64 Level, UINT16 ErrorCode, BOOLEAN IsDeferred,
                                 BOOLEAN* pIsErrorCheckTypeDetected) {
    return DetectErrorCode(Level, ErrorCode, IsDeferred, INTERNAL_ERROR_CODE, pIsErrorCheckTypeDetected);
}

EFI_STATUS VornCperDetectUniqueMcaDeferredError(UINT64 Level, UINT16 ErrorCode, BOOLEAN IsDeferred,
                                                BOOLEAN* pIsErrorCheckTypeDetected) {
    return SetDetected(Level, ErrorCode, IsDeferred, IsDeferred != FALSE, pIsErrorCheckTypeDetected,
                       __builtin_FUNCTION());
}

EFI_STATUS VornCperDetectUnrecognizedError(UINT64 Level, UINT16 ErrorCode, BOOLEAN IsDeferred,
                                           BOOLEAN* pIsErrorCheckTypeDetected) {
    return SetDetected(Level, ErrorCode, IsDeferred, true, pIsErrorCheckTypeDetected, __builtin_FUNCTION());
}

namespace {

// What every constructor is given.
struct CHECK_ARGUMENTS {
    UINT64 Level;
    const RasMcaErrorInfo* pRasMcaErrorInfo;
    UINT32 BankIndex;
    BOOLEAN* pIsErrorCheckInfoValid;
    UINT64* pCheckInfo;
    BOOLEAN* pIsMachineCheckRestartable;
};

// Whether neither processor nor task context is corrupt: the instruction pointer is then exact and execution can
// go on from it.
bool IsRestartable(UINT64 Status) {
    return McaStatus::PCC::Get(Status) == 0 && McaStatus::TCC::Get(Status) == 0;
}

// Check information of a cache, TLB or bus check, but for the operation and the bus check's own fields.
UINT64 CacheTlbBusCheckInfo(UINT64 Status) {
    using namespace CperCacheTlbBusCheck;
    const UINT16 ErrorCode = static_cast<UINT16>(McaStatus::ErrorCode::Get(Status));
    const UINT64 Restartable = IsRestartable(Status) ? 1 : 0;
    return TransactionType::Of(McaErrorCode::TransactionType::Get(ErrorCode)) | TransactionTypeValid::Mask |
           Level::Of(McaErrorCode::CacheLevel::Get(ErrorCode)) | LevelValid::Mask |
           ProcessorContextCorrupt::Of(McaStatus::PCC::Get(Status)) | ProcessorContextCorruptValid::Mask |
           Uncorrected::Of(McaStatus::UC::Get(Status)) | UncorrectedValid::Mask | PreciseIP::Of(Restartable) |
           PreciseIPValid::Mask | RestartableIP::Of(Restartable) | RestartableIPValid::Mask |
           Overflow::Of(McaStatus::Overflow::Get(Status)) | OverflowValid::Mask;
}

UINT64 CacheCheckInfo(UINT64 Status) {
    using namespace CperCacheTlbBusCheck;
    const UINT16 ErrorCode = static_cast<UINT16>(McaStatus::ErrorCode::Get(Status));
    return CacheTlbBusCheckInfo(Status) | Operation::Of(McaErrorCode::MemoryTransactionType::Get(ErrorCode)) |
           OperationValid::Mask;
}

// The transaction type comes from the bits that hold memory or I/O in a bus error code, and the address space is
// always 0: both are meant.
UINT64 BusCheckInfo(UINT64 Status) {
    using namespace CperCacheTlbBusCheck;
    const UINT16 ErrorCode = static_cast<UINT16>(McaStatus::ErrorCode::Get(Status));
    return CacheCheckInfo(Status) | ParticipationType::Of(McaErrorCode::ParticipationProcessor::Get(ErrorCode)) |
           ParticipationTypeValid::Mask | TimeOut::Of(McaErrorCode::TimeOut::Get(ErrorCode)) | TimeOutValid::Mask |
           AddressSpace::Of(0) | AddressSpaceValid::Mask;
}

// Of a deferred error only this much is reported.
UINT64 DeferredCheckInfo(UINT64 Status) {
    using namespace CperMsCheck;
    return ErrorType::Of(INTERNAL_UNCLASSIFIED) | ErrorTypeValid::Mask |
           Overflow::Of(McaStatus::Overflow::Get(Status)) | OverflowValid::Mask;
}

UINT64 MsCheckInfo(UINT64 Status) {
    using namespace CperMsCheck;
    const UINT64 Restartable = IsRestartable(Status) ? 1 : 0;
    return DeferredCheckInfo(Status) | ProcessorContextCorrupt::Of(McaStatus::PCC::Get(Status)) |
           ProcessorContextCorruptValid::Mask | Uncorrected::Of(McaStatus::UC::Get(Status)) | UncorrectedValid::Mask |
           PreciseIP::Of(Restartable) | PreciseIPValid::Mask | RestartableIP::Of(Restartable) |
           RestartableIPValid::Mask;
}

EFI_STATUS CreateCheck(const CHECK_ARGUMENTS& Arguments, UINT64 (*CheckInfoOf)(UINT64), bool CanRestart,
                       const CHAR8* Caller = __builtin_FUNCTION()) {
    if (Arguments.pRasMcaErrorInfo == nullptr || Arguments.pIsErrorCheckInfoValid == nullptr ||
        Arguments.pCheckInfo == nullptr || Arguments.pIsMachineCheckRestartable == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR One or more input pointers are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *Arguments.pIsErrorCheckInfoValid = FALSE;
    *Arguments.pIsMachineCheckRestartable = FALSE;
    if (!IsBankIndexInRange(Arguments.BankIndex, Caller)) {
        return EFI_INVALID_PARAMETER;
    }
    const UINT64 Status = Arguments.pRasMcaErrorInfo->McaBankErrorInfo[Arguments.BankIndex].McaStatus;
    *Arguments.pCheckInfo |= CheckInfoOf(Status);
    *Arguments.pIsMachineCheckRestartable = CanRestart && IsRestartable(Status) ? TRUE : FALSE;
    *Arguments.pIsErrorCheckInfoValid = TRUE;
    TraceAs(Caller, Arguments.Level, "%a: CheckInfo 0x%016lx restartable %d\n", *Arguments.pCheckInfo,
            *Arguments.pIsMachineCheckRestartable);
    return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS VornCperCreateCacheCheckStructure(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo, UINT32 BankIndex,
                                             BOOLEAN* pIsErrorCheckInfoValid, UINT64* pCheckInfo,
                                             BOOLEAN* pIsMachineCheckRestartable) {
    return CreateCheck(
        {Level, pRasMcaErrorInfo, BankIndex, pIsErrorCheckInfoValid, pCheckInfo, pIsMachineCheckRestartable},
        CacheCheckInfo, true);
}

EFI_STATUS VornCperCreateTlbCheckStructure(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo, UINT32 BankIndex,
                                           BOOLEAN* pIsErrorCheckInfoValid, UINT64* pCheckInfo,
                                           BOOLEAN* pIsMachineCheckRestartable) {
    return CreateCheck(
        {Level, pRasMcaErrorInfo, BankIndex, pIsErrorCheckInfoValid, pCheckInfo, pIsMachineCheckRestartable},
        CacheTlbBusCheckInfo, true);
}

EFI_STATUS VornCperCreateBusCheckStructure(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo, UINT32 BankIndex,
                                           BOOLEAN* pIsErrorCheckInfoValid, UINT64* pCheckInfo,
                                           BOOLEAN* pIsMachineCheckRestartable) {
    return CreateCheck(
        {Level, pRasMcaErrorInfo, BankIndex, pIsErrorCheckInfoValid, pCheckInfo, pIsMachineCheckRestartable},
        BusCheckInfo, true);
}

EFI_STATUS VornCperCreateMsCheckStructure(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo, UINT32 BankIndex,
                                          BOOLEAN* pIsErrorCheckInfoValid, UINT64* pCheckInfo,
                                          BOOLEAN* pIsMachineCheckRestartable) {
    return CreateCheck(
        {Level, pRasMcaErrorInfo, BankIndex, pIsErrorCheckInfoValid, pCheckInfo, pIsMachineCheckRestartable},
        MsCheckInfo, true);
}

EFI_STATUS VornCperCreateUniqueMcaDeferredError(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo,
                                                UINT32 BankIndex, BOOLEAN* pIsErrorCheckInfoValid, UINT64* pCheckInfo,
                                                BOOLEAN* pIsMachineCheckRestartable) {
    return CreateCheck(
        {Level, pRasMcaErrorInfo, BankIndex, pIsErrorCheckInfoValid, pCheckInfo, pIsMachineCheckRestartable},
        DeferredCheckInfo, false);
}

EFI_STATUS VornCperCreateUnrecognizedErrorStructure(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo,
                                                    UINT32 BankIndex, BOOLEAN* pIsErrorCheckInfoValid,
                                                    UINT64* pCheckInfo, BOOLEAN* pIsMachineCheckRestartable) {
    return VornCperCreateMsCheckStructure(Level, pRasMcaErrorInfo, BankIndex, pIsErrorCheckInfoValid, pCheckInfo,
                                          pIsMachineCheckRestartable);
}

const CPER_PROCESSOR_ERROR_CHECK CperProcessorErrorCheckTable[MAX_UEFI_CPER_ERROR_CHECK_STRUCTURE_TYPES] = {
    {VornCperDetectCacheCheck, VornCperCreateCacheCheckStructure, &gCperCacheCheckGuid},
    {VornCperDetectTlbCheck, VornCperCreateTlbCheckStructure, &gCperTlbCheckGuid},
    {VornCperDetectBusCheck, VornCperCreateBusCheckStructure, &gCperBusCheckGuid},
    {VornCperDetectMsCheck, VornCperCreateMsCheckStructure, &gCperMsCheckGuid},
    {VornCperDetectUniqueMcaDeferredError, VornCperCreateUniqueMcaDeferredError, &gCperMsCheckGuid},
    {VornCperDetectUnrecognizedError, VornCperCreateUnrecognizedErrorStructure, &gCperMsCheckGuid},
};
