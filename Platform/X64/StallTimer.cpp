// Stalls, counted by the time-stamp counter.
#include "Platform/StallTimer.h"
#include "Platform/Hardware.h"
#include "Platform/State.h"
#include "Platform/X64/Settings.h"

namespace {

constexpr UINT32 CPUID_TSC_LEAF = 0x15;

// Channel 2 of the interval timer (8254), gated and read through port 0x61.
constexpr UINT16 TIMER_GATE_PORT = 0x61;
constexpr UINT8 TIMER_GATE = 0x01;
constexpr UINT8 TIMER_SPEAKER = 0x02;
constexpr UINT8 TIMER_OUTPUT = 0x20;
constexpr UINT16 TIMER_CHANNEL_2_PORT = 0x42;
constexpr UINT16 TIMER_CONTROL_PORT = 0x43;
constexpr UINT8 TIMER_CHANNEL_2_ONE_SHOT = 0xB0;  // both bytes, mode 0, binary
constexpr UINT64 TIMER_FREQUENCY_HZ = 1193182;
constexpr UINT16 MEASURED_TICKS = 11932;  // 10 ms
constexpr UINT32 TIMER_POLL_LIMIT = 1000000;
constexpr UINT64 SLOWEST_TSC_FREQUENCY_HZ = 500'000'000;

KYR_STATE constinit UINT64 mTscFrequencyHz = FALLBACK_TSC_FREQUENCY_HZ;

UINT64 ReadTimeStampCounter() {
    UINT32 Low = 0;
    UINT32 High = 0;
    // Nothing before the fence may run after the counter was read.
    __asm__ __volatile__("lfence\n\trdtsc" : "=a"(Low), "=d"(High) : : "memory");
    return static_cast<UINT64>(High) << 32 | Low;
}

// 0 where the processor does not say.
UINT64 FrequencyFromProcessor() {
    if (AsmCpuid(0).Eax < CPUID_TSC_LEAF) {
        return 0;
    }
    const CPUID_RESULT Ratio = AsmCpuid(CPUID_TSC_LEAF);
    return Ratio.Eax == 0 ? 0 : static_cast<UINT64>(Ratio.Ecx) * Ratio.Ebx / Ratio.Eax;
}

// 0 where the interval timer does not count.
UINT64 FrequencyFromIntervalTimer() {
    const UINT8 Gate = IoRead8(TIMER_GATE_PORT);
    IoWrite8(TIMER_GATE_PORT, static_cast<UINT8>((Gate & ~TIMER_SPEAKER) | TIMER_GATE));
    IoWrite8(TIMER_CONTROL_PORT, TIMER_CHANNEL_2_ONE_SHOT);
    IoWrite8(TIMER_CHANNEL_2_PORT, MEASURED_TICKS & 0xFF);
    IoWrite8(TIMER_CHANNEL_2_PORT, MEASURED_TICKS >> 8);
    const UINT64 Start = ReadTimeStampCounter();
    UINT32 Polls = 0;
    while ((IoRead8(TIMER_GATE_PORT) & TIMER_OUTPUT) == 0 && Polls < TIMER_POLL_LIMIT) {
        Polls++;
    }
    const UINT64 Elapsed = ReadTimeStampCounter() - Start;
    IoWrite8(TIMER_GATE_PORT, Gate);
    return Polls == TIMER_POLL_LIMIT ? 0 : Elapsed * TIMER_FREQUENCY_HZ / MEASURED_TICKS;
}

}  // namespace

void StallTimerConstructor() {
    UINT64 Frequency = FrequencyFromProcessor();
    if (Frequency == 0) {
        Frequency = FrequencyFromIntervalTimer();
    }
    mTscFrequencyHz = Frequency < SLOWEST_TSC_FREQUENCY_HZ ? FALLBACK_TSC_FREQUENCY_HZ : Frequency;
}

void MicroSecondDelay(UINT64 Microseconds) {
    const UINT64 Start = ReadTimeStampCounter();
    const UINT64 CyclesPerMicrosecond = mTscFrequencyHz / 1'000'000 + 1;
    while (ReadTimeStampCounter() - Start < Microseconds * CyclesPerMicrosecond) {
        __asm__ __volatile__("pause" : : : "memory");
    }
}
