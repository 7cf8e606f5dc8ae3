// What runtime post-package repair remembers between a request and its verification.
#pragma once

#include "Include/RuntimePpr.h"

extern BOOLEAN mRtPprEn;                 // runtime repair is enabled
extern BOOLEAN mPspRtPprComplFlag;       // the PSP's completion arrived, or was forced: verification is due
extern UINT8 mQueueFront;                // of the repair service's queue, which keeps it
extern UINT32 mQueueFull;                // the queue is full; kept by the repair service
extern BOOLEAN mReadyForNextRtPprReq;    // a new request may be started
extern UINT32 mNumOfRtPptEntryInServed;  // entries of the completion-check table that are being served
extern UINT32 RtPprRepairStatus;         // what the PSP reported; not 0: the repair failed

// Request blocks exchanged with the PSP; NULL unless runtime repair is enabled.
extern RUNTIME_PPR_REQUEST_BLOCK* mRtPprReqDataBlock;
extern RUNTIME_PPR_REQUEST_BLOCK* mEcsRtPprReqDataBlock;
extern UINT64 mPspBiosMboxCmdRegAddr;  // MMIO address of the PSP BIOS mailbox's command register

extern RUNTIME_PPR_CHECK_ENTRY mChkRtPprComplStruct[RUNTIME_PPR_CHECK_ENTRIES];

// Entries of the completion-check table that are being served, as many as it can hold.
UINT32 RuntimePprEntriesInServed();

// Forgets what was being served: the next request may start.
void ResetRuntimePprState();

// Gives the results to whoever registered for them; nobody having done so is no error. Results: one
// RUNTIME_PPR_RESULT for each entry of the completion-check table.
void ReportRuntimePprResults(UINT32 RepairStatus, const UINT8* Results);
