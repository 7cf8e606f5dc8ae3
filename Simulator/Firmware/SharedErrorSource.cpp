#include "Simulator/Firmware/SharedErrorSource.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace Simulator {

namespace {

constexpr std::uint64_t ACKNOWLEDGED = 0x1;

std::atomic_ref<std::uint64_t> Word64(std::uint8_t* Address) {
    return std::atomic_ref<std::uint64_t>(*reinterpret_cast<std::uint64_t*>(Address));
}

std::atomic_ref<std::uint32_t> Word32(std::uint8_t* Address) {
    return std::atomic_ref<std::uint32_t>(*reinterpret_cast<std::uint32_t*>(Address));
}

[[noreturn]] void Refuse(const std::filesystem::path& Memory, const std::string& Why) {
    throw std::invalid_argument(fmt::format("{}: {}", Memory.string(), Why));
}

}  // namespace

SharedErrorSource::SharedErrorSource(const std::filesystem::path& Memory, std::uint64_t PhysicalAddress) {
    if (PhysicalAddress % STATUS_BLOCK != 0) {
        Refuse(Memory, "the error source's address is no multiple of 4096");
    }
    const int File = open(Memory.c_str(), O_RDWR | O_CLOEXEC);
    if (File < 0) {
        Refuse(Memory, std::strerror(errno));
    }
    struct stat Facts {};
    void* Mapped = MAP_FAILED;
    const bool Reaches = fstat(File, &Facts) == 0 && Facts.st_size >= static_cast<off_t>(SIZE) &&
                         PhysicalAddress <= static_cast<std::uint64_t>(Facts.st_size) - SIZE;
    if (Reaches) {
        Mapped = mmap(nullptr, SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, File, static_cast<off_t>(PhysicalAddress));
    }
    close(File);
    if (Mapped == MAP_FAILED) {
        Refuse(Memory, fmt::format("has no {} bytes at {:#x} to map", SIZE, PhysicalAddress));
    }
    Base = static_cast<std::uint8_t*>(Mapped);
    Word64(Base + STATUS_ADDRESS_REGISTER).store(PhysicalAddress + STATUS_BLOCK);
}

SharedErrorSource::~SharedErrorSource() {
    munmap(Base, SIZE);
}

void SharedErrorSource::Publish(std::span<const std::uint8_t> Block) {
    constexpr std::size_t StatusWord = sizeof(std::uint32_t);
    if (Block.size() < StatusWord || Block.size() > SIZE - STATUS_BLOCK) {
        return;
    }
    Word64(Base + READ_ACKNOWLEDGE_REGISTER).store(0);
    std::memcpy(Base + STATUS_BLOCK + StatusWord, Block.data() + StatusWord, Block.size() - StatusWord);
    std::uint32_t Status = 0;
    std::memcpy(&Status, Block.data(), sizeof(Status));
    Word32(Base + STATUS_BLOCK).store(Status);
}

bool SharedErrorSource::IsAcknowledged() const {
    return (Word64(Base + READ_ACKNOWLEDGE_REGISTER).load() & ACKNOWLEDGED) != 0;
}

bool SharedErrorSource::WaitForAcknowledge(double Seconds) const {
    const auto End = std::chrono::steady_clock::now() + std::chrono::duration<double>(Seconds);
    while (!IsAcknowledged()) {
        if (std::chrono::steady_clock::now() >= End) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

}  // namespace Simulator
