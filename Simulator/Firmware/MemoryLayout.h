// Where SMRAM and the buffers outside it lie. One mapping serves every simulation of the process, at the same
// addresses, so that two runs do not differ by where they were put.
#pragma once

#include <cstdint>

namespace Simulator {

struct MemoryArea {
    std::uint8_t* Base = nullptr;
    std::uint64_t Size = 0;  // bytes

    std::uint8_t* End() const {
        return Base + Size;
    }
    bool Contains(const void* Address) const {
        return Address >= Base && Address < End();
    }
};

struct MemoryLayout {
    MemoryArea Communication;  // a valid communication region
    MemoryArea Outside;        // memory of the OS that no communication buffer may come from; SMRAM follows it
    MemoryArea SmramFront;     // SMRAM in which nothing lies
    MemoryArea FirmwareData;   // SMRAM of the records that the firmware hands to the driver
    MemoryArea Pool;           // SMRAM that pool blocks come from
};

// Maps the memory on first use. Throws std::bad_alloc when the system has no address space left.
const MemoryLayout& Memory();

// Under the address sanitizer: marks bytes as forbidden, or as usable again. Else nothing.
void ForbidAccess(const void* Address, std::uint64_t Size);
void AllowAccess(const void* Address, std::uint64_t Size);

}  // namespace Simulator
