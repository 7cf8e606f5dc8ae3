// SMBIOS data of the memory, as the boot firmware hands it into SMRAM (SMBIOS 3.7, sections 7.17 and 7.18).
#pragma once

#include "Include/Layout.h"

#pragma pack(push, 1)
// A physical memory array.
struct ELOG_SMBIOS_TYPE16_RECORD {
    UINT16 Handle;
    UINT8 Producer2[15];
};
KYR_RECORD(ELOG_SMBIOS_TYPE16_RECORD, 17);

// A memory device.
struct ELOG_SMBIOS_TYPE17_RECORD {
    UINT16 Handle;
    UINT16 MemoryArrayHandle;
    UINT8 Producer4[2];
    CHAR8 DeviceLocator[645];  // NUL-terminated; what follows the text is the producer's
};
KYR_RECORD(ELOG_SMBIOS_TYPE17_RECORD, 651);
KYR_FIELD(ELOG_SMBIOS_TYPE17_RECORD, MemoryArrayHandle, 2);
KYR_FIELD(ELOG_SMBIOS_TYPE17_RECORD, DeviceLocator, 6);

inline constexpr UINTN ELOG_SMBIOS_TYPE16_RECORDS_MAX = 10;
inline constexpr UINTN ELOG_SMBIOS_TYPE17_RECORDS_MAX = 128;

// What travels in a communication buffer, one layout per type of record. The records always travel in full; the
// number of handles says how many of them hold something.
template <class Record>
struct ELOG_SMBIOS_SMM_COMM_DATA_PAYLOAD;

template <>
struct ELOG_SMBIOS_SMM_COMM_DATA_PAYLOAD<ELOG_SMBIOS_TYPE16_RECORD> {
    UINT8 Type16DataValid;
    UINT16 Type16NumHandles;
    ELOG_SMBIOS_TYPE16_RECORD Type16Records[ELOG_SMBIOS_TYPE16_RECORDS_MAX];
};
using ELOG_SMBIOS_TYPE16_PAYLOAD = ELOG_SMBIOS_SMM_COMM_DATA_PAYLOAD<ELOG_SMBIOS_TYPE16_RECORD>;
KYR_RECORD(ELOG_SMBIOS_TYPE16_PAYLOAD, 3 + 170);
KYR_FIELD(ELOG_SMBIOS_TYPE16_PAYLOAD, Type16NumHandles, 1);
KYR_FIELD(ELOG_SMBIOS_TYPE16_PAYLOAD, Type16Records, 3);

template <>
struct ELOG_SMBIOS_SMM_COMM_DATA_PAYLOAD<ELOG_SMBIOS_TYPE17_RECORD> {
    UINT8 Type17DataValid;
    UINT16 Type17NumHandles;
    ELOG_SMBIOS_TYPE17_RECORD Type17Records[ELOG_SMBIOS_TYPE17_RECORDS_MAX];
};
using ELOG_SMBIOS_TYPE17_PAYLOAD = ELOG_SMBIOS_SMM_COMM_DATA_PAYLOAD<ELOG_SMBIOS_TYPE17_RECORD>;
KYR_RECORD(ELOG_SMBIOS_TYPE17_PAYLOAD, 3 + 83328);
KYR_FIELD(ELOG_SMBIOS_TYPE17_PAYLOAD, Type17NumHandles, 1);
KYR_FIELD(ELOG_SMBIOS_TYPE17_PAYLOAD, Type17Records, 3);
#pragma pack(pop)
