// What all records have in common: header and section descriptor (UEFI 2.10, appendix N.2.1 and N.2.2).
#pragma once

#include "Include/Cper.h"
#include "Include/McaErrorInfo.h"

// What the kinds of record put into the common front.
struct CPER_RECORD_FRONT {
    UINT32 HeaderSeverity;
    UINT32 DescriptorSeverity;
    const EFI_GUID* pNotificationType;
    const EFI_GUID* pSectionType;
    UINT32 DescriptorFlags;
    UINT64 SectionLength;  // bytes
    UINT64 RecordLength;   // bytes, as the caller allocated them
    BOOLEAN PreviousError;
};

// Header flags of a record: recovered when it was corrected, previous error, simulated. EFI_INVALID_PARAMETER when
// pHeaderFlags is NULL.
EFI_STATUS VornUpdateCperHeaderFlags(UINT32 Severity, BOOLEAN PreviousError, BOOLEAN Simulated, UINT32* pHeaderFlags);

// Descriptor flags of a machine-check bank. EFI_INVALID_PARAMETER when a pointer is NULL.
EFI_STATUS VornUpdateCperDescriptorFlagsMachineCheck(const MCA_BANK_ERROR_INFO* pRasMcaBankErrorInfo,
                                                     UINT32* pDescriptorFlags);

// Fills header and descriptor of a zeroed record that has one section. Without a clock the time stamp stays zero but
// is marked valid: no record is dropped for want of a clock.
void FillCperRecordFront(UINT64 Level, const CPER_RECORD_FRONT& Front, CPER_RECORD* pCper);

// The same for the kinds that a machine-check bank yields: severity, flags and notification follow from the bank.
void FillCperRecordFrontMachineCheck(UINT64 Level, const MCA_BANK_ERROR_INFO& Bank, const EFI_GUID& SectionType,
                                     UINT64 SectionLength, UINT64 RecordLength, BOOLEAN PreviousError,
                                     CPER_RECORD* pCper);

// Severities and FRU text of a record of a PCI function.
struct CPER_IO_CLASS {
    UINT32 HeaderSeverity;
    UINT32 DescriptorSeverity;
    const CHAR8* FruText;  // NULL: none
};

// The same for the kinds that a PCI function yields. A previous error is fatal, whatever its class.
void FillCperRecordFrontIo(UINT64 Level, const CPER_IO_CLASS& Class, const EFI_GUID& SectionType,
                           UINT64 SectionLength, UINT64 RecordLength, BOOLEAN PreviousError, CPER_RECORD* pCper,
                           const CHAR8* Caller = __builtin_FUNCTION());
