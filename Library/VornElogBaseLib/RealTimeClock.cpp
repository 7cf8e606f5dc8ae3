#include "Library/VornElogBaseLib/RealTimeClock.h"

#include "Library/RasLib/Trace.h"
#include "Platform/Hardware.h"

namespace {

constexpr UINT16 CMOS_INDEX_PORT = 0x70;  // bit 7: NMI disabled
constexpr UINT16 CMOS_DATA_PORT = 0x71;
constexpr UINT16 CMOS_INDEX_SHADOW_PORT = 0x74;  // reads the index port's bit 7 back
using NmiDisable = Field<UINT8, 7>;

constexpr UINT8 RTC_SECONDS = 0x00;
constexpr UINT8 RTC_MINUTES = 0x02;
constexpr UINT8 RTC_HOURS = 0x04;
constexpr UINT8 RTC_DAY_OF_MONTH = 0x07;
constexpr UINT8 RTC_MONTH = 0x08;
constexpr UINT8 RTC_YEAR = 0x09;
constexpr UINT8 RTC_REGISTER_A = 0x0A;
constexpr UINT8 RTC_REGISTER_D = 0x0D;
constexpr UINT8 RTC_CENTURY = 0x32;
using UpdateInProgress = Field<UINT8, 7>;  // of register A
using ValidRamAndTime = Field<UINT8, 7>;   // of register D

constexpr UINT64 POLL_MICROSECONDS = 10;
constexpr UINT64 UPDATE_TIMEOUT_MICROSECONDS = 100000;
constexpr UINT8 TIMESTAMP_PRECISE = 1;

UINT8 ReadCmos(UINT8 Register) {
    const UINT8 Nmi = IoRead8(CMOS_INDEX_SHADOW_PORT) & NmiDisable::Mask;
    IoWrite8(CMOS_INDEX_PORT, Register | Nmi);
    return IoRead8(CMOS_DATA_PORT);
}

UINT8 ReadBcd(UINT8 Register) {
    const UINT8 Digits = ReadCmos(Register);
    return static_cast<UINT8>((Digits & 0xF) + 10 * (Digits >> 4));
}

UINT32 SecondsOf(const CPER_TIMESTAMP& Time) {
    const UINT32 Days = UINT32{Time.Century} * 36500 + UINT32{Time.Year} * 365 + UINT32{Time.Month} * 30 + Time.Day;
    const UINT32 Minutes = Days * 1440 + UINT32{Time.Hours} * 60 + Time.Minutes;
    return Minutes * 60 + Time.Seconds;
}

}  // namespace

EFI_STATUS RtcWaitToUpdate(UINT64 Timeout) {
    UINT8 RegisterD = ReadCmos(RTC_REGISTER_D);
    if (ValidRamAndTime::Get(RegisterD) == 0) {
        Trace(DEBUG_ERROR, "%a: ERROR RTC Address Reg D = 0x%02x Vrt clear, aborting...\n", RegisterD);
        return EFI_DEVICE_ERROR;
    }
    UINT64 PollsLeft = Timeout / POLL_MICROSECONDS + 1;
    UINT8 RegisterA = ReadCmos(RTC_REGISTER_A);
    while (UpdateInProgress::Get(RegisterA) != 0 && PollsLeft != 0) {
        MicroSecondDelay(POLL_MICROSECONDS);
        RegisterA = ReadCmos(RTC_REGISTER_A);
        PollsLeft--;
    }
    RegisterD = ReadCmos(RTC_REGISTER_D);
    if (ValidRamAndTime::Get(RegisterD) == 0) {
        Trace(DEBUG_ERROR, "%a: ERROR RTC Address Reg D = 0x%02x Vrt clear, polls left %d, aborting...\n", RegisterD,
              PollsLeft);
        return EFI_DEVICE_ERROR;
    }
    if (PollsLeft == 0) {
        Trace(DEBUG_ERROR, "%a: ERROR RTC read cycle timed out, aborting...\n");
        return EFI_DEVICE_ERROR;
    }
    return EFI_SUCCESS;
}

EFI_STATUS ElogGetTime(CPER_TIMESTAMP* pTime) {
    if (pTime == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pTime == NULL on entry, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const EFI_STATUS Status = RtcWaitToUpdate(UPDATE_TIMEOUT_MICROSECONDS);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    pTime->Century = ReadBcd(RTC_CENTURY);
    pTime->Year = ReadBcd(RTC_YEAR);
    pTime->Month = ReadBcd(RTC_MONTH);
    pTime->Day = ReadBcd(RTC_DAY_OF_MONTH);
    pTime->Flags = TIMESTAMP_PRECISE;
    pTime->Hours = ReadBcd(RTC_HOURS);
    pTime->Minutes = ReadBcd(RTC_MINUTES);
    pTime->Seconds = ReadBcd(RTC_SECONDS);
    return EFI_SUCCESS;
}

UINT32 CperGetNoofSecondsPast(const CPER_TIMESTAMP* pTimeNow, const CPER_TIMESTAMP* pTimePast) {
    if (pTimeNow == nullptr || pTimePast == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return 0;
    }
    // Meant: even months, years and centuries, in 32 bits that wrap; only windows of seconds to days are compared.
    const UINT32 Now = SecondsOf(*pTimeNow);
    const UINT32 Past = SecondsOf(*pTimePast);
    return Now > Past ? Now - Past : 0;
}
