// Reading records that anyone may have handed in: nothing is read past the length that a record claims.
#pragma once

#include "Include/Cper.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"

// Where a memory section holds its physical address, counted from the record's start.
inline constexpr UINTN CPER_MEMORY_PHYSICAL_ADDRESS_OFFSET =
    sizeof(CPER_RECORD) + offsetof(CPER_MEMORY_SECTION, PhysicalAddress);
static_assert(CPER_MEMORY_PHYSICAL_ADDRESS_OFFSET == 216);

// Whether a memory section with these validation bits names the DIMM.
constexpr bool IsMemoryLocationValid(UINT64 ValidationBits) {
    constexpr UINT64 Needed =
        CperMemoryValid::Node::Mask | CperMemoryValid::Card::Mask | CperMemoryValid::Module::Mask;
    return (ValidationBits & Needed) == Needed;
}

// Whether Bytes bytes at Offset lie inside the record. The record must hold its header.
inline bool RecordHolds(const CPER_RECORD* pCper, UINTN Offset, UINTN Bytes) {
    return Offset + Bytes <= pCper->Header.RecordLength;
}

// Whether the record is long enough for its header and its section descriptor; traced where it is not.
inline bool IsRecordFrontComplete(const CPER_RECORD* pCper, const CHAR8* Caller = __builtin_FUNCTION()) {
    if (!RecordHolds(pCper, 0, sizeof(CPER_RECORD))) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR CPER RecordLength %d < Min %d, aborting...\n",
                pCper->Header.RecordLength, sizeof(CPER_RECORD));
        return false;
    }
    return true;
}

// The field that lies Offset bytes into the record; zero where the record ends before it does.
template <class Value>
Value RecordField(const CPER_RECORD* pCper, UINTN Offset) {
    Value Read{};
    if (RecordHolds(pCper, Offset, sizeof(Value))) {
        CopyMem(&Read, reinterpret_cast<const UINT8*>(pCper) + Offset, sizeof(Value));
    }
    return Read;
}

// The field that lies Offset bytes into the record's section.
template <class Value>
Value SectionField(const CPER_RECORD* pCper, UINTN Offset) {
    return RecordField<Value>(pCper, sizeof(CPER_RECORD) + Offset);
}

// The section's type, out of the packed record.
inline EFI_GUID RecordSectionType(const CPER_RECORD* pCper) {
    return RecordField<EFI_GUID>(pCper,
                                 offsetof(CPER_RECORD, Descriptor) + offsetof(CPER_SECTION_DESCRIPTOR, SectionType));
}

// Whether the record's section is a processor's, of either kind.
inline bool IsProcessorRecord(const CPER_RECORD* pCper) {
    return IsSectionType(pCper, gCperSectionProcessorGenericGuid) ||
           IsSectionType(pCper, gCperSectionProcessorSpecificGuid);
}
