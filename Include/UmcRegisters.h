// Registers of a memory controller's channel (UMC), on the system management network of the socket's IO hub 0.
#pragma once

#include "Include/Field.h"

enum UMC_REGISTER : UINT32 {
    UMC_ADDRESS_CONFIG = 0x40,  // address configuration of chip select 0; one register of 4 bytes for each
    UMC_DRAM_SCRUB_CTRL = 0x174,
    UMC_DRAM_SCRUB_ADDR_LO = 0x180,  // address of the patrol scrubber in bytes, low half
    UMC_DRAM_SCRUB_ADDR_HI = 0x184,  // high half
    UMC_ECC_ERR_CNT_SEL = 0xD80,     // which counter UMC_ECC_ERR_CNT is
    UMC_ECC_ERR_CNT = 0xD84,
    UMC_ECC_ERR_CNT_CTRL = 0xD88,
};

inline constexpr UINT32 UMC_REGISTER_BASE = 0x50000;
inline constexpr UINT32 UMC_CHANNEL_STRIDE = 0x100000;

// SMN address of a channel's register. UmcChannel: of the socket.
constexpr UINT32 UmcSmnAddress(UINT32 UmcChannel, UINT32 Register) {
    return UMC_REGISTER_BASE + UmcChannel * UMC_CHANNEL_STRIDE + Register;
}
static_assert(UmcSmnAddress(0, UMC_ECC_ERR_CNT_SEL) == 0x50D80);
static_assert(UmcSmnAddress(11, UMC_ECC_ERR_CNT_CTRL) == 0xB50D88);

namespace UmcAddressConfig {
using BankBits = Field<UINT32, 21, 20>;     // bits of a bank's number, less 3
using BankGroupBits = Field<UINT32, 3, 2>;  // how many of them name its group
static_assert(FieldsDisjoint<BankBits, BankGroupBits>());
}  // namespace UmcAddressConfig

namespace EccErrCntSel {
using SubChannel = Field<UINT32, 5>;
using ChipSelect = Field<UINT32, 4, 3>;
using RankMul = Field<UINT32, 2, 0>;
using Index = Field<UINT32, 5, 0>;  // the three together
static_assert(FieldsDisjoint<SubChannel, ChipSelect, RankMul>());

// Kept when another counter is selected: the index goes, and bit 31 with it.
inline constexpr UINT32 KEEP_MASK = 0x7FFFFFC0;
}  // namespace EccErrCntSel

namespace EccErrCnt {
using Count = Field<UINT32, 15, 0>;  // counts up; stays and raises the interrupt at 0xFFFF
}

namespace EccErrCntCtrl {
using EccErrInt = Field<UINT32, 5, 4>;  // interrupt type
using EccErrCntEn = Field<UINT32, 0>;
static_assert(FieldsDisjoint<EccErrInt, EccErrCntEn>());
}  // namespace EccErrCntCtrl

namespace DramScrubCtrl {
using Enable = Field<UINT32, 8>;
}

// Counters per channel: one for each sub-channel, chip select and rank multiplier.
inline constexpr UINT8 UMC_SUB_CHANNELS = 2;
inline constexpr UINT8 UMC_CHIP_SELECTS = 4;
inline constexpr UINT8 UMC_RANK_MULTIPLIERS = 8;
