// Error status of a root complex: registers of its IO hub controller (IOHC), on the system management network.
#pragma once

#include "Include/Field.h"

// A register's SMN address by place: the two IOHCs of a pair have bases of their own.
struct IOHC_REGISTER {
    UINT32 EvenBase;
    UINT32 OddBase;

    // NbioId of the socket, IohcId of the NBIO.
    constexpr UINT32 SmnAddress(UINT8 NbioId, UINT8 IohcId) const {
        constexpr UINT32 IOHC_PAIR_STRIDE = 0x100000;
        constexpr UINT32 NBIO_STRIDE = 0x200000;
        return ((IohcId & 1) == 0 ? EvenBase : OddBase) + (IohcId >> 1) * IOHC_PAIR_STRIDE + NbioId * NBIO_STRIDE;
    }
};

inline constexpr IOHC_REGISTER IOHC_RAS_GLOBAL_STATUS = {0x13B20020, 0x1D420020};
inline constexpr IOHC_REGISTER IOHC_RAS_GLOBAL_STATUS_HI = {0x13B20024, 0x1D420024};
inline constexpr IOHC_REGISTER IOHC_SW_SMI_CNTL = {0x13B1010C, 0x1D41010C};
static_assert(IOHC_RAS_GLOBAL_STATUS.SmnAddress(0, 0) == 0x13B20020);
static_assert(IOHC_RAS_GLOBAL_STATUS_HI.SmnAddress(1, 3) == 0x1D720024);

namespace RasGlobalStatus {
using MpioFirmwareInterrupt = Field<UINT32, 9>;
}

namespace RasGlobalStatusHi {
using PortErrors = Field<UINT32, 21, 0>;  // PCIe or CXL protocol errors of the ports; written ones clear
}

namespace SwSmiCntl {
using CxlEvent = Field<UINT32, 1>;  // a CXL component error came through the MPIO
}
