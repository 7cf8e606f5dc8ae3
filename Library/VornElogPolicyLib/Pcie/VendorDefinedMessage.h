// Management traffic (MCTP over PCIe vendor-defined messages, DMTF DSP0238) that devices reject as an error.
#pragma once

#include "Include/PciDeviceState.h"

// *pIsVdm is TRUE when the TLP header is that of a vendor-defined message of type 1 with the DMTF's vendor ID.
// pHeaderLog: four doublewords, as the register has them.
// EFI_INVALID_PARAMETER: a NULL pointer.
EFI_STATUS VornElogSmmIsPcieVdmType1DmtfMessage(const PCI_DEVICE_STATE* pPciDeviceState, const UINT32* pHeaderLog,
                                                BOOLEAN* pIsVdm);

// The same for the function's captured AER header log. *pIgnorePcieVdmType1DmtfMessage stays FALSE when the upstream
// root port received several uncorrectable errors: the error cannot be tied to the one message.
// EFI_INVALID_PARAMETER: a NULL pointer, or no upstream root port. EFI_UNSUPPORTED: the root port or the function has
// no AER. Nothing is to be ignored then.
EFI_STATUS VornElogSmmCheckPcieVdmType1DmtfMsg(const PCI_DEVICE_STATE* pPciDeviceState,
                                               BOOLEAN* pIgnorePcieVdmType1DmtfMessage);

// The answer of VornElogSmmCheckPcieVdmType1DmtfMsg; false, and traced in the name of Caller, when it fails.
bool IsErrorOfDmtfMessage(const PCI_DEVICE_STATE& State, const CHAR8* Caller);
