// Debug lines to a serial port.
#include "Platform/Hardware.h"
#include "Platform/State.h"
#include "Platform/X64/Settings.h"

namespace {

constexpr UINT16 LINE_STATUS_REGISTER = SERIAL_PORT + 5;
constexpr UINT8 TRANSMITTER_EMPTY = 0x20;

KYR_STATE constinit UINT32 mSerialPortLock = 0;

// False when the transmitter did not get empty.
bool WriteByte(CHAR8 Byte) {
    for (UINT32 Poll = 0; Poll < SERIAL_POLL_LIMIT; Poll++) {
        if ((IoRead8(LINE_STATUS_REGISTER) & TRANSMITTER_EMPTY) != 0) {
            IoWrite8(SERIAL_PORT, static_cast<UINT8>(Byte));
            return true;
        }
    }
    return false;
}

bool WriteText(const CHAR8* Text, UINTN Length) {
    for (UINTN At = 0; At < Length; At++) {
        if ((Text[At] == '\n' && !WriteByte('\r')) || !WriteByte(Text[At])) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool DebugPrintLevelEnabled(UINT64 Level) {
    return (PRINTED_DEBUG_LEVELS & Level) != 0;
}

void DebugPortWrite(const CHAR8* Prefix, UINTN PrefixLength, const CHAR8* Message, UINTN MessageLength) {
    while (__atomic_exchange_n(&mSerialPortLock, 1, __ATOMIC_ACQUIRE) != 0) {
        __asm__ __volatile__("pause" : : : "memory");
    }
    if (WriteText(Prefix, PrefixLength)) {
        WriteText(Message, MessageLength);
    }
    __atomic_store_n(&mSerialPortLock, 0, __ATOMIC_RELEASE);
}
