// Nodes of the two lists that carry a machine-check bank's data to the creator of its processor record.
#pragma once

#include "Include/Cper.h"
#include "Include/LinkedList.h"

struct PROCESSOR_ERROR_INFO_DATA_NODE {
    LIST_ENTRY Link;
    EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION* pErrorInfo;
};
KYR_RECORD(PROCESSOR_ERROR_INFO_DATA_NODE, 24);
KYR_FIELD(PROCESSOR_ERROR_INFO_DATA_NODE, Link, 0);
KYR_FIELD(PROCESSOR_ERROR_INFO_DATA_NODE, pErrorInfo, 16);

struct PROCESSOR_CONTEXT_INFO_DATA_NODE {
    LIST_ENTRY Link;
    EFI_IA32_X64_PROCESSOR_CONTEXT_INFO* pContextInfo;
    UINT64 RegisterArrayLength;  // bytes behind the structure's 16-byte head
    void* pRegisterArray;        // pContextInfo + 16
};
KYR_RECORD(PROCESSOR_CONTEXT_INFO_DATA_NODE, 40);
KYR_FIELD(PROCESSOR_CONTEXT_INFO_DATA_NODE, Link, 0);
KYR_FIELD(PROCESSOR_CONTEXT_INFO_DATA_NODE, pContextInfo, 16);
KYR_FIELD(PROCESSOR_CONTEXT_INFO_DATA_NODE, RegisterArrayLength, 24);
KYR_FIELD(PROCESSOR_CONTEXT_INFO_DATA_NODE, pRegisterArray, 32);
