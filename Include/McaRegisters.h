// Bit layouts and MSR numbers of the machine-check banks, of the cloak and of the processor's machine-check
// control registers.
#pragma once

#include "Include/Field.h"

namespace McaStatus {
using Val = Field<UINT64, 63>;
using Overflow = Field<UINT64, 62>;
using UC = Field<UINT64, 61>;
using En = Field<UINT64, 60>;
using MiscV = Field<UINT64, 59>;
using AddrV = Field<UINT64, 58>;
using PCC = Field<UINT64, 57>;
using ErrCoreIdVal = Field<UINT64, 56>;
using TCC = Field<UINT64, 55>;
using SyndV = Field<UINT64, 53>;
using Transparent = Field<UINT64, 52>;
using CECC = Field<UINT64, 46>;
using UECC = Field<UINT64, 45>;
using Deferred = Field<UINT64, 44>;
using Poison = Field<UINT64, 43>;
using ErrCoreId = Field<UINT64, 37, 32>;
using AddrLsb = Field<UINT64, 29, 24>;
using ErrorCodeExt = Field<UINT64, 21, 16>;
using ErrorCode = Field<UINT64, 15, 0>;
static_assert(FieldsDisjoint<Val, Overflow, UC, En, MiscV, AddrV, PCC, ErrCoreIdVal, TCC, SyndV, Transparent, CECC,
                             UECC, Deferred, Poison, ErrCoreId, AddrLsb, ErrorCodeExt, ErrorCode>());
}  // namespace McaStatus

// MCA_ADDR and MCA_DEADDR.
namespace McaAddr {
using LSB = Field<UINT64, 61, 56>;
using ErrorAddr = Field<UINT64, 55, 0>;
static_assert(FieldsDisjoint<LSB, ErrorAddr>());

// ErrorAddr of a memory controller's bank that holds a DRAM address.
using DramBankGroup = Field<UINT64, 22, 20>;
using DramBankAddress = Field<UINT64, 19, 18>;
using DramRow = Field<UINT64, 17, 0>;
static_assert(FieldsDisjoint<DramBankGroup, DramBankAddress, DramRow>());
}  // namespace McaAddr

// MCA_MISC0 and MCA_MISC1.
namespace McaMisc {
using Valid = Field<UINT64, 63>;
using CntP = Field<UINT64, 62>;
using Locked = Field<UINT64, 61>;
using IntP = Field<UINT64, 60>;
using LvtOffset = Field<UINT64, 55, 52>;
using CntEn = Field<UINT64, 51>;
using ThresholdIntType = Field<UINT64, 50, 49>;
using Ovrflw = Field<UINT64, 48>;
using ErrCnt = Field<UINT64, 43, 32>;
using BlkPtr = Field<UINT64, 31, 24>;
static_assert(
    FieldsDisjoint<Valid, CntP, Locked, IntP, LvtOffset, CntEn, ThresholdIntType, Ovrflw, ErrCnt, BlkPtr>());
}  // namespace McaMisc

namespace McaConfig {
using DeferredIntType = Field<UINT64, 38, 37>;
using LogDeferredInMcaStat = Field<UINT64, 34>;
using TransparentErrorLoggingEnable = Field<UINT64, 33>;
using McaXEnable = Field<UINT64, 32>;
using DeferredIntTypeSupported = Field<UINT64, 5>;
using DeferredErrorLoggingSupported = Field<UINT64, 2>;
using TransparentErrorLoggingSupported = Field<UINT64, 1>;
using McaX = Field<UINT64, 0>;
static_assert(FieldsDisjoint<DeferredIntType, LogDeferredInMcaStat, TransparentErrorLoggingEnable, McaXEnable,
                             DeferredIntTypeSupported, DeferredErrorLoggingSupported,
                             TransparentErrorLoggingSupported, McaX>());
}  // namespace McaConfig

namespace McaIpid {
using McaType = Field<UINT64, 63, 48>;
using HardwareID = Field<UINT64, 43, 32>;
using InstanceId = Field<UINT64, 31, 0>;
static_assert(FieldsDisjoint<McaType, HardwareID, InstanceId>());

inline constexpr UINT64 HARDWARE_ID_UMC = 0x96;
inline constexpr UINT64 HARDWARE_ID_NBIO = 0x18;
inline constexpr UINT64 HARDWARE_ID_PCIE = 0x46;

// A memory controller's bank.
constexpr bool IsUmc(UINT64 Ipid) {
    return HardwareID::Get(Ipid) == HARDWARE_ID_UMC && McaType::Get(Ipid) == 0;
}
}  // namespace McaIpid

