// Memory-mapped registers outside PCI configuration space.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Simulator {

// Memory-mapped registers that do more than remember. Offset: bytes from where the device is mapped; Width in bytes.
class MmioDevice {
 public:
    virtual ~MmioDevice() = default;
    // Nothing, or false, for a register that does not exist.
    virtual std::optional<std::uint64_t> Read(std::uint64_t Offset, unsigned Width) = 0;
    virtual bool Write(std::uint64_t Offset, unsigned Width, std::uint64_t Value) = 0;
};

// Ranges of plain registers and devices, each with a name for messages. What no range covers does not exist.
class MmioSpace {
 public:
    void Map(std::uint64_t Base, std::uint64_t Size, std::string Name);
    // The device must outlive its range.
    void MapDevice(std::uint64_t Base, std::uint64_t Size, std::string Name, MmioDevice& Device);
    // Takes away the range that begins there.
    void Unmap(std::uint64_t Base);
    // Width in bytes. Nothing where no range covers the whole access.
    std::optional<std::uint64_t> Read(std::uint64_t Address, unsigned Width);
    bool Write(std::uint64_t Address, unsigned Width, std::uint64_t Value);

 private:
    struct Range {
        std::string Name;
        std::uint64_t Size = 0;
        std::vector<std::uint8_t> Bytes;  // empty for a device
        MmioDevice* Device = nullptr;
    };
    struct Place {
        Range* Where = nullptr;  // nullptr where no range covers the access
        std::uint64_t Offset = 0;
    };
    Place Locate(std::uint64_t Address, unsigned Width);

    std::map<std::uint64_t, Range> Ranges;  // by base
};

}  // namespace Simulator
