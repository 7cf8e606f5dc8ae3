// Small services of the silicon maker. Slots are platform constants.
#pragma once

#include "Platform/Base.h"

// Platform configuration values by token.
struct KYR_PCD_PROTOCOL {
    UINT8 (*Get8)(UINTN TokenNumber);
    BOOLEAN (*GetBool)(UINTN TokenNumber);
};

// The silicon maker's configuration buffer.
struct KYR_TALVO_CONFIG_PROTOCOL {
    void (*SetTalvoCfg8)(UINT32 Uid, UINT8 Value);
};

// The PSP's mailbox command for RAS error injection. Action packs the mailbox command (bits 23:16) and the
// operation (bits 15:0); ActionStructure may be NULL where the operation takes none.
struct KYR_PSP_RAS_EINJ_PROTOCOL {
    EFI_STATUS (*PspMboxRasEinj)(UINT32 Action, void* ActionStructure, void* SmmBuffer, UINT8* SmmFlag);
};
inline constexpr UINT32 RAS_ACPI_EINJ_ENABLE_INJECTION = 0x410001;

// Indirect data-fabric configuration access. Function below 8; Offset below 0x2000, a multiple of 4; Instance
// a fabric instance ID or FABRIC_INSTANCE_BROADCAST. An absent instance reads all ones.
struct KYR_FABRIC_REGISTER_PROTOCOL {
    UINT32 (*FabricRegisterAccRead)(UINTN Socket, UINTN Die, UINTN Function, UINTN Offset, UINTN Instance);
};
inline constexpr UINTN FABRIC_INSTANCE_BROADCAST = 0xFFFFFFFF;

// Where the PSP mailbox buffer reserved for SMM lies, and the byte that tells the PSP that SMM owns it.
struct PSP_MBOX_SMM_BUFFER_ADDRESS_PROTOCOL {
    UINT8* PspMboxSmmBuffer;
    UINT8* PspMboxSmmFlagAddr;
};

// Where SMRAM lies and which regions a communication buffer may come from.
struct KYR_MEMORY_REGION {
    UINT64 Base;
    UINT64 Size;  // bytes
};
struct KYR_SMM_MEMORY_MAP_PROTOCOL {
    const KYR_MEMORY_REGION* SmramRegions;
    UINTN SmramRegionCount;
    const KYR_MEMORY_REGION* ValidCommunicationRegions;
    UINTN ValidCommunicationRegionCount;
};
