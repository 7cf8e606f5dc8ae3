// Memory: the compiler's block operations, and blocks from the SMM pool.
#pragma once

#include "Library/RasLib/Globals.h"

inline void CopyMem(void* Destination, const void* Source, UINTN Bytes) {
    __builtin_memcpy(Destination, Source, Bytes);
}

inline void ZeroMem(void* Buffer, UINTN Bytes) {
    __builtin_memset(Buffer, 0, Bytes);
}

// True when the two ranges hold the same bytes.
inline bool SameMem(const void* Left, const void* Right, UINTN Bytes) {
    return __builtin_memcmp(Left, Right, Bytes) == 0;
}

// Takes Bytes bytes of runtime-services data from the SMM pool, not zeroed. *Block is NULL after a failure.
// The allocator's status.
template <class Type>
[[nodiscard]] EFI_STATUS AllocateRuntimeData(UINTN Bytes, Type** Block) {
    void* Pool = nullptr;
    const EFI_STATUS Status = gSmst->SmmAllocatePool(EfiRuntimeServicesData, Bytes, &Pool);
    *Block = EFI_ERROR(Status) ? nullptr : static_cast<Type*>(Pool);
    return Status;
}

// The same, zeroed.
template <class Type>
[[nodiscard]] EFI_STATUS AllocateZeroedRuntimeData(UINTN Bytes, Type** Block) {
    const EFI_STATUS Status = AllocateRuntimeData(Bytes, Block);
    if (!EFI_ERROR(Status)) {
        ZeroMem(*Block, Bytes);
    }
    return Status;
}

// Gives a block back to the SMM pool. The allocator's status; EFI_INVALID_PARAMETER for a block that it does
// not know.
inline EFI_STATUS FreeRuntimeData(void* Block) {
    return gSmst->SmmFreePool(Block);
}
