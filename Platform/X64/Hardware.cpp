// The hardware primitives of the seam as instructions.
#include "Platform/Hardware.h"

#include "Platform/X64/Settings.h"

namespace {

constexpr UINT32 MSR_APIC_BASE = 0x1B;
constexpr UINT64 APIC_BASE_X2APIC_ENABLED = 0x400;
constexpr UINT64 APIC_BASE_ADDRESS_MASK = 0x000FFFFFFFFFF000;
constexpr UINT32 MSR_X2APIC_ID = 0x802;
constexpr UINT64 APIC_ID_REGISTER = 0x20;

template <class Word>
Word ReadAt(UINT64 Address) {
    return *reinterpret_cast<const volatile Word*>(Address);
}

template <class Word>
void WriteAt(UINT64 Address, Word Value) {
    *reinterpret_cast<volatile Word*>(Address) = Value;
}

}  // namespace

UINT8 MmioRead8(UINT64 Address) {
    return ReadAt<UINT8>(Address);
}

UINT16 MmioRead16(UINT64 Address) {
    return ReadAt<UINT16>(Address);
}

UINT32 MmioRead32(UINT64 Address) {
    return ReadAt<UINT32>(Address);
}

UINT64 MmioRead64(UINT64 Address) {
    return ReadAt<UINT64>(Address);
}

void MmioWrite8(UINT64 Address, UINT8 Value) {
    WriteAt(Address, Value);
}

void MmioWrite16(UINT64 Address, UINT16 Value) {
    WriteAt(Address, Value);
}

void MmioWrite32(UINT64 Address, UINT32 Value) {
    WriteAt(Address, Value);
}

void MmioWrite64(UINT64 Address, UINT64 Value) {
    WriteAt(Address, Value);
}

UINT8 IoRead8(UINT16 Port) {
    UINT8 Value = 0;
    __asm__ __volatile__("inb %1, %0" : "=a"(Value) : "Nd"(Port) : "memory");
    return Value;
}

void IoWrite8(UINT16 Port, UINT8 Value) {
    __asm__ __volatile__("outb %0, %1" : : "a"(Value), "Nd"(Port) : "memory");
}

UINT64 AsmReadMsr64(UINT32 Index) {
    UINT32 Low = 0;
    UINT32 High = 0;
    __asm__ __volatile__("rdmsr" : "=a"(Low), "=d"(High) : "c"(Index) : "memory");
    return static_cast<UINT64>(High) << 32 | Low;
}

void AsmWriteMsr64(UINT32 Index, UINT64 Value) {
    __asm__ __volatile__("wrmsr"
                         :
                         : "a"(static_cast<UINT32>(Value)), "d"(static_cast<UINT32>(Value >> 32)), "c"(Index)
                         : "memory");
}

CPUID_RESULT AsmCpuid(UINT32 Leaf) {
    CPUID_RESULT Result{};
    __asm__ __volatile__("cpuid"
                         : "=a"(Result.Eax), "=b"(Result.Ebx), "=c"(Result.Ecx), "=d"(Result.Edx)
                         : "a"(Leaf), "c"(0));
    return Result;
}

UINT32 GetApicId() {
    const UINT64 ApicBase = AsmReadMsr64(MSR_APIC_BASE);
    if ((ApicBase & APIC_BASE_X2APIC_ENABLED) != 0) {
        return static_cast<UINT32>(AsmReadMsr64(MSR_X2APIC_ID));
    }
    return MmioRead32((ApicBase & APIC_BASE_ADDRESS_MASK) + APIC_ID_REGISTER) >> 24;
}

UINT32 InterlockedIncrement(volatile UINT32* Value) {
    return __atomic_add_fetch(Value, 1, __ATOMIC_SEQ_CST);
}

void CpuBreakpoint() {
    if constexpr (STOP_AT_FAILED_ASSERTION) {
        __asm__ __volatile__("int3" : : : "memory");
    }
}
