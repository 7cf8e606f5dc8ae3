#include <fmt/format.h>

#include "Simulator/Decode/Sections.h"
#include "Simulator/Journal/Journal.h"

namespace Simulator {

namespace {

constexpr const char* PortTypes[] = {"PCI Express endpoint",
                                     "legacy PCI Express endpoint",
                                     nullptr,
                                     nullptr,
                                     "root port",
                                     "upstream switch port",
                                     "downstream switch port",
                                     "PCI Express to PCI/PCI-X bridge",
                                     "PCI/PCI-X to PCI Express bridge",
                                     "root complex integrated endpoint",
                                     "root complex event collector"};

DecodedItem DecodeDeviceId(const ByteReader& Reader) {
    const auto At = [&](std::size_t Offset, std::size_t Width) { return Reader.Number(24 + Offset, Width); };
    DecodedItem Item{
        "device-id", fmt::format("{:04X}:{:02X}:{:02X}.{:X}", At(9, 2), At(11, 1), At(8, 1), At(7, 1)), "", {}};
    Item.Parts = {
        {"vendor", fmt::format("0x{:04X}", At(0, 2)), "", {}},
        {"device", fmt::format("0x{:04X}", At(2, 2)), "", {}},
        {"class-code", fmt::format("0x{:06X}", At(4, 3)), "", {}},
        {"secondary-bus", Hex(At(12, 1)), "", {}},
        {"slot", Hex(At(13, 2) >> 3), "", {}},
    };
    return Item;
}

}  // namespace

std::vector<DecodedItem> DecodePcieSection(Bytes Section) {
    const ByteReader Reader(Section, "PCI Express section");
    const std::uint64_t Valid = Reader.Number(0, 8);
    std::vector<DecodedItem> Items{{"valid", Hex(Valid), "", {}}};
    if (Valid & 1) {
        Items.push_back({"port-type", Hex(Reader.Number(8, 4)), Word(PortTypes, Reader.Number(8, 4)), {}});
    }
    constexpr NumberField Front[] = {{"version", 12, 4, 1}, {"command-status", 16, 4, 2}};
    AppendNumbers(Items, Reader, Front, Valid);
    if (Valid >> 3 & 1) {
        Items.push_back(DecodeDeviceId(Reader));
    }
    constexpr NumberField Middle[] = {{"serial-number", 40, 8, 4}, {"bridge-control-status", 48, 4, 5}};
    AppendNumbers(Items, Reader, Middle, Valid);
    constexpr struct {
        const char* Name;
        std::size_t Offset, Length;
        int ValidBit;
    } Blocks[] = {{"capability", 52, 60, 6}, {"aer", 112, 96, 7}};
    for (const auto& Block : Blocks) {
        if (Valid >> Block.ValidBit & 1) {
            const Bytes Raw = Reader.Range(Block.Offset, Block.Length);
            Items.push_back({Block.Name, HexBytes(Raw.data(), Raw.size()), "", {}});
        }
    }
    return Items;
}

}  // namespace Simulator
