#include "Simulator/Firmware/DataArena.h"

#include <new>

namespace Simulator {

namespace {

constexpr std::uint64_t GAP = 32;  // forbidden bytes between two blocks, a multiple of every alignment

}  // namespace

DataArena::DataArena(const MemoryArea& Where) : Area(Where) {
    ForbidAccess(Area.Base, Area.Size);
}

DataArena::~DataArena() {
    AllowAccess(Area.Base, Area.Size);
}

void* DataArena::do_allocate(std::size_t Bytes, std::size_t Alignment) {
    const std::uint64_t Taken = (Bytes + GAP - 1) / GAP * GAP + GAP;
    if (Alignment > GAP || Taken > Area.Size - Used) {
        throw std::bad_alloc();
    }
    std::uint8_t* Block = Area.Base + Used;
    Used += Taken;
    AllowAccess(Block, Bytes);
    return Block;
}

void DataArena::do_deallocate(void* Block, std::size_t Bytes, std::size_t) {
    ForbidAccess(Block, Bytes);
}

bool DataArena::do_is_equal(const std::pmr::memory_resource& Other) const noexcept {
    return this == &Other;
}

}  // namespace Simulator
