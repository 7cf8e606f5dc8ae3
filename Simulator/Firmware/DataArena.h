// SMRAM for the records that the firmware hands to the driver: they lie at the same addresses in every run, and
// nothing may be read or written between them.
#pragma once

#include <memory_resource>

#include "Simulator/Firmware/MemoryLayout.h"

namespace Simulator {

class DataArena : public std::pmr::memory_resource {
 public:
    explicit DataArena(const MemoryArea& Where);
    ~DataArena() override;

 private:
    // Throws std::bad_alloc when the area is used up.
    void* do_allocate(std::size_t Bytes, std::size_t Alignment) override;
    // Memory comes back when the arena goes.
    void do_deallocate(void* Block, std::size_t Bytes, std::size_t Alignment) override;
    bool do_is_equal(const std::pmr::memory_resource& Other) const noexcept override;

    MemoryArea Area;
    std::uint64_t Used = 0;
};

}  // namespace Simulator
