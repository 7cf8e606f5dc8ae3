// The request in a header log, and whether a function answers to its address.
#pragma once

#include "Include/PciDeviceState.h"

enum TLP_HEADER_FMT_TYPE : UINT8 { TlpOther = 0, TlpMemoryWrite = 1, TlpMemoryRead = 2 };

// Kind of the request whose header was logged: four doublewords, as the register has them. TlpOther for NULL.
TLP_HEADER_FMT_TYPE VornElogGetTlpHeaderFmtType(const PCI_DEVICE_STATE* pPciDeviceState, const UINT32* pHeaderLog);

// TRUE when a base address register or, of a bridge, a memory window of the function decodes the address of the
// memory request whose header was logged. The base address registers are sized and restored. FALSE for NULL, for
// other requests and for other header types.
BOOLEAN VornElogSmmCheckMemAccessForPcieDev(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, const UINT32* pHeaderLog);

// The two header types; Address is a byte address.
BOOLEAN VornElogSmmCheckMemAccessForPcieDevType0Header(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT64 Address);
BOOLEAN VornElogSmmCheckMemAccessForPcieDevType1Header(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT64 Address);
