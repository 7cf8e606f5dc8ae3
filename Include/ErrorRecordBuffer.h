// Element of the corrected, deferred, uncorrected and PCI record buffers.
#pragma once

#include "Include/ChipsetSupportData.h"
#include "Include/Cper.h"

enum MCE_CLASS : UINT32 {
    MceClassPccFatal = 0,
    MceClassCorrected = 1,
    MceClassUcThreadFatal = 2,
    MceClassUcThreadRecoverable = 3,
    MceClassDeferred = 4,
    MceClassTransparent = 5,
    MceClassInvalid = 6,
};

// The buffer owns both blocks.
struct ERROR_RECORD_BUFFER_ENTRY {
    UINT32 MceClass;
    UINT8 Processed;                  // deferred buffer: post-processed in an SMI before
    UINT8 PoisonDetectionReported;    // deferred buffer: reported as a poison creation
    UINT8 PoisonConsumptionReported;  // deferred buffer: a later uncorrected error consumed it, reported
    CPER_RECORD* pCper;
    KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData;
};
KYR_RECORD(ERROR_RECORD_BUFFER_ENTRY, 24);
KYR_FIELD(ERROR_RECORD_BUFFER_ENTRY, Processed, 4);
KYR_FIELD(ERROR_RECORD_BUFFER_ENTRY, PoisonDetectionReported, 5);
KYR_FIELD(ERROR_RECORD_BUFFER_ENTRY, PoisonConsumptionReported, 6);
KYR_FIELD(ERROR_RECORD_BUFFER_ENTRY, pCper, 8);
KYR_FIELD(ERROR_RECORD_BUFFER_ENTRY, pKyrChipsetSupportData, 16);
