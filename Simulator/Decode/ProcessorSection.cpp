#include <fmt/format.h>

#include "Simulator/Decode/Sections.h"
#include "Simulator/Journal/Journal.h"

namespace Simulator {

namespace {

constexpr std::size_t ErrorInfoSize = 64;
constexpr std::size_t ContextHeadSize = 16;

constexpr const char* Transactions[] = {"instruction", "data access", "generic"};
constexpr const char* Operations[] = {"generic error",     "generic read", "generic write", "data read", "data write",
                                      "instruction fetch", "prefetch",     "eviction",      "snoop"};
constexpr const char* Participations[] = {"local processor originated the request",
                                          "local processor responded to the request", "local processor observed",
                                          "generic"};
constexpr const char* AddressSpaces[] = {"memory access", "reserved", "I/O", "other transaction"};
constexpr const char* MicroArchitectures[] = {"no error",
                                              "unclassified",
                                              "microcode ROM parity",
                                              "external",
                                              "functional redundancy check",
                                              "internal unclassified"};
constexpr const char* NoYes[] = {"no", "yes"};

constexpr BitField CacheBits[] = {
    {"transaction-type", 17, 16, 0, Transactions},
    {"operation", 21, 18, 1, Operations},
    {"level", 24, 22, 2, {}},
    {"processor-context-corrupt", 25, 25, 3, NoYes},
    {"uncorrected", 26, 26, 4, NoYes},
    {"precise-ip", 27, 27, 5, NoYes},
    {"restartable-ip", 28, 28, 6, NoYes},
    {"overflow", 29, 29, 7, NoYes},
};
constexpr BitField BusOnlyBits[] = {
    {"participation-type", 31, 30, 8, Participations},
    {"time-out", 32, 32, 9, NoYes},
    {"address-space", 34, 33, 10, AddressSpaces},
};
constexpr BitField MicroArchitectureBits[] = {
    {"error-type", 18, 16, 0, MicroArchitectures},
    {"processor-context-corrupt", 19, 19, 1, NoYes},
    {"uncorrected", 20, 20, 2, NoYes},
    {"precise-ip", 21, 21, 3, NoYes},
    {"restartable-ip", 22, 22, 4, NoYes},
    {"overflow", 23, 23, 5, NoYes},
};

struct CheckKind {
    const char* Guid;
    const char* Name;
    std::span<const BitField> Bits;
    std::span<const BitField> MoreBits;
};
constexpr CheckKind CheckKinds[] = {
    {"A55701F5-E3EF-43DE-AC72-249B573FAD2C", "cache check", CacheBits, {}},
    {"FC06B535-5E1F-4562-9F25-0A3B9ADB63C3", "TLB check", CacheBits, {}},
    {"1CF3F8B3-C5B1-49A2-AA59-5EEF92FFA63C", "bus check", CacheBits, BusOnlyBits},
    {"48AB7F57-DC34-4F6C-A7D3-B0B5B0A74314", "micro-architecture specific check", MicroArchitectureBits, {}},
};

DecodedItem DecodeCheckInfo(std::uint64_t Word, const CheckKind* Kind) {
    DecodedItem Item{"check-info", fmt::format("0x{:016X}", Word), "", {}};
    if (Kind) {
        AppendBits(Item.Parts, Word, Kind->Bits, Word);
        AppendBits(Item.Parts, Word, Kind->MoreBits, Word);
    }
    return Item;
}

DecodedItem DecodeErrorInfo(const ByteReader& Info) {
    DecodedItem Item{"error-info", "", "", {}};
    const std::string Type = Info.Guid(0);
    const CheckKind* Kind = nullptr;
    for (const CheckKind& Candidate : CheckKinds) {
        Kind = Candidate.Guid == Type ? &Candidate : Kind;
    }
    const std::uint64_t Valid = Info.Number(16, 8);
    Item.Parts.push_back({"type", Type, Kind ? Kind->Name : "not a published type", {}});
    Item.Parts.push_back({"valid", Hex(Valid), "", {}});
    if (Valid & 1) {
        Item.Parts.push_back(DecodeCheckInfo(Info.Number(24, 8), Kind));
    }
    constexpr NumberField Rest[] = {{"target-id", 32, 8, 1},
                                    {"requester-id", 40, 8, 2},
                                    {"responder-id", 48, 8, 3},
                                    {"instruction-pointer", 56, 8, 4}};
    AppendNumbers(Item.Parts, Info, Rest, Valid);
    return Item;
}

constexpr const char* ContextTypes[] = {"unclassified",
                                        "MSR registers",
                                        "32-bit mode execution context",
                                        "64-bit mode execution context",
                                        "FXSAVE context",
                                        "32-bit mode debug registers",
                                        "64-bit mode debug registers",
                                        "memory-mapped registers"};

DecodedItem DecodeContext(const ByteReader& Head, Bytes Array) {
    DecodedItem Item{"context", "", "", {}};
    const std::uint64_t Type = Head.Number(0, 2);
    const auto Msr = static_cast<std::uint32_t>(Head.Number(4, 4));
    Item.Parts = {
        {"type", Hex(Type), Word(ContextTypes, Type), {}},
        {"array-size", Hex(Array.size()), fmt::format("{} bytes", Array.size()), {}},
        {"msr-address", Hex(Msr), "", {}},
        {"memory-address", Hex(Head.Number(8, 8)), "", {}},
    };
    const ByteReader Registers(Array, "register array");
    for (std::size_t Offset = 0; Offset + 8 <= Array.size(); Offset += 8) {
        const auto Address = static_cast<std::uint32_t>(Msr + Offset / 8);
        const std::uint64_t Value = Registers.Number(Offset, 8);
        DecodedItem Register = Type == 1 ? DecodeBankRegister(Address, Value) : DecodedItem{};
        if (Register.Name.empty()) {
            Register = {fmt::format("register-{}", Offset / 8), fmt::format("0x{:016X}", Value), "", {}};
        }
        Item.Parts.push_back(std::move(Register));
    }
    return Item;
}

}  // namespace

std::vector<DecodedItem> DecodeProcessorSection(Bytes Section) {
    const ByteReader Reader(Section, "processor section");
    const std::uint64_t Valid = Reader.Number(0, 8);
    const std::uint64_t ErrorInfos = Valid >> 2 & 0x3F;
    const std::uint64_t Contexts = Valid >> 8 & 0x3F;
    std::vector<DecodedItem> Items{{"valid",
                                    Hex(Valid),
                                    fmt::format("{}{}{} error information, {} context", Valid & 1 ? "APIC ID, " : "",
                                                Valid & 2 ? "CPUID, " : "", ErrorInfos, Contexts),
                                    {}}};
    constexpr NumberField Front[] = {{"local-apic-id", 8, 8, 0},
                                     {"cpuid-1-eax", 16, 8, 1},
                                     {"cpuid-1-ebx", 24, 8, 1},
                                     {"cpuid-1-ecx", 32, 8, 1},
                                     {"cpuid-1-edx", 40, 8, 1}};
    AppendNumbers(Items, Reader, Front, Valid);

    std::size_t Offset = 64;
    Reader.Range(0, Offset);
    for (std::uint64_t Index = 0; Index < ErrorInfos; ++Index, Offset += ErrorInfoSize) {
        Items.push_back(DecodeErrorInfo(ByteReader(Reader.Range(Offset, ErrorInfoSize), "error information")));
    }
    for (std::uint64_t Index = 0; Index < Contexts; ++Index) {
        const ByteReader Head(Reader.Range(Offset, ContextHeadSize), "context");
        const std::size_t ArraySize = Head.Number(2, 2);
        Items.push_back(DecodeContext(Head, Reader.Range(Offset + ContextHeadSize, ArraySize)));
        Offset += ContextHeadSize + ArraySize;
    }
    return Items;
}

}  // namespace Simulator
