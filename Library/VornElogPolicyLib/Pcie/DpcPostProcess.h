// What BMC and OS learn of a containment event at the end of the SMI.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"
#include "Include/PciDeviceState.h"
#include "Library/VornElogPolicyLib/Pcie/SelEvent.h"

// All three take the record of a port and its chipset data, the port's queued state, its slot, and what this run of
// post-processing has sent already. pSelData becomes the event of the record, pSelStatus EFI_SUCCESS when an event
// went to the event log. *pIsPostProcessingRequired: the OS is to be notified. NULL pointers are traced and nothing
// is done.

// The RP PIO registers of a root port whose own programmed IO failed; nothing for another port or another error.
void VornElogSmmPostProcessErrorRecordPcieDpcRpPio(CPER_RECORD* pCper,
                                                   const KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData,
                                                   const PCI_DEVICE_STATE* pPciDeviceState, PCIE_SEL_DATA* pSelData,
                                                   const PCI_SLOT_NUMBER_DATA* pSlotNumberData,
                                                   EFI_STATUS* pSelStatus, PCIE_ALREADY_LOGGED* pAlreadyLogged,
                                                   BOOLEAN* pIsPostProcessingRequired);

// The OS recovers the port. *pIsPostProcessingRequired TRUE asks for SCI cause SCI_CAUSE_DPC_EVENT and nothing else;
// it stays as it is for a port whose recovery the OS has already given up.
void VornElogSmmPostProcessErrorRecordPcieDpcTriggerOnDpcOs(
    CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData, const PCI_DEVICE_STATE* pPciDeviceState,
    PCIE_SEL_DATA* pSelData, const PCI_SLOT_NUMBER_DATA* pSlotNumberData, EFI_STATUS* pSelStatus,
    PCIE_ALREADY_LOGGED* pAlreadyLogged, BOOLEAN* pIsPostProcessingRequired);

// The firmware has released the port and reports the error itself, the record's severities raised; with
// SCI_CAUSE_APEI_GHES as any PCIe error.
void VornElogSmmPostProcessErrorRecordPcieDpcTriggerOnNonDpcOs(
    CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData, const PCI_DEVICE_STATE* pPciDeviceState,
    PCIE_SEL_DATA* pSelData, const PCI_SLOT_NUMBER_DATA* pSlotNumberData, EFI_STATUS* pSelStatus,
    PCIE_ALREADY_LOGGED* pAlreadyLogged, BOOLEAN* pIsPostProcessingRequired);
