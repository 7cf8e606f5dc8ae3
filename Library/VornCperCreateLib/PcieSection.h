// The record of a PCIe function with a PCI Express error section (UEFI 2.10, appendix N.2.7).
#pragma once

#include "Platform/Base.h"

// Bytes of the section and of the record.
UINT64 VornCperGetPcieSectionLength();
UINT64 VornCperGetPcieRecordLength();
