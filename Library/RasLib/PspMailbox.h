// Where the PSP's BIOS mailbox lies.
#pragma once

#include "Platform/Base.h"

// MMIO address of the socket's PSP BIOS mailbox command register. FALSE, with Address left as it is, when the
// socket's IO hub is not in the bus map or the PSP's base address is not set.
BOOLEAN GetPspBiosMboxRegAddr(UINT8 Socket, UINT64* Address);
