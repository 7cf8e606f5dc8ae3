// Records of runtime post-package repair that the driver shares with the repair service and the PSP. Their places
// are platform constants.
#pragma once

#include "Include/Field.h"
#include "Include/Topology.h"

// What a verified row's entry came to.
enum RUNTIME_PPR_RESULT : UINT8 { RuntimePprNotVerified = 0, RuntimePprPassed = 1, RuntimePprFailed = 2 };

// How the row of an entry was found: by the normalized address of its error, but for the one below.
inline constexpr UINT8 RUNTIME_PPR_ENTRY_DRAM_ADDRESS = 8;  // by a DRAM address

inline constexpr UINTN RUNTIME_PPR_CHECK_ENTRIES = 8;

// A row whose repair is to be verified.
struct RUNTIME_PPR_CHECK_ENTRY {
    ::CPU_INFO CpuInfo;  // processor that logged the error
    UINT64 McaBankNumber;
    UINT64 SystemAddress;
    UINT64 NormalizedAddress;
    UINT8 Socket;
    UINT8 UmcChannel;
    UINT8 EntryType;
    UINT8 ChipSelect;
    UINT8 Bank;  // RuntimePprBank
    UINT8 RankMul;
    UINT8 SubChannel;
    UINT8 DramDevice;
    UINT32 Row;
    UINT16 Column;
    UINT8 Producer78[50];
};
KYR_RECORD(RUNTIME_PPR_CHECK_ENTRY, 128);
KYR_FIELD(RUNTIME_PPR_CHECK_ENTRY, McaBankNumber, 40);
KYR_FIELD(RUNTIME_PPR_CHECK_ENTRY, SystemAddress, 48);
KYR_FIELD(RUNTIME_PPR_CHECK_ENTRY, NormalizedAddress, 56);
KYR_FIELD(RUNTIME_PPR_CHECK_ENTRY, Socket, 64);
KYR_FIELD(RUNTIME_PPR_CHECK_ENTRY, UmcChannel, 65);
KYR_FIELD(RUNTIME_PPR_CHECK_ENTRY, EntryType, 66);
KYR_FIELD(RUNTIME_PPR_CHECK_ENTRY, ChipSelect, 67);
KYR_FIELD(RUNTIME_PPR_CHECK_ENTRY, Bank, 68);
KYR_FIELD(RUNTIME_PPR_CHECK_ENTRY, RankMul, 69);
KYR_FIELD(RUNTIME_PPR_CHECK_ENTRY, SubChannel, 70);
KYR_FIELD(RUNTIME_PPR_CHECK_ENTRY, DramDevice, 71);
KYR_FIELD(RUNTIME_PPR_CHECK_ENTRY, Row, 72);
KYR_FIELD(RUNTIME_PPR_CHECK_ENTRY, Column, 76);

// Bank of an entry.
namespace RuntimePprBank {
using Group = Field<UINT8, 4, 2>;
using Address = Field<UINT8, 1, 0>;
static_assert(FieldsDisjoint<Group, Address>());
}  // namespace RuntimePprBank

// Request block exchanged with the PSP.
struct RUNTIME_PPR_REQUEST_BLOCK {
    UINT32 Producer0;
    UINT32 PspCommandWord;  // PspCommandWord; the PSP writes to it while the driver runs
    UINT8 Producer8[156];
};
KYR_RECORD(RUNTIME_PPR_REQUEST_BLOCK, 164);
KYR_FIELD(RUNTIME_PPR_REQUEST_BLOCK, PspCommandWord, 4);

namespace PspCommandWord {
using Completed = Field<UINT32, 31>;            // the PSP is done with the block
using CompletionSignalled = Field<UINT32, 28>;  // and its SMI was raised
static_assert(FieldsDisjoint<Completed, CompletionSignalled>());
}  // namespace PspCommandWord
