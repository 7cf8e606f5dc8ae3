#include "Library/VornCperCreateLib/ProcessorSection.h"

#include "Include/CperProcessorCheck.h"
#include "Library/RasLib/BankIndex.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Text.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornCperCreateLib/CperRecord.h"
#include "Library/VornCperCreateLib/ProcessorCheck.h"

namespace {

constexpr UINT16 REGISTER_CONTEXT_TYPE_MSR = 1;

}  // namespace

EFI_STATUS VornCperCreateProcessorErrorInformationStructure(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo,
                                                            UINT32 BankIndex, BOOLEAN IsDeferred,
                                                            EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION* pErrorInfo) {
    if (pRasMcaErrorInfo == nullptr || pErrorInfo == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input pointers are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (!IsBankIndexInRange(BankIndex)) {
        return EFI_INVALID_PARAMETER;
    }
    const UINT64 Mca = pRasMcaErrorInfo->McaBankErrorInfo[BankIndex].McaStatus;
    const UINT16 ErrorCode = static_cast<UINT16>(McaStatus::ErrorCode::Get(Mca));
    Trace(Level, "%a: ErrorCode 0x%04x MCA_CTL bit %d IsDeferred %d\n", ErrorCode, McaStatus::ErrorCodeExt::Get(Mca),
          IsDeferred);

    UINT32 i = 0;
    for (; i < MAX_UEFI_CPER_ERROR_CHECK_STRUCTURE_TYPES; i++) {
        BOOLEAN IsDetected = FALSE;
        if (!EFI_ERROR(CperProcessorErrorCheckTable[i].Validator(Level, ErrorCode, IsDeferred, &IsDetected)) &&
            IsDetected != FALSE) {
            break;
        }
    }
    if (i >= MAX_UEFI_CPER_ERROR_CHECK_STRUCTURE_TYPES) {
        Trace(DEBUG_ERROR,
              "%a: ERROR CperProcessorErrorCheckTable overrun (i %d >= MAX_UEFI_CPER_ERROR_CHECK_STRUCTURE_TYPES "
              "%d)\n",
              i, MAX_UEFI_CPER_ERROR_CHECK_STRUCTURE_TYPES);
        return EFI_NOT_FOUND;
    }

    const CPER_PROCESSOR_ERROR_CHECK& Check = CperProcessorErrorCheckTable[i];
    BOOLEAN IsErrorCheckInfoValid = FALSE;
    BOOLEAN IsMachineCheckRestartable = FALSE;
    UINT64 CheckInfo = pErrorInfo->CheckInfo;
    const EFI_STATUS Status = Check.Constructor(Level, pRasMcaErrorInfo, BankIndex, &IsErrorCheckInfoValid,
                                                &CheckInfo, &IsMachineCheckRestartable);
    pErrorInfo->CheckInfo = CheckInfo;
    if (!EFI_ERROR(Status) && IsErrorCheckInfoValid != FALSE) {
        pErrorInfo->ErrorType = *Check.pErrorTypeGuid;
        pErrorInfo->ValidFields |= CperErrorInfoValid::CheckInfo::Mask;
        if (IsMachineCheckRestartable != FALSE) {
            pErrorInfo->ValidFields |= CperErrorInfoValid::InstructionIP::Mask;
            pErrorInfo->InstructionIP = pRasMcaErrorInfo->McgIp;
        }
    }
    return Status;
}

EFI_STATUS VornCperCreateProcessorContextInfoStrucMcBank(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo,
                                                         UINT32 BankIndex, UINT16 NumRegisters, UINT64 ContextSize,
                                                         BOOLEAN* pIsValid,
                                                         EFI_IA32_X64_PROCESSOR_CONTEXT_INFO* pContext) {
    if (pRasMcaErrorInfo == nullptr || pIsValid == nullptr || pContext == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input pointers are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pIsValid = FALSE;
    if (!IsBankIndexInRange(BankIndex)) {
        return EFI_INVALID_PARAMETER;
    }
    const MCA_BANK_ERROR_INFO& Bank = pRasMcaErrorInfo->McaBankErrorInfo[BankIndex];
    // Entry i belongs to MSR MsrAddress + i. The zeros are a reserved register and MISC2 to MISC4, which are not
    // captured.
    const UINT64 Registers[MCA_REGISTERS_PER_BANK] = {Bank.McaCtl,
                                                      Bank.McaStatus,
                                                      Bank.McaAddr,
                                                      Bank.McaMisc0,
                                                      Bank.McaConfig,
                                                      Bank.McaIpid,
                                                      Bank.McaSynd,
                                                      0,
                                                      Bank.McaDeStat,
                                                      Bank.McaDeAddr,
                                                      Bank.McaMisc1,
                                                      0,
                                                      0,
                                                      0,
                                                      Bank.McaSynd1,
                                                      Bank.McaSynd2};
    const UINT64 Bytes =
        sizeof(UINT64) * (NumRegisters < MCA_REGISTERS_PER_BANK ? NumRegisters : UINT32{MCA_REGISTERS_PER_BANK});
    if (ContextSize < sizeof(*pContext) + Bytes) {
        Trace(DEBUG_ERROR, "%a: ERROR ContextSize %d too small for %d registers, aborting...\n", ContextSize,
              NumRegisters);
        return EFI_BUFFER_TOO_SMALL;
    }
    const UINT32 MsrAddress = McaMsr(Bank.McaBankNumber, MCA_CTL);
    pContext->RegisterContextType = REGISTER_CONTEXT_TYPE_MSR;
    pContext->RegisterArraySize = static_cast<UINT16>(ContextSize - sizeof(*pContext));
    pContext->MsrAddress = MsrAddress;
    pContext->MmRegisterAddress = 0;
    CopyMem(pContext + 1, Registers, Bytes);
    *pIsValid = TRUE;
    Trace(Level, "%a: %d registers from MSR 0x%08x\n", NumRegisters, MsrAddress);
    return EFI_SUCCESS;
}

namespace {

// A node begins with its link.
template <class Node>
const Node& NodeOf(const LIST_ENTRY* Link) {
    return *reinterpret_cast<const Node*>(Link);
}

UINT64 ContextBytes(const PROCESSOR_CONTEXT_INFO_DATA_NODE& Node) {
    return sizeof(EFI_IA32_X64_PROCESSOR_CONTEXT_INFO) + Node.RegisterArrayLength;
}

}  // namespace

UINT64 VornCperGetProcessorSpecificSectionLength(UINT64 Level, const LIST_ENTRY* pErrorInfoList,
                                                 const LIST_ENTRY* pContextInfoList) {
    if (pErrorInfoList == nullptr || pContextInfoList == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input pointers are NULL, aborting...\n");
        return static_cast<UINT64>(EFI_INVALID_PARAMETER);
    }
    UINT64 Length = sizeof(CPER_PROCESSOR_SECTION);
    for (const LIST_ENTRY* Link = pErrorInfoList->ForwardLink; Link != pErrorInfoList; Link = Link->ForwardLink) {
        Length += sizeof(EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION);
    }
    for (const LIST_ENTRY* Link = pContextInfoList->ForwardLink; Link != pContextInfoList; Link = Link->ForwardLink) {
        Length += ContextBytes(NodeOf<PROCESSOR_CONTEXT_INFO_DATA_NODE>(Link));
    }
    Trace(Level, "%a: Section length %d\n", Length);
    return Length;
}

UINT64 VornCperGetProcessorSpecificRecordLength(UINT64 Level, const LIST_ENTRY* pErrorInfoList,
                                                const LIST_ENTRY* pContextInfoList) {
    return sizeof(CPER_RECORD) + VornCperGetProcessorSpecificSectionLength(Level, pErrorInfoList, pContextInfoList);
}

namespace {

// Where the next structure goes. Structures follow each other without gaps.
struct SECTION_CURSOR {
    UINT8* Record;
    UINT64 RecordLength;
    UINT64 Offset;
};

// False, and nothing copied, when the structure would pass the record's end.
bool Append(SECTION_CURSOR& Cursor, const void* Structure, UINT64 Bytes) {
    if (Bytes > Cursor.RecordLength - Cursor.Offset) {
        return false;
    }
    CopyMem(Cursor.Record + Cursor.Offset, Structure, Bytes);
    Cursor.Offset += Bytes;
    return true;
}

// Adds one to a count of 6 bits; the 64th structure wraps it to 0.
template <class Count>
void CountOneMore(CPER_PROCESSOR_SECTION& Section) {
    Section.ValidFields = Count::Set(Section.ValidFields, Count::Get(Section.ValidFields) + 1);
}

EFI_STATUS AppendErrorInfoList(const LIST_ENTRY* pErrorInfoList, CPER_PROCESSOR_SECTION& Section,
                               SECTION_CURSOR& Cursor, const CHAR8* Caller) {
    UINT32 Index = 0;
    for (const LIST_ENTRY* Link = pErrorInfoList->ForwardLink; Link != pErrorInfoList;
         Link = Link->ForwardLink, Index++) {
        const PROCESSOR_ERROR_INFO_DATA_NODE& Node = NodeOf<PROCESSOR_ERROR_INFO_DATA_NODE>(Link);
        if (Node.pErrorInfo == nullptr) {
            continue;
        }
        if (!Append(Cursor, Node.pErrorInfo, sizeof(*Node.pErrorInfo))) {
            TraceAs(Caller, DEBUG_ERROR,
                    "%a: ERROR Processor Error Info %d => CPER buffer overrun when copying Processor Error "
                    "Information Structure\n",
                    Index);
            return EFI_BUFFER_TOO_SMALL;
        }
        CountOneMore<CperProcessorValid::PROC_ERR_INFO_NUM>(Section);
    }
    return EFI_SUCCESS;
}

EFI_STATUS AppendContextInfoList(const LIST_ENTRY* pContextInfoList, CPER_PROCESSOR_SECTION& Section,
                                 SECTION_CURSOR& Cursor, const CHAR8* Caller) {
    UINT32 Index = 0;
    for (const LIST_ENTRY* Link = pContextInfoList->ForwardLink; Link != pContextInfoList;
         Link = Link->ForwardLink, Index++) {
        const PROCESSOR_CONTEXT_INFO_DATA_NODE& Node = NodeOf<PROCESSOR_CONTEXT_INFO_DATA_NODE>(Link);
        if (Node.pContextInfo == nullptr) {
            continue;
        }
        if (!Append(Cursor, Node.pContextInfo, ContextBytes(Node))) {
            TraceAs(Caller, DEBUG_ERROR,
                    "%a: ERROR Processor Context Info %d => CPER buffer overrun when copying Processor Context "
                    "Information Structure\n",
                    Index);
            return EFI_BUFFER_TOO_SMALL;
        }
        CountOneMore<CperProcessorValid::PROC_CONTEXT_INFO_NUM>(Section);
    }
    return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS VornCperCreateProcessorSpecific(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo, UINT32 BankIndex,
                                           BOOLEAN PreviousError, BOOLEAN, const LIST_ENTRY* pErrorInfoList,
                                           const LIST_ENTRY* pContextInfoList, UINT64 CperLength,
                                           CPER_RECORD* pCper) {
    if (pRasMcaErrorInfo == nullptr || pErrorInfoList == nullptr || pContextInfoList == nullptr || pCper == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input pointers are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (!IsBankIndexInRange(BankIndex)) {
        return EFI_INVALID_PARAMETER;
    }
    constexpr UINT64 FixedLength = sizeof(CPER_RECORD) + sizeof(CPER_PROCESSOR_SECTION);
    if (CperLength < FixedLength) {
        Trace(DEBUG_ERROR, "%a: ERROR CperLength %d < %d, aborting...\n", CperLength, FixedLength);
        return EFI_BUFFER_TOO_SMALL;
    }
    const MCA_BANK_ERROR_INFO& Bank = pRasMcaErrorInfo->McaBankErrorInfo[BankIndex];
    FillCperRecordFrontMachineCheck(
        Level, Bank, gCperSectionProcessorSpecificGuid,
        VornCperGetProcessorSpecificSectionLength(Level, pErrorInfoList, pContextInfoList), CperLength, PreviousError,
        pCper);
    // The text is there but not marked valid; that is meant.
    CopyTextCut(pCper->Descriptor.FruString, CPER_FRU_STRING_SIZE, Bank.FruText, MCA_FRU_TEXT_SIZE);

    const CPU_INFO& Cpu = pRasMcaErrorInfo->CpuInfo;
    CPER_PROCESSOR_SECTION& Section = *CperSection<CPER_PROCESSOR_SECTION>(pCper);
    Section.ValidFields = CperProcessorValid::LocalApicId::Mask | CperProcessorValid::CpuIdInfo::Mask;
    Section.LocalApicId = Cpu.LocalApicId;
    Section.CpuIdInfo[0] = Cpu.CpuIdLeaf1Eax;
    Section.CpuIdInfo[1] = Cpu.CpuIdLeaf1Ebx;
    Section.CpuIdInfo[2] = Cpu.CpuIdLeaf1Ecx;
    Section.CpuIdInfo[3] = Cpu.CpuIdLeaf1Edx;

    SECTION_CURSOR Cursor{reinterpret_cast<UINT8*>(pCper), CperLength, FixedLength};
    const EFI_STATUS Status = AppendErrorInfoList(pErrorInfoList, Section, Cursor, __builtin_FUNCTION());
    return EFI_ERROR(Status) ? Status
                             : AppendContextInfoList(pContextInfoList, Section, Cursor, __builtin_FUNCTION());
}
