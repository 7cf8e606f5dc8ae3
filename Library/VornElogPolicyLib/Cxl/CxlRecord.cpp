#include "Library/VornElogPolicyLib/Cxl/CxlRecord.h"

#include "Include/CxlRegisters.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/Pcie/PcieRecord.h"
#include "Library/VornElogPolicyLib/RecordFields.h"
#include "Library/VornElogPolicyLib/Storm/ShutdownCxl.h"
#include "Library/VornElogPolicyLib/Storm/SmiStorm.h"

// Where a component event section holds the flags of its event record.
static constexpr UINTN EVENT_FLAGS_OFFSET =
    offsetof(CPER_CXL_COMPONENT_SECTION, ComponentEventLog) + offsetof(CXL_EVENT_RECORD, Flags);

// Files the record. In *ppStormState the state of the function whose storm it belongs to, NULL where it belongs to
// none.
static EFI_STATUS FileAndCheckStorm(const CPER_RECORD* pCper, KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                    const PCI_DEVICE_STATE** ppStormState,
                                    const CHAR8* Caller = __builtin_FUNCTION()) {
    *ppStormState = nullptr;
    const EFI_STATUS Status = FileRecordInPciBuffer(pCper, pKyrChipsetSupportData, Caller);
    if (EFI_ERROR(Status) || !IsStormDetected(pCper, pKyrChipsetSupportData, Caller)) {
        return Status;
    }
    PCI_SBDF Sbdf;
    *ppStormState = DeviceStateOfRecord(pCper, &Sbdf, Caller);
    return *ppStormState == nullptr ? EFI_NOT_FOUND : EFI_SUCCESS;
}

EFI_STATUS VornElogSmmProcessErrorRecordCxlProtocol(const CPER_RECORD* pCper,
                                                    KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData) {
    const PCI_DEVICE_STATE* pStormState = nullptr;
    EFI_STATUS Status = FileAndCheckStorm(pCper, pKyrChipsetSupportData, &pStormState);
    if (pStormState == nullptr) {
        return Status;
    }
    Status = VornElogSmmDisableCxlProtocolErrorGeneration(pStormState);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogSmmDisableCxlProtocolErrorGeneration\n", Status);
    }
    return Status;
}

EFI_STATUS VornElogSmmProcessErrorRecordCxlComponent(const CPER_RECORD* pCper,
                                                     KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData) {
    const PCI_DEVICE_STATE* pStormState = nullptr;
    EFI_STATUS Status = FileAndCheckStorm(pCper, pKyrChipsetSupportData, &pStormState);
    if (pStormState == nullptr) {
        return Status;
    }
    Status = VornElogSmmDisableCxlComponentErrorGeneration(
        pStormState, CxlEventFlags::Severity::Get(SectionField<UINT8>(pCper, EVENT_FLAGS_OFFSET)));
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogSmmDisableCxlComponentErrorGeneration\n", Status);
    }
    return Status;
}
