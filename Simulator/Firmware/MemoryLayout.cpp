#include "Simulator/Firmware/MemoryLayout.h"

#include <sys/mman.h>

#include <new>

#include "Simulator/Firmware/UnderSanitizer.h"

#if UNDER_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace Simulator {

namespace {

constexpr std::uint64_t MIB = 1 << 20;
constexpr std::uint64_t COMMUNICATION_SIZE = MIB;
constexpr std::uint64_t OUTSIDE_SIZE = MIB;
constexpr std::uint64_t SMRAM_FRONT_SIZE = MIB;
constexpr std::uint64_t FIRMWARE_DATA_SIZE = MIB;
constexpr std::uint64_t POOL_SIZE = 4096 * MIB;  // reserved; pages come when they are touched

// A wish only: runs of one process agree wherever the mapping lies, runs of two processes where it is granted.
constexpr std::uint64_t PREFERRED_BASE = 0x200000000000;

MemoryLayout Map() {
    const std::uint64_t Total = COMMUNICATION_SIZE + OUTSIDE_SIZE + SMRAM_FRONT_SIZE + FIRMWARE_DATA_SIZE + POOL_SIZE;
    void* Base = mmap(reinterpret_cast<void*>(PREFERRED_BASE), Total, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (Base == MAP_FAILED) {
        throw std::bad_alloc();
    }
    MemoryLayout Layout;
    auto* Next = static_cast<std::uint8_t*>(Base);
    const auto Take = [&Next](MemoryArea& Area, std::uint64_t Size) {
        Area = {Next, Size};
        Next += Size;
    };
    Take(Layout.Communication, COMMUNICATION_SIZE);
    Take(Layout.Outside, OUTSIDE_SIZE);
    Take(Layout.SmramFront, SMRAM_FRONT_SIZE);
    Take(Layout.FirmwareData, FIRMWARE_DATA_SIZE);
    Take(Layout.Pool, POOL_SIZE);
    return Layout;
}

}  // namespace

const MemoryLayout& Memory() {
    static const MemoryLayout Layout = Map();
    return Layout;
}

#if UNDER_ADDRESS_SANITIZER
void ForbidAccess(const void* Address, std::uint64_t Size) {
    ASAN_POISON_MEMORY_REGION(Address, Size);
}
void AllowAccess(const void* Address, std::uint64_t Size) {
    ASAN_UNPOISON_MEMORY_REGION(Address, Size);
}
#else
void ForbidAccess(const void*, std::uint64_t) {}
void AllowAccess(const void*, std::uint64_t) {}
#endif

}  // namespace Simulator
