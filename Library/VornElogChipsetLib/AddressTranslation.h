// From a memory controller's bank to the normalized address of the error.
#pragma once

#include "Include/ChipsetSupportData.h"

struct DRAM_ADDRESS;

// The RAS service's translation; a failure shows in the address that it leaves.
using DRAM_TO_NORMALIZED = void (*)(UINT8 Socket, UINT8 Die, UINT8 Channel, const DRAM_ADDRESS* pDramAddress,
                                    NORMALIZED_ADDRESS* pNormalizedAddress);

// Normalized address of the error in bank BankIndex of the scan, in bytes, with the memory controller's place.
// EFI_INVALID_PARAMETER for NULL pointers or a bank index that the scan cannot hold; EFI_UNSUPPORTED for anything but
// a valid error of a memory controller whose address can be translated; EFI_SUCCESS.
EFI_STATUS TranslateToNormalizedAddress(const RasMcaErrorInfo* pRasMcaErrorInfo, UINT8 BankIndex,
                                        DRAM_TO_NORMALIZED DramToNormalized, NORMALIZED_ADDRESS* pNormalizedAddress);

// Number of bank-address bits behind a chip select, 0 to 6, from the memory controller's address configuration; 255
// on failure. Channel and ChipSelect must be the memory controller's.
UINT8 GetNumOfBABits(UINT8 Socket, UINT16 Channel, UINT8 ChipSelect);

// Traces a normalized address. EFI_INVALID_PARAMETER when it is NULL.
EFI_STATUS VornUmcDisplayNormalizedAddressInfo(const NORMALIZED_ADDRESS* pNormalizedAddress);
