// Payloads of the BMC's memory health events.
#pragma once

#include "Include/Layout.h"

// What the request in front of a payload says that it is.
inline constexpr UINT32 MEMORY_HEALTH_EVENT_KIND = 2;

#pragma pack(push, 1)
// An error that ECC saw.
struct HOST_ECC_EVENT_DATA {
    UINT8 Socket;
    UINT8 DimmSlot;  // slot index, from 1
    UINT8 UmcChannel;
    UINT8 Channel;  // UMC channel + 2 * die
    UINT8 SubChannel;
    UINT8 RankOnDimm;
    UINT8 RankMul;
    UINT8 BankGroup;
    UINT8 BankAddress;
    UINT32 Row;
    UINT32 Column;
    UINT8 EventType;        // HOST_ECC_EVENT_TYPE
    UINT16 ErrorCount;      // low half of the rank's leaky bucket
    UINT16 SecondsElapsed;  // low half of the time since the rank's previous error
    UINT8 FormatCode;       // HOST_ECC_FORMAT_CODE
    UINT8 McaBankNumber;
    UINT64 McaCtl;
    UINT64 McaStatus;
    UINT64 McaAddr;
    UINT64 McaMisc0;
    UINT64 McaConfig;
    UINT64 McaSynd;
    UINT64 McaDeStat;
    UINT64 McaDeAddr;
};
KYR_RECORD(HOST_ECC_EVENT_DATA, 88);
KYR_FIELD(HOST_ECC_EVENT_DATA, DimmSlot, 1);
KYR_FIELD(HOST_ECC_EVENT_DATA, UmcChannel, 2);
KYR_FIELD(HOST_ECC_EVENT_DATA, Channel, 3);
KYR_FIELD(HOST_ECC_EVENT_DATA, SubChannel, 4);
KYR_FIELD(HOST_ECC_EVENT_DATA, RankOnDimm, 5);
KYR_FIELD(HOST_ECC_EVENT_DATA, RankMul, 6);
KYR_FIELD(HOST_ECC_EVENT_DATA, BankGroup, 7);
KYR_FIELD(HOST_ECC_EVENT_DATA, BankAddress, 8);
KYR_FIELD(HOST_ECC_EVENT_DATA, Row, 9);
KYR_FIELD(HOST_ECC_EVENT_DATA, Column, 13);
KYR_FIELD(HOST_ECC_EVENT_DATA, EventType, 17);
KYR_FIELD(HOST_ECC_EVENT_DATA, ErrorCount, 18);
KYR_FIELD(HOST_ECC_EVENT_DATA, SecondsElapsed, 20);
KYR_FIELD(HOST_ECC_EVENT_DATA, FormatCode, 22);
KYR_FIELD(HOST_ECC_EVENT_DATA, McaBankNumber, 23);
KYR_FIELD(HOST_ECC_EVENT_DATA, McaCtl, 24);
KYR_FIELD(HOST_ECC_EVENT_DATA, McaStatus, 32);
KYR_FIELD(HOST_ECC_EVENT_DATA, McaAddr, 40);
KYR_FIELD(HOST_ECC_EVENT_DATA, McaMisc0, 48);
KYR_FIELD(HOST_ECC_EVENT_DATA, McaConfig, 56);
KYR_FIELD(HOST_ECC_EVENT_DATA, McaSynd, 64);
KYR_FIELD(HOST_ECC_EVENT_DATA, McaDeStat, 72);
KYR_FIELD(HOST_ECC_EVENT_DATA, McaDeAddr, 80);
inline constexpr UINT8 HOST_ECC_FORMAT_CODE = 0x10;

// What became of a row's repair while the system ran.
struct PPR_EVENT_DATA {
    UINT8 Socket;
    UINT8 DimmSlot;     // slot index, from 1
    UINT32 DeviceMask;  // one bit per DRAM device
    UINT8 SubChannel;
    UINT8 ChipSelect;
    UINT8 Reserved8;
    UINT8 BankGroup;
    UINT8 BankAddress;
    UINT32 Row;
    UINT8 Value15;  // PPR_EVENT_VALUE_15
    UINT8 Value16;  // PPR_EVENT_VALUE_16
    UINT8 Result;   // RUNTIME_PPR_RESULT
    UINT8 Reserved18[5];
};
KYR_RECORD(PPR_EVENT_DATA, 23);
KYR_FIELD(PPR_EVENT_DATA, DimmSlot, 1);
KYR_FIELD(PPR_EVENT_DATA, DeviceMask, 2);
KYR_FIELD(PPR_EVENT_DATA, SubChannel, 6);
KYR_FIELD(PPR_EVENT_DATA, ChipSelect, 7);
KYR_FIELD(PPR_EVENT_DATA, BankGroup, 9);
KYR_FIELD(PPR_EVENT_DATA, BankAddress, 10);
KYR_FIELD(PPR_EVENT_DATA, Row, 11);
KYR_FIELD(PPR_EVENT_DATA, Value15, 15);
KYR_FIELD(PPR_EVENT_DATA, Value16, 16);
KYR_FIELD(PPR_EVENT_DATA, Result, 17);
inline constexpr UINT8 PPR_EVENT_VALUE_15 = 1;
inline constexpr UINT8 PPR_EVENT_VALUE_16 = 2;
#pragma pack(pop)
