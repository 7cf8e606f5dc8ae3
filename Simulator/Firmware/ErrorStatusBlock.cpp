#include "Simulator/Firmware/ErrorStatusBlock.h"

#include <cstring>

#include "Include/Cper.h"

namespace Simulator {

namespace {

#pragma pack(push, 1)
struct BlockHeader {
    std::uint32_t BlockStatus;
    std::uint32_t RawDataOffset;
    std::uint32_t RawDataLength;
    std::uint32_t DataLength;  // of all entries
    std::uint32_t ErrorSeverity;
};
static_assert(sizeof(BlockHeader) == 20);

struct DataEntry {
    EFI_GUID SectionType;
    std::uint32_t ErrorSeverity;
    std::uint16_t Revision;
    std::uint8_t ValidationBits;  // bit 0 FRU ID, bit 1 FRU text, bit 2 time stamp
    std::uint8_t Flags;
    std::uint32_t ErrorDataLength;
    EFI_GUID FruId;
    char FruText[20];
    std::uint8_t TimeStamp[8];
};
static_assert(sizeof(DataEntry) == 72);
#pragma pack(pop)

namespace BlockStatus {
using Uncorrectable = Field<std::uint32_t, 0>;
using Correctable = Field<std::uint32_t, 1>;
using MultipleUncorrectable = Field<std::uint32_t, 2>;
using MultipleCorrectable = Field<std::uint32_t, 3>;
using EntryCount = Field<std::uint32_t, 13, 4>;
}  // namespace BlockStatus

constexpr std::uint16_t DATA_ENTRY_REVISION = 0x0300;
constexpr std::uint8_t TIME_STAMP_VALID = 0x4;

// Fatal before recoverable before corrected before informational.
unsigned Rank(std::uint32_t Severity) {
    constexpr unsigned RANKS[] = {1, 0, 2, 3};
    return Severity < 4 ? RANKS[Severity] : 4;
}

// Records hold plain numbers; the block's time stamp is BCD, but for the flags in byte 3.
void PutTimeStamp(std::uint8_t (&Target)[8], const CPER_TIMESTAMP& Source) {
    std::memcpy(Target, &Source, sizeof(Target));
    for (unsigned Index = 0; Index < 8; Index++) {
        if (Index != 3) {
            Target[Index] = static_cast<std::uint8_t>(Target[Index] / 10 << 4 | Target[Index] % 10);
        }
    }
}

}  // namespace

ErrorStatusBlock::AddResult ErrorStatusBlock::Add(std::span<const std::uint8_t> Cper, std::uint32_t Severity) {
    CPER_RECORD Record;
    if (Cper.size() < sizeof(Record)) {
        return AddResult::NotARecord;
    }
    std::memcpy(&Record, Cper.data(), sizeof(Record));
    const std::uint64_t End = std::uint64_t{Record.Descriptor.SectionOffset} + Record.Descriptor.SectionLength;
    if (std::memcmp(Record.Header.SignatureStart, "CPER", 4) != 0 || End > Cper.size()) {
        return AddResult::NotARecord;
    }
    const std::size_t Begin = IsEmpty() ? sizeof(BlockHeader) : Bytes.size();
    const std::uint32_t DataLength = Record.Descriptor.SectionLength;
    if (Begin + sizeof(DataEntry) + DataLength > Capacity) {
        return AddResult::Full;
    }
    DataEntry Entry{};
    Entry.SectionType = Record.Descriptor.SectionType;
    Entry.ErrorSeverity = Record.Descriptor.Severity;
    Entry.Revision = DATA_ENTRY_REVISION;
    Entry.ValidationBits = Record.Descriptor.SecValidMask & 0x3;
    Entry.Flags = static_cast<std::uint8_t>(Record.Descriptor.Flags);
    Entry.ErrorDataLength = DataLength;
    Entry.FruId = Record.Descriptor.FruId;
    std::memcpy(Entry.FruText, Record.Descriptor.FruString, sizeof(Entry.FruText));
    if ((Record.Header.ValidationBits & CPER_HEADER_TIME_STAMP_VALID) != 0) {
        Entry.ValidationBits |= TIME_STAMP_VALID;
        PutTimeStamp(Entry.TimeStamp, Record.Header.TimeStamp);
    }
    Bytes.resize(Begin + sizeof(DataEntry) + DataLength);
    std::memcpy(Bytes.data() + Begin, &Entry, sizeof(Entry));
    std::memcpy(Bytes.data() + Begin + sizeof(Entry), Cper.data() + Record.Descriptor.SectionOffset, DataLength);
    UpdateHeader(Severity);
    return AddResult::Added;
}

// Counts the entry that was just added in.
void ErrorStatusBlock::UpdateHeader(std::uint32_t Severity) {
    BlockHeader Header;
    std::memcpy(&Header, Bytes.data(), sizeof(Header));
    const bool First = Header.BlockStatus == 0;
    std::uint32_t& Status = Header.BlockStatus;
    const bool Uncorrected = Severity == CperSeverityRecoverable || Severity == CperSeverityFatal;
    if (Uncorrected) {
        Status |= BlockStatus::Uncorrectable::Get(Status) != 0 ? BlockStatus::MultipleUncorrectable::Mask
                                                               : BlockStatus::Uncorrectable::Mask;
    } else {
        Status |= BlockStatus::Correctable::Get(Status) != 0 ? BlockStatus::MultipleCorrectable::Mask
                                                             : BlockStatus::Correctable::Mask;
    }
    Status = BlockStatus::EntryCount::Set(Status, BlockStatus::EntryCount::Get(Status) + 1);
    Header.DataLength = static_cast<std::uint32_t>(Bytes.size() - sizeof(Header));
    if (First || Rank(Severity) < Rank(Header.ErrorSeverity)) {
        Header.ErrorSeverity = Severity;
    }
    std::memcpy(Bytes.data(), &Header, sizeof(Header));
}

}  // namespace Simulator
