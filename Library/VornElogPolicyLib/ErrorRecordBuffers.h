// The buffers that hold the records of one SMI, and the deferred ring that holds them for ever.
#pragma once

#include "Include/BoundedContainers.h"
#include "Include/ErrorRecordBuffer.h"

inline constexpr UINT64 CORRECTED_BUFFER_ELEMENTS = 256;
inline constexpr UINT64 DEFERRED_BUFFER_ELEMENTS = 512;
inline constexpr UINT64 UNCORRECTED_BUFFER_ELEMENTS = 768;
inline constexpr UINT64 PCI_BUFFER_ELEMENTS = 256;

// Fills pEntry, whatever it held: the class and pool copies of the record and of its chipset data. The entry owns
// the copies until a buffer takes it. On failure it holds none; the allocation's status is traced, in the name of
// Caller, and returned. Nothing frees the copies of an entry that a full buffer refuses: the record is lost and they
// stay allocated, which is meant. So do those of a deferred entry that the wrapping ring overwrites.
EFI_STATUS VornElogSmmCopyRecordIntoEntry(const CPER_RECORD* pCper,
                                          const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData, UINT32 MceClass,
                                          ERROR_RECORD_BUFFER_ENTRY* pEntry,
                                          const CHAR8* Caller = __builtin_FUNCTION());

// Free the copies in every slot and empty the buffers: the uncorrected, then the corrected one; the PCI one.
void VornElogSmmClearErrorRecordBuffersMca();
void VornElogSmmClearErrorRecordBuffersPci();

// Goes through the entries of a buffer from the newest back to the oldest.
class NewestFirst {
 public:
    // pBuffer may be NULL: there is nothing to visit then.
    explicit NewestFirst(BUFFER_HEADER* pBuffer) : Buffer(pBuffer), Index(pBuffer == nullptr ? 0 : pBuffer->Tail) {}

    // The next older entry, NULL behind the oldest.
    ERROR_RECORD_BUFFER_ENTRY* Next() {
        if (Buffer == nullptr || Index == Buffer->Head) {
            return nullptr;
        }
        Index = Index == 0 ? static_cast<UINT32>(Buffer->MaxElements - 1) : Index - 1;
        return BufferSlot<ERROR_RECORD_BUFFER_ENTRY>(Buffer, Index);
    }

 private:
    BUFFER_HEADER* Buffer;
    UINT32 Index;
};
