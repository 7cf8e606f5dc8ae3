// Uncorrected records at the end of an SMI.
#pragma once

#include "Include/ErrorRecordBuffer.h"

// Reports the uncorrected records, newest first, to SEL and OS, each with the deferred record that foretold it, and
// asks for containment. A record whose poison was consumed and reported before is left out.
void VornElogSmmPostProcessErrorRecordsUncorrected();

// SEL records, health event and repair request of one uncorrected record.
// pBufferEntryDeferred: the deferred record of the same cache line, NULL when there is none.
void VornElogSmmPostProcessErrorRecordUncorrectedReporting(const ERROR_RECORD_BUFFER_ENTRY* pBufferEntryUncorrected,
                                                           const ERROR_RECORD_BUFFER_ENTRY* pBufferEntryDeferred);
