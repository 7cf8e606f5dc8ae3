// What becomes of the filed PCIe and CXL records at the end of the SMI: events for the BMC, a notification and
// perhaps an NMI for the OS.
#pragma once

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

// The severities of all filed records of one function, folded from corrected on in order of filing.
void VornElogSmmPostProcessErrorRecordsPciGetHighestSeverityForSbdf(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                                                    UINT16* pHighestPcieOrCxlErrorHeaderSeverity,
                                                                    UINT16* pHighestPcieOrCxlErrorDescriptorSeverity);
