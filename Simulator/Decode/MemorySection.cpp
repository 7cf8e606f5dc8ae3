#include <fmt/format.h>

#include "Simulator/Decode/Sections.h"
#include "Simulator/Journal/Journal.h"

namespace Simulator {

namespace {

constexpr const char* MemoryErrorTypes[] = {"unknown",
                                            "no error",
                                            "single-bit ECC",
                                            "multi-bit ECC",
                                            "single-symbol chipkill ECC",
                                            "multi-symbol chipkill ECC",
                                            "master abort",
                                            "target abort",
                                            "parity error",
                                            "watchdog timeout",
                                            "invalid address",
                                            "mirror broken",
                                            "memory sparing",
                                            "scrub corrected error",
                                            "scrub uncorrected error",
                                            "physical memory map-out event"};

// Error status, error type field (UEFI 2.10, N.2.12).
std::string ErrorTypeName(std::uint64_t Type) {
    constexpr const char* Detailed[] = {"bus",
                                        "map",
                                        "improper access",
                                        "access to unimplemented address",
                                        "loss of lockstep",
                                        "response not associated with a request",
                                        "bus parity",
                                        "protocol",
                                        "error path",
                                        "timeout",
                                        "poisoned"};
    constexpr const char* General[] = {nullptr, "internal", nullptr,    nullptr,     "memory",
                                       "TLB",   "cache",    "function", "self test", "flow"};
    return Type >= 16 ? Word(Detailed, Type - 16) : Word(General, Type);
}

DecodedItem DecodeErrorStatus(std::uint64_t Status) {
    constexpr const char* Flags[] = {"address",   "control",     "data",    "responder",
                                     "requester", "first error", "overflow"};
    const std::uint64_t Type = Status >> 8 & 0xFF;
    DecodedItem Item{"error-status", Hex(Status), "", {}};
    Item.Parts = {{"error-type", Hex(Type), ErrorTypeName(Type), {}},
                  {"detected-on", Hex(Status >> 16 & 0x7F), FlagWords(Flags, Status >> 16 & 0x7F), {}}};
    return Item;
}

}  // namespace

std::vector<DecodedItem> DecodeMemorySection(Bytes Section) {
    const ByteReader Reader(Section, "memory section");
    const std::uint64_t Valid = Reader.Number(0, 8);
    std::vector<DecodedItem> Items{{"valid", Hex(Valid), "", {}}};
    if (Valid & 1) {
        Items.push_back(DecodeErrorStatus(Reader.Number(8, 8)));
    }
    constexpr NumberField Place[] = {{"physical-address", 16, 8, 1},
                                     {"physical-address-mask", 24, 8, 2},
                                     {"node", 32, 2, 3},
                                     {"card", 34, 2, 4},
                                     {"module", 36, 2, 5}};
    AppendNumbers(Items, Reader, Place, Valid);
    const std::uint64_t Bank = Reader.Number(38, 2);
    if (Valid >> 19 & 3) {
        Items.push_back({"bank-group", Hex(Bank >> 8), "", {}});
        Items.push_back({"bank-address", Hex(Bank & 0xFF), "", {}});
    } else if (Valid >> 6 & 1) {
        Items.push_back({"bank", Hex(Bank), "", {}});
    }
    constexpr NumberField Cell[] = {{"device", 40, 2, 7},        {"row", 42, 2, 8},
                                    {"column", 44, 2, 9},        {"bit-position", 46, 2, 10},
                                    {"requester-id", 48, 8, 11}, {"responder-id", 56, 8, 12},
                                    {"target-id", 64, 8, 13}};
    AppendNumbers(Items, Reader, Cell, Valid);
    if (Valid >> 14 & 1) {
        const std::uint64_t Type = Reader.Number(72, 1);
        Items.push_back({"memory-error-type", Hex(Type), Word(MemoryErrorTypes, Type), {}});
    }
    if (Valid >> 18 & 1) {
        Items.push_back({"row-bits-17-16", Hex(Reader.Number(73, 1) & 3), "", {}});
    }
    constexpr NumberField Handles[] = {{"rank", 74, 2, 15}, {"card-handle", 76, 2, 16}, {"module-handle", 78, 2, 17}};
    AppendNumbers(Items, Reader, Handles, Valid);
    return Items;
}

}  // namespace Simulator
