#include "Library/VornElogBaseLib/RealTimeClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "Library/VornElogBaseLib/MachineCheckClass.h"
#include "Platform/Hardware.h"
#include "Simulator/Simulation.h"

namespace {

using TimeBytes = std::array<UINT8, 8>;

TimeBytes BytesOf(const CPER_TIMESTAMP& Time) {
    TimeBytes Bytes;
    std::memcpy(Bytes.data(), &Time, sizeof(Time));
    return Bytes;
}

Simulator::Configuration ClockAt(const char* Time) {
    Simulator::Configuration Settings;
    Settings.Clock = Time;
    return Settings;
}

TEST(RealTimeClock, ReadsPlainNumbersOutsideOfAnUpdate) {
    Simulator::Simulation Machine(ClockAt("2026-11-24 23:59:58"));
    ASSERT_EQ(Machine.Boot(), EFI_SUCCESS);
    IoWrite8(0x70, 0x80);  // NMI disabled by someone else
    CPER_TIMESTAMP Time{};
    EXPECT_EQ(ElogGetTime(&Time), EFI_SUCCESS);
    EXPECT_EQ(BytesOf(Time), (TimeBytes{58, 59, 23, 1, 24, 11, 26, 20}));
    EXPECT_EQ(IoRead8(0x74) & 0x80, 0x80) << "the NMI-disable bit is kept";

    // Half a millisecond before the next second the clock is being updated: the reader waits for it.
    Machine.Wait(999500 - Machine.Now() % 1000000);
    EXPECT_EQ(ElogGetTime(&Time), EFI_SUCCESS);
    EXPECT_EQ(BytesOf(Time), (TimeBytes{59, 59, 23, 1, 24, 11, 26, 20}));
    Machine.Wait(1000000);
    EXPECT_EQ(ElogGetTime(&Time), EFI_SUCCESS);
    EXPECT_EQ(BytesOf(Time), (TimeBytes{0, 0, 0, 1, 25, 11, 26, 20}));
}

TEST(RealTimeClock, GivesUpOnAStuckOrDeadClock) {
    for (const bool Stuck : {true, false}) {
        Simulator::Configuration Settings;
        Settings.ClockUpdateStuck = Stuck;
        Settings.ClockBatteryDead = !Stuck;
        Simulator::Simulation Machine(Settings);
        Machine.Boot();
        EXPECT_EQ(ElogGetTime(nullptr), EFI_INVALID_PARAMETER);
        CPER_TIMESTAMP Time;
        std::memset(&Time, 0xEE, sizeof(Time));
        const std::uint64_t Before = Machine.Now();
        EXPECT_EQ(ElogGetTime(&Time), EFI_DEVICE_ERROR);
        EXPECT_EQ(Machine.Now() - Before, Stuck ? 100010u : 0u);
        EXPECT_THAT(BytesOf(Time), testing::Each(0xEE));
        EXPECT_THAT(
            Machine.TraceLog(),
            testing::HasSubstr(Stuck ? "RtcWaitToUpdate: ERROR RTC read cycle timed out, aborting...\n"
                                     : "RtcWaitToUpdate: ERROR RTC Address Reg D = 0x00 Vrt clear, aborting...\n"));
    }
}

TEST(RealTimeClock, SecondsCountEvenMonthsYearsAndCenturies) {
    const struct {
        CPER_TIMESTAMP Now, Past;  // seconds, minutes, hours, flags, day, month, year, century
        UINT32 Seconds;
    } Cases[] = {
        {{5, 0, 12, 1, 24, 11, 26, 20}, {0, 0, 12, 1, 24, 11, 26, 20}, 5},
        {{0, 0, 12, 1, 24, 11, 26, 20}, {5, 0, 12, 1, 24, 11, 26, 20}, 0},
        {{0, 0, 12, 1, 24, 11, 26, 20}, {0, 0, 12, 0, 24, 11, 26, 20}, 0},
        {{0, 0, 0, 1, 25, 11, 26, 20}, {59, 59, 23, 1, 24, 11, 26, 20}, 1},
        {{0, 0, 0, 1, 1, 3, 26, 20}, {0, 0, 0, 1, 28, 2, 26, 20}, 3 * 86400},   // February has 30 days
        {{0, 0, 0, 1, 1, 1, 27, 20}, {0, 0, 0, 1, 31, 12, 26, 20}, 5 * 86400},  // 365 - 11 * 30 - 30
        {{0, 0, 0, 1, 1, 1, 0, 21}, {0, 0, 0, 1, 1, 1, 99, 20}, 365 * 86400},
    };
    for (const auto& Case : Cases) {
        EXPECT_EQ(CperGetNoofSecondsPast(&Case.Now, &Case.Past), Case.Seconds);
    }
    Simulator::Simulation Machine({});  // takes the trace
    EXPECT_EQ(CperGetNoofSecondsPast(nullptr, &Cases[0].Past), 0u);
    EXPECT_EQ(CperGetNoofSecondsPast(&Cases[0].Now, nullptr), 0u);
}

TEST(MachineCheckClass, ComesFromTheStatusOfRealMachineChecks) {
    const struct {
        UINT64 Status;
        MCE_CLASS Class;
    } Cases[] = {
        {0xBEA0000000000108, MceClassPccFatal},             // an execution unit, fatal
        {0x8700900800000000, MceClassPccFatal},             // context corrupt outranks deferred
        {0xBCA0000000000108, MceClassUcThreadFatal},        // PCC cleared by hand: TCC counts
        {0xBC20000000000108, MceClassUcThreadRecoverable},  // TCC cleared as well
        {0xBC30100000000108, MceClassUcThreadRecoverable},  // UC outranks deferred and transparent
        {0x8400900800000000, MceClassDeferred},             // transparent does not matter to it
        {0x8490900800000000, MceClassDeferred},             //
        {0x9C204000000D0175, MceClassCorrected},            // load-store unit
        {0x982000000002080B, MceClassCorrected},            // link
        {0x9CA04000000D0175, MceClassCorrected},            // TCC alone means nothing
        {0x9C304000000D0175, MceClassTransparent},          //
        {0, MceClassCorrected},
    };
    for (const auto& Case : Cases) {
        EXPECT_EQ(VornGetMceClass(Case.Status), Case.Class) << std::hex << Case.Status;
    }
}

}  // namespace
