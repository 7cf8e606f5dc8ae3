#include "Library/VornElogPolicyLib/Cxl/CxlRecord.h"

#include "Include/CxlRegisters.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/Pcie/PcieRecord.h"
#include "Library/VornElogPolicyLib/RecordFields.h"
#include "Library/VornElogPolicyLib/Storm/ShutdownCxl.h"

// Where a component event section holds the flags of its event record.
static constexpr UINTN EVENT_FLAGS_OFFSET =
    offsetof(CPER_CXL_COMPONENT_SECTION, ComponentEventLog) + offsetof(CXL_EVENT_RECORD, Flags);

EFI_STATUS VornElogSmmProcessErrorRecordCxlProtocol(const CPER_RECORD* pCper,
                                                    KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData) {
    EFI_STATUS Status = FileRecordInPciBuffer(pCper, pKyrChipsetSupportData);
    if (EFI_ERROR(Status) || !IsStormDetected(pCper, pKyrChipsetSupportData)) {
        return Status;
    }
    PCI_SBDF Sbdf;
    const PCI_DEVICE_STATE* pPciDeviceState = DeviceStateOfRecord(pCper, &Sbdf);
    if (pPciDeviceState == nullptr) {
        return EFI_NOT_FOUND;
    }
    Status = VornElogSmmDisableCxlProtocolErrorGeneration(pPciDeviceState);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogSmmDisableCxlProtocolErrorGeneration\n", Status);
    }
    return Status;
}

EFI_STATUS VornElogSmmProcessErrorRecordCxlComponent(const CPER_RECORD* pCper,
                                                     KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData) {
    EFI_STATUS Status = FileRecordInPciBuffer(pCper, pKyrChipsetSupportData);
    if (EFI_ERROR(Status) || !IsStormDetected(pCper, pKyrChipsetSupportData)) {
        return Status;
    }
    PCI_SBDF Sbdf;
    const PCI_DEVICE_STATE* pPciDeviceState = DeviceStateOfRecord(pCper, &Sbdf);
    if (pPciDeviceState == nullptr) {
        return EFI_NOT_FOUND;
    }
    Status = VornElogSmmDisableCxlComponentErrorGeneration(
        pPciDeviceState, CxlEventFlags::Severity::Get(SectionField<UINT8>(pCper, EVENT_FLAGS_OFFSET)));
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogSmmDisableCxlComponentErrorGeneration\n", Status);
    }
    return Status;
}
