#include "Library/VornElogChipsetLib/SelRegisters.h"

#include "Include/SelData.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/SelTransport.h"

namespace {

constexpr UINT8 SENSOR_CONFIGURATION_REGISTER = 0x1A;
constexpr UINT8 SENSOR_ERROR_INFO = 0x2E;
constexpr UINT8 SENSOR_MMIO_REGISTER = 0x49;
constexpr UINT8 SENSOR_CXL_RAS_CAPABILITY = 0x57;
constexpr UINT8 EVENT_ERROR_INFO = 0xA2;

void SendRegisterData(UINT8 SensorNumber, UINT8 Data1, UINT8 Data2, UINT8 Data3) {
    const ELOG_SEL_DATA Body{SEL_SENSOR_TYPE_OEM_DATA, SensorNumber, SEL_EVENT_TYPE_OEM_DATA, Data1, Data2, Data3};
    ElogBmcData(&Body);
}

struct ERROR_INFO_MESSAGE {
    UINT8 Flag;
    const CHAR8* Id;
    const CHAR8* Text;
};

constexpr ERROR_INFO_MESSAGE ErrorInfoMessages[] = {
    {0x1, "PST0089", "POST errors"},
    {0x2, "PST0090", "previous-boot errors"},
    {0x4, "PST0091", "memory-training errors"},
};

}  // namespace

void ElogLogRegisterInfo(UINT16 RegisterOffset, UINT32 Value) {
    if (RegisterOffset % sizeof(UINT32) != 0) {
        Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: WARN Register not on DWORD boundary\n");
    }
    Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: Register 0x%04x value 0x%08x\n", RegisterOffset, Value);
    for (unsigned Index = 0; Index < sizeof(Value); Index++) {
        const UINT8 Byte = SelByte(Value, Index);
        if (Byte != 0) {
            const UINT32 Offset = RegisterOffset + Index;
            SendRegisterData(SENSOR_CONFIGURATION_REGISTER, SelByte(Offset, 1), SelByte(Offset, 0), Byte);
        }
    }
}

void ElogLogMmioChipsetInfo(UINT32 Address, UINT32 Value) {
    if (Value == 0) {
        Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: MmioRegisterValue == 0, aborting...\n");
        return;
    }
    Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: Address 0x%08x value 0x%08x\n", Address, Value);
    SendRegisterData(SENSOR_MMIO_REGISTER, SelByte(Address, 0), SelByte(Address, 1), SelByte(Address, 2));
    SendRegisterData(SENSOR_MMIO_REGISTER, SelByte(Address, 3), SelByte(Value, 0), SelByte(Value, 1));
    SendRegisterData(SENSOR_MMIO_REGISTER, SelByte(Value, 2), SelByte(Value, 3), 0);
}

void ElogLogErrorInfo(UINT8 ErrorFlags, UINT8 Data) {
    for (const ERROR_INFO_MESSAGE& Message : ErrorInfoMessages) {
        if ((ErrorFlags & Message.Flag) != 0) {
            Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: Logging Message ID %a <= %a\n", Message.Id,
                  Message.Text);
        }
    }
    const ELOG_SEL_DATA Body{SEL_SENSOR_TYPE_OEM_DATA, SENSOR_ERROR_INFO, SEL_EVENT_TYPE_OEM_ERROR_INFO,
                             EVENT_ERROR_INFO,         ErrorFlags,        Data};
    ElogBmcData(&Body);
}

void ElogLogCxlRasCapabilityStructure(UINT8 Offset, UINT32 Value) {
    Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: Offset 0x%02x value 0x%08x\n", Offset, Value);
    SendRegisterData(SENSOR_CXL_RAS_CAPABILITY, Offset, SelByte(Value, 0), SelByte(Value, 1));
    if (Value >> 16 != 0) {
        SendRegisterData(SENSOR_CXL_RAS_CAPABILITY, static_cast<UINT8>(Offset + 2), SelByte(Value, 2),
                         SelByte(Value, 3));
    }
}
