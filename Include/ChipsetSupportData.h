// The block that travels with every CPER record into the policy engine, and what it carries of a memory error.
#pragma once

#include "Include/McaErrorInfo.h"

struct NORMALIZED_ADDRESS {
    UINT64 NormalizedAddress;
    UINT8 Socket;
    UINT8 Die;
    UINT8 UmcChannel;  // as the PSP numbers it
    UINT8 Reserved11[5];
};
KYR_RECORD(NORMALIZED_ADDRESS, 16);
KYR_FIELD(NORMALIZED_ADDRESS, Socket, 8);
KYR_FIELD(NORMALIZED_ADDRESS, Die, 9);
KYR_FIELD(NORMALIZED_ADDRESS, UmcChannel, 10);

struct DIMM_INFO {
    UINT32 ValidBits;
    UINT8 ChipSelect;
    UINT8 Bank;
    UINT8 Reserved6[2];
    UINT32 Row;
    UINT16 Column;
    UINT8 RankMul;
    UINT8 Reserved15;
    UINT8 SubChannel;
    UINT8 Reserved17[3];
    UINT8 RankOnCh;
    UINT8 DimmOnCh;
    UINT8 RankOnDimm;
    UINT8 BankGroup;
    UINT8 BankAddress;
    UINT8 Reserved25[3];
    UINT32 DeviceStart;  // first and last DRAM device that the error symbol maps to
    UINT32 DeviceEnd;
};
KYR_RECORD(DIMM_INFO, 36);
KYR_FIELD(DIMM_INFO, ChipSelect, 4);
KYR_FIELD(DIMM_INFO, Bank, 5);
KYR_FIELD(DIMM_INFO, Row, 8);
KYR_FIELD(DIMM_INFO, Column, 12);
KYR_FIELD(DIMM_INFO, RankMul, 14);
KYR_FIELD(DIMM_INFO, SubChannel, 16);
KYR_FIELD(DIMM_INFO, RankOnCh, 20);
KYR_FIELD(DIMM_INFO, DimmOnCh, 21);
KYR_FIELD(DIMM_INFO, RankOnDimm, 22);
KYR_FIELD(DIMM_INFO, BankGroup, 23);
KYR_FIELD(DIMM_INFO, BankAddress, 24);
KYR_FIELD(DIMM_INFO, DeviceStart, 28);
KYR_FIELD(DIMM_INFO, DeviceEnd, 32);

// DIMM_INFO.ValidBits.
namespace DimmInfoValid {
using AddressTranslationData = Field<UINT32, 0>;  // decoded from the address
using ChipSelectFromSyndrome = Field<UINT32, 1>;  // only ChipSelect and DimmOnCh, taken from MCA_SYND
}  // namespace DimmInfoValid

struct UmcCeccPfaThresholdData {
    UINT8 Valid;
    UINT8 Socket;
    UINT8 Channel;  // UMC channel + 2 * die
    UINT8 ChipSelect;
    UINT8 Dimm;
    UINT8 DimmPhysRank;
    UINT16 EccErrCntDelta;  // corrected errors that this SMI stands for
};
KYR_RECORD(UmcCeccPfaThresholdData, 8);
KYR_FIELD(UmcCeccPfaThresholdData, EccErrCntDelta, 6);

struct UmcEccErrCntRegInitData {
    UINT16 EccErrThresh;
    UINT16 EccErrCnt;  // start value; the counter raises its SMI when it passes 0xFFFF
};
KYR_RECORD(UmcEccErrCntRegInitData, 4);

// Data of a record that came from a machine-check bank.
struct MACHINE_CHECK_SUPPORT_DATA {
    UINT8 ValidRasMcaErrorInfo;
    UINT8 ValidNormalizedAddressInfoPsp;
    UINT8 McaBankIndex;  // into RasMcaErrorInfo.McaBankErrorInfo
    UINT8 Reserved3[5];
    ::RasMcaErrorInfo RasMcaErrorInfo;
    NORMALIZED_ADDRESS NormalizedAddressInfo;
    DIMM_INFO DimmInfo;
    ::UmcCeccPfaThresholdData UmcCeccPfaThresholdData;
    UINT8 Reserved10364[4];
};
KYR_RECORD(MACHINE_CHECK_SUPPORT_DATA, 10368);
KYR_FIELD(MACHINE_CHECK_SUPPORT_DATA, ValidNormalizedAddressInfoPsp, 1);
KYR_FIELD(MACHINE_CHECK_SUPPORT_DATA, McaBankIndex, 2);
KYR_FIELD(MACHINE_CHECK_SUPPORT_DATA, RasMcaErrorInfo, 8);
KYR_FIELD(MACHINE_CHECK_SUPPORT_DATA, NormalizedAddressInfo, 10304);
KYR_FIELD(MACHINE_CHECK_SUPPORT_DATA, DimmInfo, 10320);
KYR_FIELD(MACHINE_CHECK_SUPPORT_DATA, UmcCeccPfaThresholdData, 10356);

// Data of a record that came from a PCI function: what a containment event tells the later steps, and what the
// capture of the function left for the record (the front of its PCI_DEVICE_STATE).
struct PCI_SUPPORT_DATA {
    UINT8 DpcOsLoaded;  // the OS drives the recovery of the port
    UINT8 DpcEvent;     // the record is about a containment event
    UINT8 Reserved2[2];
    UINT8 ChipsetDataValid;
    UINT8 Reserved5[3];
    UINT8 ChipsetData[28];
    UINT8 Reserved36[10332];
};
KYR_RECORD(PCI_SUPPORT_DATA, 10368);
KYR_FIELD(PCI_SUPPORT_DATA, DpcEvent, 1);
KYR_FIELD(PCI_SUPPORT_DATA, ChipsetDataValid, 4);
KYR_FIELD(PCI_SUPPORT_DATA, ChipsetData, 8);

struct KYR_CHIPSET_SUPPORT_DATA {
    union {
        MACHINE_CHECK_SUPPORT_DATA MachineCheck;
        PCI_SUPPORT_DATA Pci;
    };
};
KYR_RECORD(KYR_CHIPSET_SUPPORT_DATA, 10368);

// The bank that the record is about. McaBankIndex is below MCA_BANK_ERROR_INFO_MAX: the driver built the block.
inline const MCA_BANK_ERROR_INFO& RecordBank(const KYR_CHIPSET_SUPPORT_DATA& ChipsetData) {
    return ChipsetData.MachineCheck.RasMcaErrorInfo.McaBankErrorInfo[ChipsetData.MachineCheck.McaBankIndex];
}
