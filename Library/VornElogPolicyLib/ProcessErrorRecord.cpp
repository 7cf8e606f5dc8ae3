#include "Library/VornElogPolicyLib/ProcessErrorRecord.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornCperCreateLib/CxlSections.h"
#include "Library/VornElogPolicyLib/Cxl/CxlRecord.h"
#include "Library/VornElogPolicyLib/MachineCheck/ProcessMachineCheck.h"
#include "Library/VornElogPolicyLib/Memory/MemoryRecord.h"
#include "Library/VornElogPolicyLib/Pcie/PcieRecord.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/RecordFields.h"

// Hands the record to the processing of its kind; false when there is none.
static bool ProcessByKind(const CPER_RECORD* pCper, KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                          const EFI_GUID& Type) {
    if (IsGuidEqual(Type, gCperSectionProcessorSpecificGuid)) {
        VornElogSmmProcessErrorRecordMachineCheck(pCper, pKyrChipsetSupportData);
    } else if (IsGuidEqual(Type, gCperSectionPlatformMemoryGuid)) {
        VornElogSmmProcessErrorRecordMemory(pCper, pKyrChipsetSupportData);
    } else if (IsGuidEqual(Type, gCperSectionPcieGuid)) {
        VornElogSmmProcessErrorRecordPcie(pCper, pKyrChipsetSupportData);
    } else if (VornElogCxlCheckComponentEventSectionType(&Type)) {
        VornElogSmmProcessErrorRecordCxlComponent(pCper, pKyrChipsetSupportData);
    } else if (IsGuidEqual(Type, gCperSectionCxlProtocolGuid)) {
        VornElogSmmProcessErrorRecordCxlProtocol(pCper, pKyrChipsetSupportData);
    } else {
        return false;
    }
    return true;
}

EFI_STATUS VornElogSmmProcessErrorRecord(const CPER_RECORD* pCper, KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData) {
    if (pCper == nullptr || pKyrChipsetSupportData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (!IsRecordFrontComplete(pCper)) {
        return EFI_INVALID_PARAMETER;
    }

    // Every pass looks at the first descriptor on purpose: a record of n sections is processed n times as its first
    // one. The records that the driver makes hold one section.
    const UINT16 SectionCount = pCper->Header.SectionCount;
    const EFI_GUID Type = RecordSectionType(pCper);
    for (UINT16 Section = 0; Section < SectionCount; Section++) {
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: section %d of %d, type %g, header severity %d\n",
              Section + 1, SectionCount, &Type, pCper->Header.ErrorSeverity);
        if (!ProcessByKind(pCper, pKyrChipsetSupportData, Type)) {
            Trace(DEBUG_ERROR, "%a: ERROR CPER Descriptor SectionType GUID %g unrecognized\n", &Type);
        }
    }
    return EFI_SUCCESS;
}
