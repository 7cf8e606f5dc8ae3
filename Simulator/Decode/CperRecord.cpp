// Header and section descriptors of a Common Platform Error Record (UEFI 2.10, N.2.1 and N.2.2).
#include <fmt/format.h>

#include <algorithm>

#include "Simulator/Decode/Sections.h"
#include "Simulator/Journal/Journal.h"

namespace Simulator {

namespace {

constexpr std::size_t HeaderSize = 128;
constexpr std::size_t DescriptorSize = 72;

constexpr const char* Severities[] = {"recoverable", "fatal", "corrected", "informational"};
constexpr const char* HeaderFlags[] = {"recovered", "previous error", "simulated"};
constexpr const char* HeaderValid[] = {"platform ID", "time stamp", "partition ID"};
constexpr const char* DescriptorFlags[] = {
    "primary",      "containment warning", "reset",   "error threshold exceeded", "resource not accessible",
    "latent error", "propagated",          "overflow"};
constexpr const char* DescriptorValid[] = {"FRU ID", "FRU text"};

struct GuidName {
    const char* Guid;
    const char* Name;
};

constexpr GuidName NotificationTypes[] = {
    {"2DCE8BB1-BDD7-450E-B9AD-9CF4EBD4F890", "corrected machine check"},
    {"4E292F96-D843-4A55-A8C2-D481F27EBEEE", "corrected platform error"},
    {"E8F56FFE-919C-4CC5-BA88-65ABE14913BB", "machine-check exception"},
    {"CF93C01F-1A16-4DFC-B8BC-9C4DAF67C104", "PCI Express error"},
    {"CC5263E8-9308-454A-89D0-340BD39BC98E", "INIT record"},
    {"5BAD89FF-B7E6-42C9-814A-CF2485D6E98A", "non-maskable interrupt"},
    {"3D61A466-AB40-409A-A698-F362D464B38F", "boot error"},
    {"667DD791-C6B3-4C27-8A6B-0F8E722DEB41", "DMA remapping error"},
    {"69293BC9-41DF-49A3-B4BD-4FB0DB3041F6", "CXL component event"},
};

struct SectionKind {
    const char* Guid;
    const char* Name;
    std::vector<DecodedItem> (*Decode)(Bytes Section);
};

constexpr SectionKind SectionKinds[] = {
    {"DC3EA0B0-A144-4797-B95B-53FA242B6E1D", "IA32/X64 processor error", DecodeProcessorSection},
    {"A5BC1114-6F64-4EDE-B863-3E83ED7C83B1", "platform memory error", DecodeMemorySection},
    {"D995E954-BBC1-430F-AD91-B44DCB3C6F35", "PCI Express error", DecodePcieSection},
    {"9876CCAD-47B4-4BDB-B65E-16F193C4F3DB", "generic processor error", nullptr},
    {"61EC04FC-48E6-D813-25C9-8DAA44750B12", "platform memory error 2", nullptr},
    {"C5753963-3B84-4095-BF78-EDDAD3F9C9DD", "PCI/PCI-X bus error", nullptr},
    {"EB5E4685-CA66-4769-B6A2-26068B001326", "PCI/PCI-X component error", nullptr},
    {"80B9EFB4-52B5-4DE3-A777-68784B771048", "CXL protocol error", DecodeCxlProtocolSection},
    {"81212A96-09ED-4996-9471-8D729C8E69ED", "firmware error", nullptr},
    {"5B51FEF7-C79D-4434-8F1B-AA62DE3E2C64", "DMA remapping error", nullptr},
    // Event records of CXL devices: the bytes of the UUID stand in the order in which it is written.
    {"770ACDFB-60C2-7F41-85A9-088B1621EBA6", "CXL general media event", DecodeCxlComponentSection},
    {"B3CB1D60-069C-AB4E-B8AF-4E9BFB5C9624", "CXL DRAM event", DecodeCxlComponentSection},
    {"757492FE-59DD-3943-A586-79BAB113B774", "CXL memory module event", DecodeCxlComponentSection},
    {"403A1FE7-292D-9240-8A39-4D1C966C7C65", "CXL memory sparing event", DecodeCxlComponentSection},
    {"7192CF77-029C-0B47-9FE4-BC7B75F2DA97", "CXL physical switch event", DecodeCxlComponentSection},
    {"2564D240-9633-4D4C-A5DA-3D47263AF425", "CXL virtual switch event", DecodeCxlComponentSection},
    {"6343C48D-960C-1047-B7BF-04BB99534C3F", "CXL MLD port event", DecodeCxlComponentSection},
    {"A7AF95CA-83F1-1840-8C2F-95268E101A2A", "CXL dynamic capacity event", DecodeCxlComponentSection},
};

template <class Row, std::size_t Count>
const Row* FindGuid(const Row (&Rows)[Count], const std::string& Guid) {
    for (const Row& Candidate : Rows) {
        if (Candidate.Guid == Guid) {
            return &Candidate;
        }
    }
    return nullptr;
}

// This system writes plain numbers, not BCD.
std::string TimeStampText(const ByteReader& Header, std::size_t Offset) {
    const auto At = [&](std::size_t Byte) { return Header.Number(Offset + Byte, 1); };
    return fmt::format("{:02}{:02}-{:02}-{:02} {:02}:{:02}:{:02}{}", At(7), At(6), At(5), At(4), At(2), At(1), At(0),
                       At(3) & 1 ? ", precise" : "");
}

std::string NamedGuid(const std::string& Guid, const char* Name) {
    return Name ? Name : Guid.find_first_not_of("0-") == std::string::npos ? "none" : "not a published type";
}

DecodedItem DecodeHeader(const ByteReader& Header) {
    DecodedItem Item{"header", "", "", {}};
    const std::uint64_t Valid = Header.Number(16, 4);
    const std::string Notification = Header.Guid(80);
    const GuidName* Known = FindGuid(NotificationTypes, Notification);
    const std::uint64_t Severity = Header.Number(12, 4);
    Item.Parts = {
        {"revision", fmt::format("0x{:04X}", Header.Number(4, 2)), "", {}},
        {"section-count", Hex(Header.Number(10, 2)), "", {}},
        {"severity", Hex(Severity), Word(Severities, Severity), {}},
        {"valid", Hex(Valid), FlagWords(HeaderValid, Valid), {}},
        {"record-length", Hex(Header.Number(20, 4)), fmt::format("{} bytes", Header.Number(20, 4)), {}},
        {"time-stamp",
         HexBytes(Header.Range(24, 8).data(), 8),
         Valid & 2 ? TimeStampText(Header, 24) : "not marked valid",
         {}},
        {"platform-id", Header.Guid(32), Valid & 1 ? "" : "not marked valid", {}},
        {"partition-id", Header.Guid(48), Valid & 4 ? "" : "not marked valid", {}},
        {"creator-id", Header.Guid(64), "", {}},
        {"notification-type", Notification, NamedGuid(Notification, Known ? Known->Name : nullptr), {}},
        {"record-id", Hex(Header.Number(96, 8)), "", {}},
        {"flags", Hex(Header.Number(104, 4)), FlagWords(HeaderFlags, Header.Number(104, 4)), {}},
        {"persistence-info", Hex(Header.Number(108, 8)), "", {}},
    };
    return Item;
}

DecodedItem DecodeOneSection(Bytes Record, std::size_t DescriptorOffset) {
    const ByteReader Descriptor(Record.subspan(DescriptorOffset, DescriptorSize), "section descriptor");
    const std::uint64_t Offset = Descriptor.Number(0, 4);
    const std::uint64_t Length = Descriptor.Number(4, 4);
    const std::uint64_t Valid = Descriptor.Number(10, 1);
    const std::string Type = Descriptor.Guid(16);
    const SectionKind* Kind = FindGuid(SectionKinds, Type);
    const std::uint64_t Severity = Descriptor.Number(48, 4);
    // A CXL protocol section may claim room for registers that were not captured.
    const bool IsOpenEnded = Kind && Kind->Decode == DecodeCxlProtocolSection && Offset <= Record.size();
    const std::uint64_t Held = IsOpenEnded ? std::min<std::uint64_t>(Length, Record.size() - Offset) : Length;
    const Bytes Body = ByteReader(Record, "record").Range(Offset, Held);

    DecodedItem Item{"section", "", "", {}};
    Item.Parts = {
        {"offset", Hex(Offset), fmt::format("byte {}", Offset), {}},
        {"length",
         Hex(Length),
         Held < Length ? fmt::format("{} bytes, of which the record holds {}", Length, Held)
                       : fmt::format("{} bytes", Length),
         {}},
        {"revision", fmt::format("0x{:04X}", Descriptor.Number(8, 2)), "", {}},
        {"valid", Hex(Valid), FlagWords(DescriptorValid, Valid), {}},
        {"flags", Hex(Descriptor.Number(12, 4)), FlagWords(DescriptorFlags, Descriptor.Number(12, 4)), {}},
        {"type", Type, NamedGuid(Type, Kind ? Kind->Name : nullptr), {}},
        {"fru-id", Descriptor.Guid(32), Valid & 1 ? "" : "not marked valid", {}},
        {"severity", Hex(Severity), Word(Severities, Severity), {}},
        {"fru-text", Descriptor.Text(52, 20), Valid & 2 ? "" : "not marked valid", {}},
    };
    if (Kind && Kind->Decode) {
        Item.Parts.push_back({"body", "", "", Kind->Decode(Body)});
    } else {
        Item.Parts.push_back({"body", HexBytes(Body.data(), Body.size()), "", {}});
    }
    return Item;
}

}  // namespace

std::vector<DecodedItem> DecodeCper(Bytes Record) {
    const ByteReader Reader(Record, "record");
    if (Reader.Text(0, 4) != "CPER") {
        throw DecodeError(fmt::format("the record begins with {}, but 43 50 45 52 (\"CPER\") is needed",
                                      HexBytes(Record.data(), 4)));
    }
    const ByteReader Header(Reader.Range(0, HeaderSize), "record header");
    if (Header.Number(6, 4) != 0xFFFFFFFF) {
        throw DecodeError(
            fmt::format("the signature's end at offset 6 is {}, but 0xFFFFFFFF is needed", Hex(Header.Number(6, 4))));
    }
    const std::uint64_t Length = Header.Number(20, 4);
    if (Length > Record.size()) {
        throw DecodeError(
            fmt::format("the record says that it is {} bytes long, but only {} are there", Length, Record.size()));
    }
    const std::uint64_t Sections = Header.Number(10, 2);
    if (Length < HeaderSize + Sections * DescriptorSize) {
        throw DecodeError(
            fmt::format("the record says that it is {} bytes long, but header and {} descriptors need {}", Length,
                        Sections, HeaderSize + Sections * DescriptorSize));
    }
    std::vector<DecodedItem> Items{DecodeHeader(Header)};
    for (std::uint64_t Index = 0; Index < Sections; ++Index) {
        Items.push_back(DecodeOneSection(Record.first(Length), HeaderSize + Index * DescriptorSize));
    }
    if (Length < Record.size()) {
        Items.push_back({"beyond-the-record", Hex(Record.size() - Length), "bytes that belong to no record", {}});
    }
    return Items;
}

}  // namespace Simulator
