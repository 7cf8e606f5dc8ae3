// What a machine check means for the thread and the machine.
#pragma once

#include "Include/ErrorRecordBuffer.h"

// The class of an error with that MCA_STATUS.
MCE_CLASS VornGetMceClass(UINT64 McaStatus);
