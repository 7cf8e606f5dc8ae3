// Which PCI function a record is about.
#pragma once

#include "Include/Cper.h"
#include "Include/PciDeviceState.h"

// The function that a PCIe, PCI component, CXL protocol or CXL component record names; the RCRB base of a restricted
// CXL port is taken for one. False for another kind of record and for one that ends before it says.
bool GetRecordFunction(const CPER_RECORD* pCper, PCI_SBDF* pSbdf);
