// Memory-mapped registers outside PCI configuration space.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Simulator {

// Ranges of plain registers, each with a name for messages. What no range covers does not exist.
class MmioSpace {
 public:
    void Map(std::uint64_t Base, std::uint64_t Size, std::string Name);
    // Width in bytes. Nothing where no range covers the whole access.
    std::optional<std::uint64_t> Read(std::uint64_t Address, unsigned Width) const;
    bool Write(std::uint64_t Address, unsigned Width, std::uint64_t Value);

 private:
    struct Range {
        std::string Name;
        std::vector<std::uint8_t> Bytes;
    };
    const std::uint8_t* Locate(std::uint64_t Address, unsigned Width) const;

    std::map<std::uint64_t, Range> Ranges;  // by base
};

}  // namespace Simulator
