// Memory pages whose corrected errors ask the OS to retire them.
#pragma once

#include "Include/PolicyPrivateData.h"

// As long as no more notifications than these were tried, another one may be: 17 fit.
inline constexpr UINT8 ESXI_PAGE_RETIRE_MAX_NOTIFICATIONS = 16;

// Page of a normalized address.
constexpr UINT64 MemoryPageAddressOf(UINT64 NormalizedAddress) {
    return NormalizedAddress >> 12;
}

// Adds ErrorCount errors to the page's entry, which a page that comes first takes from the front.
// EFI_INVALID_PARAMETER: no array; EFI_UNSUPPORTED: the notifications are used up; EFI_BUFFER_TOO_SMALL: every entry
// holds another page.
EFI_STATUS VornElogSmmEsxiMemoryPageRetireUpdateCeccCount(UINT32 PageThreshold, UINT64 MemoryPageAddress,
                                                          UINT32 ErrorCount);

// Whether the page has reached the threshold and no notification of it was tried.
// pIndex: the page's entry, 0xDEADBEEF when it has none. ppEntry: the first entry of the array, whichever matched;
// not written where the array is missing or the notifications are used up.
// EFI_INVALID_PARAMETER: a NULL pointer or no array; EFI_UNSUPPORTED: the notifications are used up; EFI_NOT_FOUND:
// no entry holds the page.
EFI_STATUS VornElogSmmIsEsxiMemoryPageRetireThresholdExceeded(UINT32 PageThreshold, UINT64 MemoryPageAddress,
                                                              UINT32* pIndex, ESXI_PAGE_RETIRE_ENTRY** ppEntry,
                                                              BOOLEAN* pExceeded);
