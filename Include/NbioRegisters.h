// Registers of the IO hub controllers (IOHC) and PCIe cores that root ports hang on. All are 32 bits wide and reached
// through SMN, by the index/data pair of the port's own root complex.
//
// An IO hub (IOM) is one IOHC: IOM = NBIO * 4 + IOHC. IOM n holds PCIe core n % 4 of its NBIO with up to 9 ports; the
// layout of IOM 2 (and of IOM 6, its twin) holds core 5 as well, with 8 ports more. Ports are counted through an
// IOHC: 0 to 8 belong to the first core, 9 to 16 to core 5 as its ports 0 to 7.
//
//   register                      address
//   bridge map of a port          0x13B100B8 (even IOHC) or 0x1D4100B8 (odd IOHC) + IOHC / 2 * 0x100000
//                                 + NBIO * 0x200000 + port of the IOHC * 4
//   HWINIT lock (PCIe control)    0x1A380040 / 0x1A480040 / 0x1A780040 / 0x1A880040 / 0x1AB80040 for core 0 / 1 / 2 /
//   3
//                                 / 5, + 0x200000 for IOM 4 to 7: one for all ports of the core
//   error control of a port       0x1A3401A8 / 0x1A4401A8 / 0x1A7401A8 / 0x1A8401A8 / 0x1AB401A8 for core 0 / 1 / 2 /
//   3
//                                 / 5, + 0x200000 for IOM 4 to 7, + port of the core << 12
//   ExtCorr, IntCorr action       even IOHC: 0x13B2027C, 0x13B20270; odd IOHC: 0x1D420124, 0x1D420118; + IOHC / 2 *
//   control of a port             0x100000 + NBIO * 0x200000 + port of the IOHC * 0x20
#pragma once

#include "Include/Field.h"

inline constexpr UINT8 IOHC_PORTS = 9;
inline constexpr UINT8 IOHC_PORTS_TWO_CORES = 17;

// Ports that the IOHC of an IOM (0 to 7) has.
constexpr UINT8 IohcPortCount(UINT8 Iom) {
    return Iom % 4 == 2 ? IOHC_PORTS_TWO_CORES : IOHC_PORTS;
}

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
