// Whether rows that were repaired while the system runs hold: the patrol scrubber reads them again.
#pragma once

#include "Platform/Base.h"

// 1: a threshold counter that is set again raises an SMI; else nothing. Nothing ever changes it.
extern UINT32 mRtPprThresholdInterruptMode;

// Scrubs every row that is being served and reports what its bank says then. TRUE when the rows were verified,
// whatever came of it; FALSE when runtime repair is disabled, no completion is due, or the PSP reported a failure.
// Where rows were verified or a failure was reported, the state is ready for the next request.
BOOLEAN IsRtPprRepairedSuccess();

// Suspends (Adjust TRUE) or resumes the counting of corrected errors at the entry's memory controller.
// EntryIndex: of the completion-check table. EFI_INVALID_PARAMETER for an index behind it; EFI_NOT_FOUND when the
// socket's IO hub is unknown; else the RAS service's status.
EFI_STATUS RtPprAdjustErrCounter(BOOLEAN Adjust, UINT32 EntryIndex);
