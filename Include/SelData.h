// Event part of an IPMI system event log record (IPMI 2.0, section 32.1).
#pragma once

#include "Include/Layout.h"

struct ELOG_SEL_DATA {
    UINT8 SensorType;
    UINT8 SensorNumber;
    UINT8 EventDirType;  // bit 7 direction, 0 = assertion; bits 6:0 event/reading type
    UINT8 EventData1;
    UINT8 EventData2;
    UINT8 EventData3;
};
KYR_RECORD(ELOG_SEL_DATA, 6);
