// Registers of the IO hub controllers (IOHC) and PCIe cores that root ports hang on. All are 32 bits wide and reached
// through SMN, by the index/data pair of the port's own root complex.
//
// An IO hub (IOM) is one IOHC: IOM = NBIO * 4 + IOHC. IOM n holds PCIe core n % 4 of its NBIO with up to 9 ports; the
// layout of IOM 2 (and of IOM 6, its twin) holds core 5 as well, with 8 ports more. Ports are counted through an
// IOHC: 0 to 8 belong to the first core, 9 to 16 to core 5 as its ports 0 to 7.
//
// A PCIe core's control register (with the HWINIT lock) and its ports' error control registers follow the core, for
// IOM 4 to 7 + 0x200000 (Library/RasLib/NbioPort.cpp has the table). What belongs to a port of an IOHC follows the
// IOHC.
#pragma once

#include "Include/Field.h"

inline constexpr UINT8 IOHC_PORTS = 9;
inline constexpr UINT8 IOHC_PORTS_TWO_CORES = 17;

// Ports that the IOHC of an IOM (0 to 7) has.
constexpr UINT8 IohcPortCount(UINT8 Iom) {
    return Iom % 4 == 2 ? IOHC_PORTS_TWO_CORES : IOHC_PORTS;
}

// A register that an IOHC has for each of its ports. NbioRbIndex: even IOHCs first (0 to 3), then the odd ones (4 to
// 7), each in the order of their NBIO.
struct IOHC_PORT_REGISTER {
    UINT32 EvenBase;
    UINT32 OddBase;
    UINT32 PortStride;

    constexpr UINT32 SmnAddress(UINT8 NbioRbIndex, UINT8 Port) const {
        constexpr UINT32 IOHC_STRIDE = 0x100000;
        return (NbioRbIndex < 4 ? EvenBase : OddBase) + (NbioRbIndex & 3u) * IOHC_STRIDE + Port * PortStride;
    }
};

inline constexpr IOHC_PORT_REGISTER IOHC_BRIDGE_MAP = {0x13B100B8, 0x1D4100B8, 4};
inline constexpr IOHC_PORT_REGISTER ExtCorr_ACTION_CONTROL = {0x13B2027C, 0x1D420124, 0x20};
inline constexpr IOHC_PORT_REGISTER IntCorr_ACTION_CONTROL = {0x13B20270, 0x1D420118, 0x20};
static_assert(IOHC_BRIDGE_MAP.SmnAddress(7, 3) == 0x1D7100C4);

// Where the port's logical bridge appears on the root complex's base bus.
namespace NbioBridgeMap {
using Device = Field<UINT32, 7, 3>;
using Function = Field<UINT32, 2, 0>;
static_assert(FieldsDisjoint<Device, Function>());
}  // namespace NbioBridgeMap

// While the lock is set, hardware-initialised registers of the core's ports (Slot Capabilities among them) keep what
// is written to them out.
namespace PcieCoreControl {
using HwInitLock = Field<UINT32, 0>;
}

namespace PcieErrorControl {
using SurpriseDownStrap = Field<UINT32, 31, 24>;
inline constexpr UINT32 SURPRISE_DOWN_REPORTED = 0x26;
}  // namespace PcieErrorControl

// What a port's corrected errors raise.
namespace IohcActionControl {
using IntrGenSel = Field<UINT32, 2, 1>;
inline constexpr UINT32 GENERATE_SMI = 3;
}  // namespace IohcActionControl
