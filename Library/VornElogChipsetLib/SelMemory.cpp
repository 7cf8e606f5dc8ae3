#include "Library/VornElogChipsetLib/SelMemory.h"

#include "Include/SelData.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/DimmLocation.h"
#include "Library/VornElogChipsetLib/SelTransport.h"

namespace {

UINT8 SensorTypeOf(UINT8 SensorNumber) {
    switch (SensorNumber) {
        case SENSOR_MEMORY_ECC:
            return SEL_SENSOR_TYPE_OEM_MEMORY_ECC;
        case SENSOR_MEMORY_POISON:
            return SEL_SENSOR_TYPE_OEM_MEMORY_POISON;
        default:
            return SEL_SENSOR_TYPE_OEM_MEMORY;
    }
}

UINT8 LocationByte(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm) {
    return static_cast<UINT8>(ElogGetDimmLocation(Socket, UmcChannel, Dimm));
}

// High nibble of an event byte that announces the repair to come; the other cases' value differs by event.
UINT8 PprNibble(UINT8 NoPpr) {
    switch (mPrivateDataVornElogIpmi.ApplyPprType) {
        case ApplyPprTypeHard:
            return 0x40;
        case ApplyPprTypeSoft:
            return 0x50;
        default:
            return NoPpr;
    }
}

}  // namespace

void ElogLogMemoryEvent(UINT8 SensorNumber, UINT8 Data1, UINT8 Data2, UINT8 Data3) {
    Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: Logging Message ID MEM%d1%02d\n", SensorNumber - 14,
          Data1 & 0xF);
    const ELOG_SEL_DATA Body{SensorTypeOf(SensorNumber), SensorNumber, SEL_EVENT_TYPE_OEM_ERROR, Data1, Data2, Data3};
    ElogBmcData(&Body);
}

void ElogLogMemoryThresholdError(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm, UINT8 Threshold) {
    const UINT64 Level = mPrivateDataVornElogIpmi.SerDbgLevel;
    UINT8 Data1 = 0x30;
    UINT8 Data2 = 0;
    switch (Threshold) {
        case 1:
            Trace(Level, "%a: Logging Threshold (critical) event\n");
            Data2 = PprNibble(0x10) | 0x3;
            break;
        case 2:
        case 7:
            Trace(Level, "%a: Logging Threshold/2 (PPR) event\n");
            Data1 = mPrivateDataVornElogIpmi.ApplyPprType == ApplyPprTypeNone ? 0x30 : 0x34;
            Data2 = PprNibble(0x10) | 0x4;
            break;
        case 4:
            Trace(Level, "%a: Logging Threshold/8 MPR event\n");
            Data2 = 0x61;
            break;
        default:
            Trace(DEBUG_ERROR, "%a: ERROR Threshold %d unrecognized, aborting...\n", Threshold);
            return;
    }
    ElogLogMemoryEvent(SENSOR_MEMORY_THRESHOLD, Data1, Data2, LocationByte(Socket, UmcChannel, Dimm));
}

void ElogLogMemoryCorrectedEccError(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm) {
    ElogLogMemoryEvent(SENSOR_MEMORY_ECC, 0x3E, 0xF7, LocationByte(Socket, UmcChannel, Dimm));
}

void ElogLogMemoryUncorrectedEccErrorPoisonDetection(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm) {
    ElogLogMemoryEvent(SENSOR_MEMORY_ECC, 0x44, PprNibble(0xF0) | 0x1, LocationByte(Socket, UmcChannel, Dimm));
}

void ElogLogMemoryUncorrectedEccErrorPoisonConsumption(UINT16 Socket, UINT16 UmcChannel, UINT16 Dimm) {
    ElogLogMemoryEvent(SENSOR_MEMORY_POISON, 0x4E, PprNibble(0xF0) | 0x2, LocationByte(Socket, UmcChannel, Dimm));
}
