// What a function's configuration space holds and where: presence, header, capabilities (PCI Express Base 6.0,
// chapter 7). Seg, Bus, Dev and Func name the function; an absent one reads all ones.
#pragma once

#include "Include/PciDeviceState.h"
#include "Library/RasLib/PciSegment.h"

inline constexpr UINT16 AER_CAPABILITY_SIZE = 0x2C;
inline constexpr UINT16 AER_CAPABILITY_SIZE_ROOT_PORT = 0x48;
inline constexpr UINT16 AER_CAPABILITY_SIZE_PCIE_TO_PCI_BRIDGE = 0x4C;
inline constexpr UINT16 DPC_CAPABILITY_SIZE = 12;
inline constexpr UINT16 DPC_RP_EXTENSIONS_SIZE = 20;  // without the logs

// Segment address of a register of the function.
constexpr UINT64 PciFunctionAddress(const PCI_SBDF& Where, UINT16 Register) {
    return PciSegmentAddress(Where.Seg, Where.Bus, Where.Dev, Where.Func, Register);
}

// FALSE when the vendor ID reads all ones.
BOOLEAN VornCheckDevicePresent(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func);

// Reads the PCI_HEADER_SIZE bytes of the header. EFI_INVALID_PARAMETER: pPciHeaderPtr is NULL.
EFI_STATUS VornGetPciHeader(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT8* pPciHeaderPtr);

// Offset of a capability of the classic list, 0 when the function has none. CapId: a PCI_CAPABILITY_ID.
// Meant: the walk does not count its steps, a list that loops without the capability never ends.
UINT8 VornGetPciCapabilityOffset(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT8 CapId);

// Copies Length bytes of a capability of the classic list into Buffer and its offset into *pOffset.
// EFI_INVALID_PARAMETER: a NULL pointer; EFI_UNSUPPORTED: the function has no such capability, nothing is written.
EFI_STATUS VornGetPciCapabilityStructure(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT8 CapId, UINT16 Length,
                                         UINT8* pOffset, void* Buffer);

// Offset of an extended capability, 0 when the function has none. ExtCapId: a PCIE_EXTENDED_CAPABILITY_ID. The walk
// counts no steps either.
UINT16 VornGetPcieExtendedCapabilityOffset(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT16 ExtCapId);

// Finds the vendor-specific extended capability with this VSEC ID: its offset, the VSEC's revision and the VSEC's
// length in bytes. EFI_INVALID_PARAMETER: a NULL pointer; EFI_NOT_FOUND, with offset 0 and the others 0xFFFF.
EFI_STATUS VornGetPcieExtendedCapabilityOffsetVendorSpecific(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                                             UINT16 VsecId, UINT16* pOffset, UINT16* pRevision,
                                                             UINT16* pLength);

// Copies Length bytes of an extended capability into Buffer and its offset into *pOffset.
// EFI_INVALID_PARAMETER: a NULL pointer; EFI_UNSUPPORTED: the function has no such capability, nothing is written.
EFI_STATUS VornGetPcieExtendedCapabilityStructure(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT16 ExtCapId,
                                                  UINT16 Length, UINT16* pOffset, void* Buffer);

// What follows spares accesses to those who hold a part of the function's configuration space already.

// As VornGetPciCapabilityOffset; Status and Capabilities Pointer are taken from the header that was read before.
UINT8 PciCapabilityOffsetByHeader(const PCI_SBDF& Where, const UINT8* pPciHeader, UINT8 CapId);

struct PCIE_EXTENDED_CAPABILITY_SEARCH {
    UINT16 ExtCapId;
    UINT16 Offset;  // 0 until found
};

// As VornGetPcieExtendedCapabilityOffset, for several capabilities in one walk.
void FindPcieExtendedCapabilities(const PCI_SBDF& Where, PCIE_EXTENDED_CAPABILITY_SEARCH* pSearches, UINTN Count);

// Reads Length bytes from Offset on. EFI_UNSUPPORTED: they would reach beyond the function's configuration space,
// nothing is read.
EFI_STATUS ReadPciStructure(const PCI_SBDF& Where, UINT16 Offset, UINT16 Length, void* Buffer);

// Bytes of the two capabilities that are worth a copy. DpcCapabilityRegister: as at DPC_CAPABILITY.
constexpr UINT16 AerCopyLength(UINT8 DevicePortType) {
    return DevicePortType == PcieRootPort      ? AER_CAPABILITY_SIZE_ROOT_PORT
           : DevicePortType == PcieToPciBridge ? AER_CAPABILITY_SIZE_PCIE_TO_PCI_BRIDGE
                                               : AER_CAPABILITY_SIZE;
}
constexpr UINT16 DpcCopyLength(UINT16 DpcCapabilityRegister) {
    if (DpcCapability::RpExtensions::Get(DpcCapabilityRegister) == 0) {
        return DPC_CAPABILITY_SIZE;
    }
    // Meant: the log size counts doublewords and is added as bytes; of the logs, only so many bytes are kept.
    return static_cast<UINT16>(DPC_CAPABILITY_SIZE + DPC_RP_EXTENSIONS_SIZE +
                               DpcCapability::RpPioLogSize::Get(DpcCapabilityRegister));
}

// The same lengths by the function's own registers.
// EFI_INVALID_PARAMETER: pLength is NULL; EFI_UNSUPPORTED, with length 0xFFFF: no PCI Express capability, or a port
// without DPC.
EFI_STATUS VornGetPcieExtendedCapabilityStructureLengthAer(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                                           UINT16* pLength);
EFI_STATUS VornGetPcieExtendedCapabilityStructureLengthDpc(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                                           UINT16* pLength);
