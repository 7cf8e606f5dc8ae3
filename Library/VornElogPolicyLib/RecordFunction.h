// Which PCI function a record is about.
#pragma once

#include "Include/Cper.h"
#include "Include/PciDeviceState.h"

// The function that a PCIe, PCI component, CXL protocol or CXL component record names. False, and *pSbdf zero, for
// another kind of record, for one that ends before it says, and for a CXL port that is known by its RCRB only.
bool GetRecordFunction(const CPER_RECORD* pCper, PCI_SBDF* pSbdf);