namespace McaSynd {
using Syndrome = Field<UINT64, 63, 32>;
using Type = Field<UINT64, 31, 28>;
using ErrorPriority = Field<UINT64, 26, 24>;
using Length = Field<UINT64, 23, 18>;
using ErrorInformation = Field<UINT64, 17, 0>;
static_assert(FieldsDisjoint<Syndrome, Type, ErrorPriority, Length, ErrorInformation>());

// ErrorInformation of a memory controller's bank.
using RankMultiplier = Field<UINT64, 7, 4>;
using SubChannel = Field<UINT64, 3>;
using ChipSelect = Field<UINT64, 2, 0>;
using Dimm = Field<UINT64, 2, 1>;

// Set in ErrorInformation of a DRAM ECC error that names no symbol: of a corrected, of a deferred error.
inline constexpr UINT64 NO_SYMBOL_CORRECTED_MASK = Field<UINT64, 15, 14>::Mask;
inline constexpr UINT64 NO_SYMBOL_DEFERRED_MASK = Field<UINT64, 15>::Mask;
}  // namespace McaSynd

// ErrorCodeExt of a memory controller's bank.
namespace UmcErrorCodeExt {
inline constexpr UINT64 DRAM_ECC = 0;      // the bank holds a normalized address
inline constexpr UINT64 DRAM_ADDRESS = 8;  // the bank holds a DRAM address

// The codes that are reported as parity errors of the memory bus.
constexpr bool IsBusParity(UINT64 ErrorCodeExt) {
    return ErrorCodeExt == 4 || ErrorCodeExt == 5;
}
}  // namespace UmcErrorCodeExt

// A bank's registers, by their place in its block of 16 MSRs.
enum McaRegister : UINT32 {
    MCA_CTL = 0,
    MCA_STATUS = 1,
    MCA_ADDR = 2,
    MCA_MISC0 = 3,
    MCA_CONFIG = 4,
    MCA_IPID = 5,
    MCA_SYND = 6,
    MCA_DESTAT = 8,
    MCA_DEADDR = 9,
    MCA_MISC1 = 10,
    MCA_SYND1 = 14,
    MCA_SYND2 = 15,
    MCA_REGISTERS_PER_BANK = 16,
};

inline constexpr UINT32 MSR_MCA_BASE = 0xC0002000;
inline constexpr UINT32 MSR_MCA_LEGACY_BASE = 0x400;  // 4 registers per bank: CTL, STATUS, ADDR, MISC
inline constexpr UINT32 MSR_MCA_LEGACY_END = 0x480;

constexpr UINT32 McaMsr(UINT64 Bank, UINT32 Register) {
    return static_cast<UINT32>(MSR_MCA_BASE + MCA_REGISTERS_PER_BANK * Bank + Register);
}

inline constexpr UINT32 MSR_MCG_STATUS = 0x17A;
inline constexpr UINT32 MSR_MCG_IP = 0x176;
inline constexpr UINT32 MSR_MCA_CLOAK_CFG = 0xC0010121;  // bit n set: bank n is cloaked
inline constexpr UINT32 MSR_MMIO_CFG_BASE_ADDR = 0xC0010058;

namespace McgStatus {
using EIPV = Field<UINT64, 1>;
}

namespace MmioCfgBaseAddr {
using BaseAddress = Field<UINT64, 47, 20>;
using BusRange = Field<UINT64, 5, 2>;
using Enable = Field<UINT64, 0>;
}  // namespace MmioCfgBaseAddr

// Layout of LOCAL_SMI_STATUS.Value.
namespace LocalSmiStatus {
using IoTrapSts = Field<UINT64, 3, 0>;
using MceRedirSts = Field<UINT64, 8>;
using WrMsr = Field<UINT64, 11>;
using SmiSrcLvtLgcy = Field<UINT64, 16>;
using SmiSrcLvtExt = Field<UINT64, 17>;
using SmiSrcMca = Field<UINT64, 18>;
static_assert(FieldsDisjoint<IoTrapSts, MceRedirSts, WrMsr, SmiSrcLvtLgcy, SmiSrcLvtExt, SmiSrcMca>());
}  // namespace LocalSmiStatus
