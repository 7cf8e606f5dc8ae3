// Base types and statuses of the firmware world (UEFI 2.10, sections 2.3.1 and appendix D).
// Only headers that every freestanding compiler ships may be included here.
#pragma once

#include <stddef.h>
#include <stdint.h>

using UINT8 = uint8_t;
using UINT16 = uint16_t;
using UINT32 = uint32_t;
using UINT64 = uint64_t;
using INT32 = int32_t;
using INT64 = int64_t;
using UINTN = uint64_t;  // x86-64 only
using BOOLEAN = UINT8;   // 8 bits in shared records; 0 or 1
using CHAR8 = char;
using CHAR16 = char16_t;
using EFI_HANDLE = void*;

static_assert(sizeof(void*) == 8, "the driver runs on x86-64 only");

inline constexpr BOOLEAN TRUE = 1;
inline constexpr BOOLEAN FALSE = 0;

inline constexpr UINT64 EFI_ERROR_BIT = 0x8000000000000000;

// An enumeration of the pointer's width: it travels in a register on every ABI, and the trace can tell
// a status from a number.
enum class EFI_STATUS : UINTN {
    EFI_SUCCESS = 0,
    EFI_LOAD_ERROR = EFI_ERROR_BIT | 1,
    EFI_INVALID_PARAMETER = EFI_ERROR_BIT | 2,
    EFI_UNSUPPORTED = EFI_ERROR_BIT | 3,
    EFI_BAD_BUFFER_SIZE = EFI_ERROR_BIT | 4,
    EFI_BUFFER_TOO_SMALL = EFI_ERROR_BIT | 5,
    EFI_NOT_READY = EFI_ERROR_BIT | 6,
    EFI_DEVICE_ERROR = EFI_ERROR_BIT | 7,
    EFI_WRITE_PROTECTED = EFI_ERROR_BIT | 8,
    EFI_OUT_OF_RESOURCES = EFI_ERROR_BIT | 9,
    EFI_NOT_FOUND = EFI_ERROR_BIT | 14,
    EFI_ACCESS_DENIED = EFI_ERROR_BIT | 15,
    EFI_TIMEOUT = EFI_ERROR_BIT | 18,
    EFI_NOT_STARTED = EFI_ERROR_BIT | 19,
    EFI_ALREADY_STARTED = EFI_ERROR_BIT | 20,
    EFI_ABORTED = EFI_ERROR_BIT | 21,
};
using enum EFI_STATUS;

// True when Status has its error bit set; warnings and success are no errors.
constexpr bool EFI_ERROR(EFI_STATUS Status) {
    return (static_cast<UINTN>(Status) & EFI_ERROR_BIT) != 0;
}

// Several statuses folded into one word: any error among them leaves the error bit set.
constexpr EFI_STATUS operator|(EFI_STATUS Left, EFI_STATUS Right) {
    return static_cast<EFI_STATUS>(static_cast<UINTN>(Left) | static_cast<UINTN>(Right));
}
constexpr EFI_STATUS& operator|=(EFI_STATUS& Left, EFI_STATUS Right) {
    return Left = Left | Right;
}

struct EFI_GUID {
    UINT32 Data1;
    UINT16 Data2;
    UINT16 Data3;
    UINT8 Data4[8];
};
static_assert(sizeof(EFI_GUID) == 16);

// Serial debug levels.
inline constexpr UINT64 DEBUG_ERROR = 0x80000000;
inline constexpr UINT64 DEBUG_INIT = 0x1;
inline constexpr UINT64 DEBUG_INFO = 0x40;
inline constexpr UINT64 DEBUG_VERBOSE = 0x400000;
