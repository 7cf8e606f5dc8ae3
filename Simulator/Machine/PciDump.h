// Configuration spaces as text, in the format of lspci -xxxx: a line "[SSSS:]BB:DD.F ..." for each function, then
// lines of an offset and 16 bytes.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Simulator/Machine/PciSpace.h"

namespace Simulator {

struct DumpedFunction {
    PciAddress Where;
    std::array<std::uint8_t, 4096> Bytes{};

    std::uint32_t Register(unsigned Offset, unsigned Width) const;
    bool IsBridge() const;
    // Device/port type of the PCI Express capability; above 15 where there is none.
    unsigned PortType() const;
};

// Throws std::invalid_argument, with the number of the line that cannot be read.
std::vector<DumpedFunction> ReadPciDump(std::string_view Text);

// "SSSS:BB:DD.F" or "BB:DD.F"; nothing for another text.
std::optional<PciAddress> ParsePciAddress(std::string_view Text);
std::string PciAddressText(const PciAddress& Where);

// Segments and buses where root complexes have to begin: those behind no bridge of the dump that hold functions which
// only a root complex has, and bus 0 of a segment whose functions nothing else leads to.
std::vector<std::pair<unsigned, unsigned>> RootBusesOf(const std::vector<DumpedFunction>& Functions);
// Whether a bridge of the dump leads to the bus.
const DumpedFunction* BridgeTo(const std::vector<DumpedFunction>& Functions, const PciAddress& Where);

// Every function that software can reach now, with what it would read.
std::string WritePciDump(PciSpace& Space);

}  // namespace Simulator
