#include "Library/VornCperCreateLib/CperRecord.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Text.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornCperCreateLib/CperSeverity.h"
#include "Library/VornElogBaseLib/RealTimeClock.h"

namespace {

constexpr CHAR8 CPER_SIGNATURE_START[] = {'C', 'P', 'E', 'R'};
constexpr UINT32 CPER_SIGNATURE_END = 0xFFFFFFFF;

}  // namespace

EFI_STATUS VornUpdateCperHeaderFlags(UINT32 Severity, BOOLEAN PreviousError, BOOLEAN Simulated,
                                     UINT32* pHeaderFlags) {
    if (pHeaderFlags == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pHeaderFlags == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pHeaderFlags = 0;
    if (Severity == CperSeverityCorrected) {
        *pHeaderFlags |= CPER_HEADER_FLAG_RECOVERED;
    }
    if (PreviousError != FALSE) {
        *pHeaderFlags |= CPER_HEADER_FLAG_PREVIOUS_ERROR;
    }
    if (Simulated != FALSE) {
        *pHeaderFlags |= CPER_HEADER_FLAG_SIMULATED;
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornUpdateCperDescriptorFlagsMachineCheck(const MCA_BANK_ERROR_INFO* pRasMcaBankErrorInfo,
                                                     UINT32* pDescriptorFlags) {
    if (pRasMcaBankErrorInfo == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pRasMcaBankErrorInfo == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (pDescriptorFlags == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pDescriptorFlags == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const UINT64 Status = pRasMcaBankErrorInfo->McaStatus;
    *pDescriptorFlags = CPER_DESCRIPTOR_FLAG_PRIMARY;
    if (McaStatus::Deferred::Get(Status) != 0) {
        *pDescriptorFlags |= CPER_DESCRIPTOR_FLAG_LATENT;
    }
    if (McaStatus::Poison::Get(Status) != 0) {
        *pDescriptorFlags |= CPER_DESCRIPTOR_FLAG_PROPAGATED;
    }
    if (McaStatus::Overflow::Get(Status) != 0) {
        *pDescriptorFlags |= CPER_DESCRIPTOR_FLAG_OVERFLOW;
    }
    return EFI_SUCCESS;
}

void FillCperRecordFront(UINT64 Level, const CPER_RECORD_FRONT& Front, CPER_RECORD* pCper) {
    CPER_RECORD_HEADER& Header = pCper->Header;
    CopyMem(Header.SignatureStart, CPER_SIGNATURE_START, sizeof(CPER_SIGNATURE_START));
    Header.Revision = CPER_REVISION;
    Header.SignatureEnd = CPER_SIGNATURE_END;
    Header.SectionCount = 1;
    Header.ErrorSeverity = Front.HeaderSeverity;
    Header.ValidationBits = CPER_HEADER_TIME_STAMP_VALID;
    Header.RecordLength = static_cast<UINT32>(Front.RecordLength);
    EFI_STATUS Status = ElogGetTime(&Header.TimeStamp);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from ElogGetTime\n", Status);
    }
    Header.NotificationType = *Front.pNotificationType;
    UINT32 HeaderFlags = 0;
    Status = VornUpdateCperHeaderFlags(Front.HeaderSeverity, Front.PreviousError, FALSE, &HeaderFlags);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornUpdateCperHeaderFlags\n", Status);
    }
    Header.Flags = HeaderFlags;

    CPER_SECTION_DESCRIPTOR& Descriptor = pCper->Descriptor;
    Descriptor.SectionOffset = sizeof(CPER_RECORD);
    Descriptor.SectionLength = static_cast<UINT32>(Front.SectionLength);
    Descriptor.Revision = CPER_REVISION;
    Descriptor.SecValidMask = 0;
    Descriptor.Flags = Front.DescriptorFlags;
    Descriptor.SectionType = *Front.pSectionType;
    Descriptor.Severity = Front.DescriptorSeverity;

    Trace(Level, "%a: Record severity %a flags 0x%x length %d, section %g severity %a flags 0x%x length %d\n",
          ConvertCperSeverityToString(Front.HeaderSeverity), HeaderFlags, Front.RecordLength, Front.pSectionType,
          ConvertCperSeverityToString(Front.DescriptorSeverity), Front.DescriptorFlags, Front.SectionLength);
}

void FillCperRecordFrontMachineCheck(UINT64 Level, const MCA_BANK_ERROR_INFO& Bank, const EFI_GUID& SectionType,
                                     UINT64 SectionLength, UINT64 RecordLength, BOOLEAN PreviousError,
                                     CPER_RECORD* pCper) {
    const UINT32 Severity = VornCperGetMachineCheckSeverity(Bank.McaStatus);
    UINT32 DescriptorFlags = 0;
    const EFI_STATUS Status = VornUpdateCperDescriptorFlagsMachineCheck(&Bank, &DescriptorFlags);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornUpdateCperDescriptorFlagsMachineCheck\n", Status);
    }
    const CPER_RECORD_FRONT Front{
        .HeaderSeverity = Severity,
        .DescriptorSeverity = Severity,
        .pNotificationType = Severity == CperSeverityFatal ? &gCperNotifyMachineCheckExceptionGuid
                                                           : &gCperNotifyCorrectedMachineCheckGuid,
        .pSectionType = &SectionType,
        .DescriptorFlags = DescriptorFlags,
        .SectionLength = SectionLength,
        .RecordLength = RecordLength,
        .PreviousError = PreviousError,
    };
    FillCperRecordFront(Level, Front, pCper);
}

void FillCperRecordFrontIo(UINT64 Level, const CPER_IO_CLASS& Class, const EFI_GUID& SectionType,
                           UINT64 SectionLength, UINT64 RecordLength, BOOLEAN PreviousError, CPER_RECORD* pCper,
                           const CHAR8* Caller) {
    const bool IsPrevious = PreviousError != FALSE;
    const CPER_RECORD_FRONT Front{
        .HeaderSeverity = IsPrevious ? UINT32{CperSeverityFatal} : Class.HeaderSeverity,
        .DescriptorSeverity = IsPrevious ? UINT32{CperSeverityFatal} : Class.DescriptorSeverity,
        .pNotificationType = &gCperNotifyPcieGuid,
        .pSectionType = &SectionType,
        .DescriptorFlags = CPER_DESCRIPTOR_FLAG_PRIMARY,
        .SectionLength = SectionLength,
        .RecordLength = RecordLength,
        .PreviousError = PreviousError,
    };
    FillCperRecordFront(Level, Front, pCper);
    if (Class.FruText == nullptr) {
        return;
    }
    const EFI_STATUS Status = CopyText(pCper->Descriptor.FruString, CPER_FRU_STRING_SIZE, Class.FruText);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r copying FRU text\n", Status);
        return;
    }
    pCper->Descriptor.SecValidMask |= CPER_DESCRIPTOR_FRU_STRING_VALID;
}
