// The hardware primitives of the seam, for the machine that lives and the processor that runs.
#include "Platform/Hardware.h"
#include "Platform/StallTimer.h"
#include "Simulator/Machine/Machine.h"

using Simulator::Machine;

UINT8 MmioRead8(UINT64 Address) {
    return static_cast<UINT8>(Machine::Current().ReadMmio(Address, 8));
}

UINT16 MmioRead16(UINT64 Address) {
    return static_cast<UINT16>(Machine::Current().ReadMmio(Address, 16));
}

UINT32 MmioRead32(UINT64 Address) {
    return static_cast<UINT32>(Machine::Current().ReadMmio(Address, 32));
}

UINT64 MmioRead64(UINT64 Address) {
    return Machine::Current().ReadMmio(Address, 64);
}

void MmioWrite8(UINT64 Address, UINT8 Value) {
    Machine::Current().WriteMmio(Address, 8, Value);
}

void MmioWrite16(UINT64 Address, UINT16 Value) {
    Machine::Current().WriteMmio(Address, 16, Value);
}

void MmioWrite32(UINT64 Address, UINT32 Value) {
    Machine::Current().WriteMmio(Address, 32, Value);
}

void MmioWrite64(UINT64 Address, UINT64 Value) {
    Machine::Current().WriteMmio(Address, 64, Value);
}

UINT8 IoRead8(UINT16 Port) {
    return Machine::Current().ReadIo(Port);
}

void IoWrite8(UINT16 Port, UINT8 Value) {
    Machine::Current().WriteIo(Port, Value);
}

UINT64 AsmReadMsr64(UINT32 Index) {
    return Machine::Current().ReadMsr(Index);
}

void AsmWriteMsr64(UINT32 Index, UINT64 Value) {
    Machine::Current().WriteMsr(Index, Value);
}

CPUID_RESULT AsmCpuid(UINT32 Leaf) {
    return Machine::Current().Cpuid(Leaf);
}

UINT32 GetApicId() {
    const Machine& Running = Machine::Current();
    return Running.ProcessorAt(Running.CurrentProcessor()).Location().ApicId;
}

void StallTimerConstructor() {}  // virtual time needs no measuring

void MicroSecondDelay(UINT64 Microseconds) {
    Machine::Current().Advance(Microseconds);
}

UINT32 InterlockedIncrement(volatile UINT32* Value) {
    return __atomic_add_fetch(Value, 1, __ATOMIC_SEQ_CST);
}

bool DebugPrintLevelEnabled(UINT64 Level) {
    return (Machine::Current().Settings().TraceLevels & Level) != 0;
}

void DebugPortWrite(const CHAR8* Prefix, UINTN PrefixLength, const CHAR8* Message, UINTN MessageLength) {
    Machine::Current().Print({Prefix, PrefixLength}, {Message, MessageLength});
}

void CpuBreakpoint() {
    Machine& Running = Machine::Current();
    Running.Note("breakpoint", [] { return nlohmann::ordered_json::object(); });
}
