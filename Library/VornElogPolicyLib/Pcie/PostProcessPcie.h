// What becomes of the filed PCIe and CXL records at the end of the SMI: events for the BMC, a notification and
// perhaps an NMI for the OS.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"
#include "Library/VornElogPolicyLib/Pcie/SelEvent.h"

// Goes through the PCI buffer in order of filing: events, severities, notification and containment of each record.
// A record that fails does not stop the walk.
void VornElogSmmPostProcessErrorRecordsPci();

// The step of one record of each kind. Sends what the event log is to have and adjusts the record's severities.
// *pIsPostProcessingRequired: whether the OS is to be notified; *pSciCause: with which SCI_CAUSE_ bits.
void VornElogSmmPostProcessErrorRecordPcie(CPER_RECORD* pCper, PCIE_ALREADY_LOGGED* pAlreadyLogged,
                                           BOOLEAN* pIsPostProcessingRequired, UINT32* pSciCause);
void VornElogSmmPostProcessErrorRecordCxlProtocol(CPER_RECORD* pCper, PCIE_ALREADY_LOGGED* pAlreadyLogged,
                                                  BOOLEAN* pIsPostProcessingRequired, UINT32* pSciCause);
void VornElogSmmPostProcessErrorRecordCxlComponent(CPER_RECORD* pCper, PCIE_ALREADY_LOGGED* pAlreadyLogged,
                                                   BOOLEAN* pIsPostProcessingRequired, UINT32* pSciCause);

// Events of a root port or event collector, and of any other function. pSelData: filled with the event that the
// severities give. pSelStatus: EFI_SUCCESS once an event went out; left alone otherwise.
// pIsPostProcessingRequired: set when an event went out.
void VornElogSmmPostProcessErrorRecordPcieOrCxlRootPort(
    const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData,
    const PCI_DEVICE_STATE* pPciDeviceState, PCIE_SEL_DATA* pSelData, const PCI_SLOT_NUMBER_DATA* pSlotNumberData,
    EFI_STATUS* pSelStatus, PCIE_ALREADY_LOGGED* pAlreadyLogged, BOOLEAN* pIsPostProcessingRequired);
void VornElogSmmPostProcessErrorRecordPcieOrCxlDsDevice(
    const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA* pChipsetSupportData,
    const PCI_DEVICE_STATE* pPciDeviceState, PCIE_SEL_DATA* pSelData, const PCI_SLOT_NUMBER_DATA* pSlotNumberData,
    EFI_STATUS* pSelStatus, PCIE_ALREADY_LOGGED* pAlreadyLogged, BOOLEAN* pIsPostProcessingRequired);

// The severities of all filed records of one function, folded from corrected on in order of filing.
void VornElogSmmPostProcessErrorRecordsPciGetHighestSeverityForSbdf(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                                                    UINT16* pHighestPcieOrCxlErrorHeaderSeverity,
                                                                    UINT16* pHighestPcieOrCxlErrorDescriptorSeverity);
