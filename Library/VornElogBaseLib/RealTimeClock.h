// The CMOS real-time clock (Motorola MC146818A register set) and CPER time stamps.
#pragma once

#include "Include/Cper.h"

// Reads the clock. EFI_INVALID_PARAMETER for NULL; EFI_DEVICE_ERROR when the clock is not readable (the time
// stamp stays as it is); EFI_SUCCESS.
EFI_STATUS ElogGetTime(CPER_TIMESTAMP* pTime);

// Waits until no update is in progress, at most about Timeout microseconds. EFI_DEVICE_ERROR when the clock's
// battery is dead or the time is up; EFI_SUCCESS.
EFI_STATUS RtcWaitToUpdate(UINT64 Timeout);

// Seconds from pTimePast to pTimeNow, 0 when it lies later or an argument is NULL. Months count 30 days, years 365,
// centuries 36500.
UINT32 CperGetNoofSecondsPast(const CPER_TIMESTAMP* pTimeNow, const CPER_TIMESTAMP* pTimePast);
