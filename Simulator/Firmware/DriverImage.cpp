#include "Simulator/Firmware/DriverImage.h"

#include <memory>

// Made by the linker around the section; absent when nothing is in it.
extern "C" std::uint8_t __start_kyrstate[] __attribute__((weak, visibility("hidden")));
extern "C" std::uint8_t __stop_kyrstate[] __attribute__((weak, visibility("hidden")));

namespace Simulator {

namespace {

// Byte by byte and volatile, so that the copy stays a loop: memcpy() itself would be checked against the guard
// zones that lie between the driver's globals.
void CopyOver(std::uint8_t* Target, const std::uint8_t* Source, std::uint64_t Size) {
    volatile std::uint8_t* To = Target;
    const volatile std::uint8_t* From = Source;
    for (std::uint64_t Index = 0; Index < Size; Index++) {
        To[Index] = From[Index];
    }
}

// Taken while the program starts: nothing of the driver has run by then.
const std::unique_ptr<std::uint8_t[]> LoadImage = [] {
    const MemoryArea State = DriverStateSection();
    auto Copy = std::make_unique<std::uint8_t[]>(State.Size);
    CopyOver(Copy.get(), State.Base, State.Size);
    return Copy;
}();

}  // namespace

MemoryArea DriverStateSection() {
    return {__start_kyrstate, static_cast<std::uint64_t>(__stop_kyrstate - __start_kyrstate)};
}

void RestoreDriverState() {
    const MemoryArea State = DriverStateSection();
    CopyOver(State.Base, LoadImage.get(), State.Size);
}

}  // namespace Simulator
