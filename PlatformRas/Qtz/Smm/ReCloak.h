// Cloaked machine-check banks: which are, and which become so again after the OS wrote to them.
#pragma once

#include "Platform/Base.h"

// The bank's bit in a cloak mask; none for a bank above 63, which no mask can name.
constexpr UINT64 McaBankMask(UINT64 Bank) {
    return Bank < 64 ? UINT64{1} << Bank : 0;
}

inline constexpr UINT64 MCA_BANK_UNKNOWN = 0xFF;

// Decodes the bank from the MSR whose write trapped on the processor and tells whether it must be cloaked again.
// Clears the bank's MCA_DESTAT where the write takes the whole error away. Bank is always set; it is
// MCA_BANK_UNKNOWN when the processor's save state cannot be had.
bool ReCloakCheck(UINT64 ProcessorNumber, UINT64* Bank);

// Whether the bank's contents are hidden from the OS on this processor.
bool IsMcaBankCloaked(UINT64 ProcessorNumber, UINT64 Bank);
