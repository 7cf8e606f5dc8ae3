// Check-information words of the IA32/X64 processor error information (UEFI 2.10, appendix N.2.4.2.1) and the
// parts of an MCA error code that go into them.
#pragma once

#include "Include/Field.h"

// Parts of MCA_STATUS.ErrorCode of the compound error codes.
namespace McaErrorCode {
using ParticipationProcessor = Field<UINT16, 10, 9>;
using TimeOut = Field<UINT16, 8>;
using MemoryTransactionType = Field<UINT16, 7, 4>;
using TransactionType = Field<UINT16, 3, 2>;
using CacheLevel = Field<UINT16, 1, 0>;
static_assert(FieldsDisjoint<ParticipationProcessor, TimeOut, MemoryTransactionType, TransactionType, CacheLevel>());
}  // namespace McaErrorCode

// ValidFields of the error information structure.
namespace CperErrorInfoValid {
using CheckInfo = Field<UINT64, 0>;
using InstructionIP = Field<UINT64, 4>;
}  // namespace CperErrorInfoValid

// Cache, TLB and bus check. A TLB check has the cache check's fields; only a bus check has those above bit 29.
namespace CperCacheTlbBusCheck {
using TransactionTypeValid = Field<UINT64, 0>;
using OperationValid = Field<UINT64, 1>;
using LevelValid = Field<UINT64, 2>;
using ProcessorContextCorruptValid = Field<UINT64, 3>;
using UncorrectedValid = Field<UINT64, 4>;
using PreciseIPValid = Field<UINT64, 5>;
using RestartableIPValid = Field<UINT64, 6>;
using OverflowValid = Field<UINT64, 7>;
using ParticipationTypeValid = Field<UINT64, 8>;
using TimeOutValid = Field<UINT64, 9>;
using AddressSpaceValid = Field<UINT64, 10>;
using TransactionType = Field<UINT64, 17, 16>;
using Operation = Field<UINT64, 21, 18>;
using Level = Field<UINT64, 24, 22>;
using ProcessorContextCorrupt = Field<UINT64, 25>;
using Uncorrected = Field<UINT64, 26>;
using PreciseIP = Field<UINT64, 27>;
using RestartableIP = Field<UINT64, 28>;
using Overflow = Field<UINT64, 29>;
using ParticipationType = Field<UINT64, 31, 30>;
using TimeOut = Field<UINT64, 32>;
using AddressSpace = Field<UINT64, 34, 33>;
static_assert(
    FieldsDisjoint<TransactionTypeValid, OperationValid, LevelValid, ProcessorContextCorruptValid, UncorrectedValid,
                   PreciseIPValid, RestartableIPValid, OverflowValid, ParticipationTypeValid, TimeOutValid,
                   AddressSpaceValid, TransactionType, Operation, Level, ProcessorContextCorrupt, Uncorrected,
                   PreciseIP, RestartableIP, Overflow, ParticipationType, TimeOut, AddressSpace>());
}  // namespace CperCacheTlbBusCheck

// Micro-architecture specific check.
namespace CperMsCheck {
using ErrorTypeValid = Field<UINT64, 0>;
using ProcessorContextCorruptValid = Field<UINT64, 1>;
using UncorrectedValid = Field<UINT64, 2>;
using PreciseIPValid = Field<UINT64, 3>;
using RestartableIPValid = Field<UINT64, 4>;
using OverflowValid = Field<UINT64, 5>;
using ErrorType = Field<UINT64, 18, 16>;
using ProcessorContextCorrupt = Field<UINT64, 19>;
using Uncorrected = Field<UINT64, 20>;
using PreciseIP = Field<UINT64, 21>;
using RestartableIP = Field<UINT64, 22>;
using Overflow = Field<UINT64, 23>;
static_assert(FieldsDisjoint<ErrorTypeValid, ProcessorContextCorruptValid, UncorrectedValid, PreciseIPValid,
                             RestartableIPValid, OverflowValid, ErrorType, ProcessorContextCorrupt, Uncorrected,
                             PreciseIP, RestartableIP, Overflow>());

inline constexpr UINT64 INTERNAL_UNCLASSIFIED = 5;
}  // namespace CperMsCheck
